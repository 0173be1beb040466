#include "change/state_file.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <span>

#include "cli/suggestion.hpp"
#include "failure/failure.hpp"
#include "files/toml.hpp"
#include "files/whole_file.hpp"
#include "output/standard_streams.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl {
namespace {

constexpr std::size_t kLargestStateFile = std::size_t{16} << 20U;
constexpr std::int64_t kLargestInstance = UINT8_MAX;
constexpr std::size_t kMacLength = sizeof "00:00:00:00:00:00" - 1;

struct PatternRow {
    const char* key;
    std::string PortPatterns::*pattern;
};

constexpr PatternRow kPatterns[] = {
    {"chip", &PortPatterns::chip},
    {"model", &PortPatterns::model},
    {"location", &PortPatterns::location},
    {"interface", &PortPatterns::interface},
};

constexpr const char* kNames[] = {"interface", "mac", "location", "port", "match"};

FilePlace place_of(const toml::source_region& source) {
    return {source.begin.line, source.begin.column};
}

bool is_switch(const Setting& setting) {
    return setting.words.one != nullptr && std::string_view(setting.words.one) == kOnOff.one;
}

bool is_mac_text(std::string_view text) {
    if (text.size() != kMacLength) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool separates = i % 3 == 2;
        const bool digit = std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
        if (separates ? text[i] != ':' : !digit) {
            return false;
        }
    }
    return true;
}

std::string with_small_letters(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char letter) {
        return static_cast<char>(std::tolower(letter));
    });
    return text;
}

std::optional<std::int64_t> value_in_file(const Setting& setting, const toml::node& node) {
    if (is_switch(setting)) {
        const auto value = node.value_exact<bool>();
        return value ? std::optional<std::int64_t>(*value ? 1 : 0) : std::nullopt;
    }
    if (setting.words.zero != nullptr) {
        const auto word = node.value_exact<std::string>();
        const bool known = word && (*word == setting.words.zero || *word == setting.words.one);
        return known ? setting.parse(*word) : std::nullopt;
    }
    const auto number = node.value_exact<std::int64_t>();
    return number && setting.holds(*number) ? number : std::nullopt;
}

std::vector<std::string> port_keys() {
    std::vector<std::string> keys(std::begin(kNames), std::end(kNames));
    for (const Setting& setting : port_settings()) {
        if (is_state(setting)) {
            keys.emplace_back(setting.key);
        }
    }
    return keys;
}

class StateFileReader {
public:
    explicit StateFileReader(StateFile& file) : file_(file) {}

    void read(const toml::table& root) {
        for (const auto& [key, node] : root) {
            const std::vector<std::string> known = {"port"};
            const FilePlace place = place_of(key.source());
            const toml::array* const array = node.as_array();
            if (key.str() != known.front()) {
                const std::string name(key.str());
                add(place, fmt::format("Unknown table {}{}", name, did_you_mean(name, known)));
            } else if (array == nullptr || !array->is_homogeneous(toml::node_type::table)) {
                add(place, "port is a list of tables, each below a line [[port]]");
            } else {
                for (const toml::node& each : *array) {
                    file_.ports.push_back(port(*each.as_table()));
                }
            }
        }
        file_.sort_errors();
    }

private:
    void add(FilePlace place, std::string text) { file_.add_error(place, std::move(text)); }

    PortTable port(const toml::table& table) {
        PortTable found{.place = place_of(table.source())};
        for (const auto& [key, node] : table) {
            const std::string name(key.str());
            if (std::ranges::find(kNames, std::string_view(name)) != std::end(kNames)) {
                take_name(found, name, node);
            } else {
                take_setting(found, name, place_of(key.source()), node);
            }
        }
        std::ranges::sort(found.settings, [](const WantedSetting& one, const WantedSetting& other) {
            return other.place.is_behind(one.place);
        });
        check_names(found, table);
        check_link(found);
        return found;
    }

    void take_name(PortTable& found, const std::string& name, const toml::node& node) {
        const FilePlace place = place_of(node.source());
        if (name == "match") {
            found.patterns.emplace();
            take_patterns(*found.patterns, place, node);
            return;
        }
        if (name == "port") {
            const std::int64_t number = node.value_exact<std::int64_t>().value_or(0);
            if (number < 1 || number > kLargestInstance) {
                add(place, "port is a number from 1, as \"kxctl port list\" shows it");
            }
            found.named.instance = static_cast<std::uint32_t>(number);
            return;
        }
        const std::string text = node.value_exact<std::string>().value_or("");
        const std::optional<PciLocation> location = PciLocation::parse(text);
        if (name == "location" && location) {
            found.named.location = location;
        } else if (name == "mac" && is_mac_text(text)) {
            found.named.mac = with_small_letters(text);
        } else if (name == "interface" && !text.empty()) {
            found.named.interface = text;
        } else {
            const char* const example = name == "location" ? "03:00.4"
                                        : name == "mac"    ? "00:07:43:05:00:01"
                                                           : "eth2";
            add(place, fmt::format("{} is a text such as \"{}\"", name, example));
        }
    }

