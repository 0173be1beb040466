#include "scenario/table_reader.hpp"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "scenario/names.hpp"
#include "scenario/path_keys.hpp"

namespace kxsim {
namespace {

// The text of a value in a message.
std::string shown(const toml::node& node) {
    std::ostringstream out;
    if (node.is_table()) {
        return "a table";
    }
    if (node.is_array()) {
        return "an array";
    }
    node.visit([&](const auto& value) {
        if constexpr (toml::is_string<decltype(value)>) {
            out << '"' << value.get() << '"';
        } else if constexpr (toml::is_value<decltype(value)>) {
            out << value.get();
        }
    });
    return out.str();
}

bool is_part_of_word(char letter) {
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '_';
}

// Whether a message contains a value: in quotes, or as a word that is too long to be one by chance.
bool mentions(const std::string& message, const std::string& text) {
    if (message.find('"' + text + '"') != message.npos) {
        return true;
    }
    constexpr std::size_t kShortestWord = 4;
    if (text.size() < kShortestWord) {
        return false;
    }
    for (std::size_t at = message.find(text); at != message.npos; at = message.find(text, at + 1)) {
        const std::size_t end = at + text.size();
        if ((at == 0 || !is_part_of_word(message[at - 1])) &&
            (end == message.size() || !is_part_of_word(message[end]))) {
            return true;
        }
    }
    return false;
}

// The longest value that a message mentions, and its place.
struct Mentioned {
    std::size_t length = 0;
    toml::source_position place;
};

// key: of the node, where it has one; an element of an array has its own place.
void find_mentioned(
    const toml::node& node, const toml::source_position& key, const std::string& message,
    Mentioned& found) {
    if (const toml::table* const table = node.as_table(); table != nullptr) {
        for (const auto& [name, value] : *table) {
            find_mentioned(value, name.source().begin, message, found);
        }
    } else if (const toml::array* const array = node.as_array(); array != nullptr) {
        for (const toml::node& element : *array) {
            find_mentioned(element, element.source().begin, message, found);
        }
    } else if (const auto text = node.value<std::string>();
               text && text->size() > found.length && mentions(message, *text)) {
        found = {text->size(), key};
    }
}

}  // namespace

void complain_at(
    const std::string& file, const toml::source_position& place, const std::string& message) {
    throw ScenarioError(
        file + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) + ": " +
        message);
}

const toml::node* TableReader::take(std::string_view key) {
    allow(key);
    return table_.get(key);
}

toml::source_position TableReader::place_of(std::string_view key) const {
    const auto found = table_.find(key);
    return (found == table_.end() ? table_.source() : found->first.source()).begin;
}

void TableReader::complain(std::string_view key, const std::string& message) const {
    complain_at(file_, place_of(key), std::string(key) + " " + message);
}

void TableReader::checked(
    const toml::source_position& place, const std::string& value, const Check& check) const {
    try {
        if (check) {
            check(value);
        }
    } catch (const std::invalid_argument& mistake) {
        complain_at(file_, place, mistake.what());
    }
}

TableReader& TableReader::text(std::string_view key, std::string& value, const Check& check) {
    if (const toml::node* const node = take(key); node != nullptr) {
        if (!node->is_string()) {
            complain(key, "is " + shown(*node) + ", expected a text");
        }
        value = *node->value<std::string>();
        checked(place_of(key), value, check);
    }
    return *this;
}

TableReader& TableReader::texts(
    std::string_view key, std::vector<std::string>& values, const Check& check) {
    const toml::node* const node = take(key);
    if (node == nullptr) {
        return *this;
    }
    if (!node->is_array()) {
        complain(key, "is " + shown(*node) + ", expected an array of texts");
    }
    values.clear();
    for (const toml::node& element : *node->as_array()) {
        if (!element.is_string()) {
            complain_at(
                file_, element.source().begin,
                std::string(key) + " holds " + shown(element) + ", expected texts only");
        }
        values.push_back(*element.value<std::string>());
        checked(element.source().begin, values.back(), check);
    }
    return *this;
}

TableReader& TableReader::flag(std::string_view key, bool& value) {
    if (const toml::node* const node = take(key); node != nullptr) {
        if (!node->is_boolean()) {
            complain(key, "is " + shown(*node) + ", expected true or false");
        }
        value = *node->value<bool>();
    }
    return *this;
}

TableReader& TableReader::number(std::string_view key, std::uint64_t& value, std::uint64_t most) {
    if (const toml::node* const node = take(key); node != nullptr) {
        const auto number = node->is_integer() ? node->value<std::int64_t>() : std::nullopt;
        if (!number || *number < 0 || static_cast<std::uint64_t>(*number) > most) {
            complain(
                key,
                "is " + shown(*node) + ", expected a number from 0 to " + std::to_string(most));
        }
        value = static_cast<std::uint64_t>(*number);
    }
    return *this;
}

TableReader& TableReader::number(std::string_view key, unsigned& value, unsigned most) {
    std::uint64_t wide = value;
    number(key, wide, most);
    value = static_cast<unsigned>(wide);
    return *this;
}

