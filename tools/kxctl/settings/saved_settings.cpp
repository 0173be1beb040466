#include "settings/saved_settings.hpp"

#include <algorithm>
#include <charconv>
#include <optional>

namespace kx::ctl {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::size_t kLongestInterfaceName = 15;  // of the kernel's

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::optional<std::int64_t> saved_number(std::string_view text) {
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

// The kernel accepts any name except these; a name that leads elsewhere under /sys is not a name.
bool is_interface_name(std::string_view name) {
    return !name.empty() && name.size() <= kLongestInterfaceName && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/ \t\0", 4)) == name.npos;
}

struct Assignment {
    std::string_view interface;
    std::string_view key;
    std::int64_t value = 0;
};

// Read a line. Returns what is wrong with it, or null.
const char* parse_line(std::string_view line, Assignment& assignment) {
    const std::size_t equals = line.find('=');
    if (equals == line.npos) {
        return "no \"=\"";
    }
    const std::string_view name = trimmed(line.substr(0, equals));
    const std::size_t dot = name.rfind('.');
    if (dot == name.npos || dot + 1 == name.size()) {
        return "no INTERFACE.KEY before the \"=\"";
    }
    if (!is_interface_name(name.substr(0, dot))) {
        return "no interface's name";
    }
    const auto value = saved_number(trimmed(line.substr(equals + 1)));
    if (!value) {
        return "no number behind the \"=\"";
    }
    assignment = {name.substr(0, dot), name.substr(dot + 1), *value};
    return nullptr;
}

SavedInterface& find_or_add(std::vector<SavedInterface>& interfaces, std::string_view name) {
    const auto found = std::ranges::find(interfaces, name, &SavedInterface::name);
    return found != interfaces.end()
               ? *found
               : interfaces.emplace_back(SavedInterface{std::string(name), {}});
}

}  // namespace

SavedSettings parse_saved_settings(std::string_view text) {
    SavedSettings saved;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line[0] == '#' || line[0] == ';') {
            continue;
        }
        Assignment assignment;
        if (const char* const damage = parse_line(line, assignment)) {
            saved.damaged.push_back({number, damage});
            continue;
        }
        find_or_add(saved.interfaces, assignment.interface)
            .values.insert_or_assign(
                std::string(assignment.key), SavedValue{assignment.value, number});
    }
    return saved;
}

}  // namespace kx::ctl