    void take_patterns(PortPatterns& patterns, FilePlace place, const toml::node& node) {
        const toml::table* const table = node.as_table();
        if (table == nullptr || table->empty()) {
            add(place, "match is a table such as {chip = \"Q5\", interface = \"eth*\"}");
            return;
        }
        for (const auto& [key, pattern] : *table) {
            const std::string name(key.str());
            const auto* const row =
                std::ranges::find(kPatterns, std::string_view(name), &PatternRow::key);
            const std::string text = pattern.value_exact<std::string>().value_or("");
            if (row == std::end(kPatterns)) {
                std::vector<std::string> known;
                std::ranges::transform(kPatterns, std::back_inserter(known), &PatternRow::key);
                add(place_of(key.source()),
                    fmt::format("match has no {}{}", name, did_you_mean(name, known)));
            } else if (text.empty()) {
                add(place_of(pattern.source()),
                    fmt::format("{} of match is a text; * and ? stand for any letters", name));
            } else {
                patterns.*row->pattern = text;
            }
        }
    }

    void take_setting(
        PortTable& found, const std::string& name, FilePlace place, const toml::node& node) {
        const auto settings = port_settings();
        const auto row = std::ranges::find(settings, std::string_view(name), &Setting::key);
        if (row == settings.end()) {
            add(place, fmt::format("Unknown key {}{}", name, did_you_mean(name, port_keys())));
        } else if (!is_state(*row)) {
            const char* const reason =
                row->form == Form::kAction ? "it is an action" : "it cannot be read back";
            add(place, fmt::format("{} is no state: {}; \"kxctl port set\" has it", name, reason));
        } else if (const auto value = value_in_file(*row, node)) {
            found.settings.push_back({&*row, *value, place});
        } else {
            add(place_of(node.source()),
                fmt::format("{} is {}: {}", name, file_values(*row), row->description()));
        }
    }

    void check_names(const PortTable& found, const toml::table& table) {
        const bool named = std::ranges::any_of(kNames, [&](const char* name) {
            return std::string_view(name) != "match" && table.contains(name);
        });
        if (!named && !table.contains("match")) {
            add(found.place, "No port is named: give interface, mac, location and port, or match");
        } else if (named && table.contains("match")) {
            add(found.place, "match and the name of one port exclude each other");
        } else if (table.contains("location") != table.contains("port")) {
            add(found.place,
                "location and port name a port together; match has the location of all ports");
        }
    }

    // With auto-negotiation on, the library ignores speed and duplex.
    void check_link(const PortTable& found) {
        const auto autoneg = std::ranges::find_if(found.settings, [](const WantedSetting& each) {
            return std::string_view(each.setting->key) == "autoneg";
        });
        if (autoneg == found.settings.end() || autoneg->value == 0) {
            return;
        }
        for (const WantedSetting& each : found.settings) {
            if (each.setting != autoneg->setting && &leader_of(*each.setting) == autoneg->setting) {
                add(each.place, fmt::format("{} needs autoneg = false", each.setting->key));
            }
        }
    }

    StateFile& file_;
};

}  // namespace

std::string PortTable::subject() const {
    std::vector<std::string> parts;
    const auto add = [&parts](const char* name, const std::string& value) {
        if (!value.empty()) {
            parts.push_back(fmt::format("{} {}", name, value));
        }
    };
    add("interface", named.interface);
    add("MAC", named.mac);
    if (named.location) {
        parts.push_back(fmt::format("{} port {}", named.location->full_text(), named.instance));
    }
    if (patterns) {
        for (const PatternRow& row : kPatterns) {
            add(row.key, *patterns.*row.pattern);
        }
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string StateFile::message(FilePlace place, std::string_view text) const {
    return fmt::format("{}:{}:{}: {}", name, place.line, place.column, text);
}

bool is_state(const Setting& setting) { return setting.is_shown(); }

std::string file_values(const Setting& setting) {
    if (is_switch(setting)) {
        return "true or false";
    }
    return setting.words.zero == nullptr
               ? "a number"
               : fmt::format("\"{}\" or \"{}\"", setting.words.zero, setting.words.one);
}

void StateFile::sort_errors() {
    std::ranges::stable_sort(errors, [](const FileError& one, const FileError& other) {
        return other.place.is_behind(one.place);
    });
}

void StateFile::refuse_errors(bool json) const {
    if (errors.empty()) {
        return;
    }
    std::vector<std::string> lines;
    for (const FileError& error : errors) {
        lines.push_back(message(error.place, error.text));
    }
    if (json) {
        throw Failure(ExitCode::kUsage, fmt::format("{}", fmt::join(lines, "; ")));
    }
    std::for_each(lines.begin(), lines.end() - 1, complain);
    throw Failure(ExitCode::kUsage, lines.back());
}

StateFile parse_state_file(const std::string& name, std::string_view text) {
    StateFile file{.name = name};
    try {
        StateFileReader(file).read(toml::parse(text, name));
    } catch (const toml::parse_error& error) {
        file.add_error(place_of(error.source()), std::string(error.description()));
    }
    return file;
}

StateFile read_state_file(const std::string& path) {
    const std::vector<std::uint8_t> bytes = read_whole_file(path, kLargestStateFile);
    return parse_state_file(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace kx::ctl