TableReader& TableReader::numbers(
    std::string_view key, std::vector<unsigned>& values, unsigned most) {
    const toml::node* const node = take(key);
    if (node == nullptr) {
        return *this;
    }
    if (!node->is_array()) {
        complain(key, "is " + shown(*node) + ", expected an array of numbers");
    }
    values.clear();
    for (const toml::node& element : *node->as_array()) {
        const auto number = element.is_integer() ? element.value<std::int64_t>() : std::nullopt;
        if (!number || *number < 0 || *number > most) {
            complain_at(
                file_, element.source().begin,
                std::string(key) + " holds " + shown(element) + ", expected numbers from 0 to " +
                    std::to_string(most));
        }
        values.push_back(static_cast<unsigned>(*number));
    }
    return *this;
}

TableReader& TableReader::values(std::string_view key, std::map<std::string, std::string>& values) {
    const toml::node* const node = take(key);
    if (node == nullptr) {
        return *this;
    }
    if (!node->is_table()) {
        complain(key, "is " + shown(*node) + ", expected a table of names and values");
    }
    for (const auto& [name, value] : *node->as_table()) {
        try {
            check_file_name(key, std::string(name));  // each is a file of its own
        } catch (const std::invalid_argument& mistake) {
            complain_at(file_, name.source().begin, mistake.what());
        }
        if (value.is_string()) {
            values[std::string(name)] = *value.value<std::string>();
        } else if (value.is_integer()) {
            values[std::string(name)] = std::to_string(*value.value<std::int64_t>());
        } else {
            complain_at(
                file_, value.source().begin,
                std::string(name) + " is " + shown(value) + ", expected a number or a text");
        }
    }
    return *this;
}

TableReader& TableReader::error(std::string_view key, int& value) {
    std::string name;
    text(key, name, [&](const std::string& given) {
        const auto number = error_number(given);
        if (!number) {
            throw std::invalid_argument(
                std::string(key) + " is \"" + given + "\", expected an error name such as EBUSY");
        }
        value = *number;
    });
    return *this;
}

TableReader& TableReader::request(std::string_view key, std::uint32_t& value) {
    std::string name;
    text(key, name, [&](const std::string& given) {
        const auto number = request_number(given);
        if (!number) {
            throw std::invalid_argument(
                std::string(key) + " is \"" + given +
                "\", expected a request name such as ETHTOOL_GSET or SIOCSIFMTU");
        }
        value = *number;
    });
    return *this;
}

TableReader& TableReader::mode(std::string_view key, mode_t& value) {
    std::string digits;
    text(key, digits, [&](const std::string& given) {
        if (given.empty() || given.size() > 4 ||
            given.find_first_not_of("01234567") != given.npos) {
            throw std::invalid_argument(
                std::string(key) + " is \"" + given + "\", expected an octal text such as 0644");
        }
        value = static_cast<mode_t>(std::stoul(given, nullptr, 8));
    });
    return *this;
}

TableReader& TableReader::required(std::string_view key) {
    if (!has(key)) {
        complain_at(
            file_, table_.source().begin, what_ + " has no " + std::string(key) + ", expected one");
    }
    return *this;
}

TableReader& TableReader::allow(std::string_view key) {
    if (std::find(known_.begin(), known_.end(), key) == known_.end()) {
        known_.emplace_back(key);
    }
    return *this;
}

TableReader& TableReader::table(
    std::string_view key, const std::function<void(TableReader& table)>& body) {
    if (const toml::node* const node = take(key); node != nullptr) {
        const std::string name = "[" + std::string(key) + "]";
        if (!node->is_table()) {
            complain(key, "is " + shown(*node) + ", expected a table " + name);
        }
        TableReader reader(file_, *node->as_table(), name);
        body(reader);
    }
    return *this;
}

void TableReader::tables(
    std::string_view key, const std::function<void(TableReader& table)>& each) {
    const toml::node* const node = take(key);
    if (node == nullptr) {
        return;
    }
    const std::string name = "[[" + std::string(key) + "]]";
    const toml::array* const array = node->as_array();
    if (array == nullptr) {
        complain(key, "is " + shown(*node) + ", expected tables " + name);
    }
    for (const toml::node& element : *array) {
        if (!element.is_table()) {
            complain_at(
                file_, element.source().begin,
                std::string(key) + " holds " + shown(element) + ", expected tables " + name);
        }
        TableReader reader(file_, *element.as_table(), name);
        each(reader);
    }
}

void TableReader::finish() const {
    for (const auto& [key, node] : table_) {
        if (std::find(known_.begin(), known_.end(), key.str()) != known_.end()) {
            continue;
        }
        std::string expected;
        for (const std::string& known : known_) {
            expected += (expected.empty() ? "" : ", ") + known;
        }
        complain_at(
            file_, key.source().begin,
            what_ + " has the unknown key " + std::string(key.str()) + ", expected " + expected);
    }
}

void TableReader::build(const std::function<void()>& body) const {
    finish();
    try {
        body();
    } catch (const std::invalid_argument& mistake) {
        Mentioned wrong{.place = table_.source().begin};
        find_mentioned(table_, wrong.place, mistake.what(), wrong);
        complain_at(file_, wrong.place, mistake.what());
    }
}

}  // namespace kxsim
