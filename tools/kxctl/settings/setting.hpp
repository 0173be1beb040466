// Settings of the library's records as users name them: "mtu=9000". Each command that sets
// something has a table of them, from which its help, its parser and its report are made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/command.hpp"

namespace kx::ctl {

// How a record holds a value: as decimal text, as an integer, or not at all: an action, for which
// there is only the bit of the change mask.
enum class Form : std::uint8_t { kText, kUnsigned, kSigned, kAction };

// Words that may stand for 0 and 1.
struct Words {
    const char* zero;
    const char* one;
};

inline constexpr Words kNoWords{nullptr, nullptr};
inline constexpr Words kOnOff{"off", "on"};
inline constexpr Words kHalfFull{"half", "full"};
inline constexpr Words kDo{nullptr, "on"};

struct Setting {
    const char* key;           // on the command line
    const char* help;          // meaning, unit and range
    std::uint64_t change_bit;  // of the record's change mask
    std::size_t offset;        // of the field in the record
    std::size_t width;         // of the field in bytes
    Form form;
    Words words = kNoWords;
    bool readable = true;  // false when no query of the library reads the value

    // Whether the field can hold a value; whether the adapter takes it is for the library to say.
    [[nodiscard]] bool holds(std::int64_t value) const;
    [[nodiscard]] std::optional<std::int64_t> value_in(const void* record) const;
    // Asks for a value that the field holds.
    void put_into(void* record, std::int64_t value) const;

    // A value for people: its word, or the number.
    [[nodiscard]] std::string text_of(std::int64_t value) const;
    // A value as users write it: a word, a decimal or 0x hexadecimal number.
    [[nodiscard]] std::optional<std::int64_t> parse(const std::string& text) const;
};

// One "key=value" of the user's.
struct Change {
    const Setting* setting;
    std::int64_t value;
};

// The changes that words of the command line ask for. Throws Failure for a word that is no
// assignment, an unknown key, a key that comes twice, and a value that its field cannot hold.
[[nodiscard]] std::vector<Change> parse_changes(
    std::span<const Setting> settings, std::span<const std::string> words);

// Put all values into a record. The bits for its change mask.
std::uint64_t apply_changes(std::span<const Change> changes, void* record);

// The table as a list for the command's help.
[[nodiscard]] std::vector<Term> terms_of(std::span<const Setting> settings);

}  // namespace kx::ctl
