// Settings of the library's records as users name them: "mtu=9000". Each command that sets
// something has a table of settings, which is used for its help, its parser and its report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <kxlinhw/records.h>

#include "cli/command.hpp"
#include "output/json.hpp"

namespace kx::ctl {

// How a record stores a value: as decimal text, as an integer, or not at all: an action has only
// the bit of the change mask.
enum class Form : std::uint8_t { kText, kUnsigned, kSigned, kAction };

// Words for 0 and 1.
struct Words {
    const char* zero;
    const char* one;
};

inline constexpr Words kNoWords{nullptr, nullptr};
inline constexpr Words kOnOff{"off", "on"};
inline constexpr Words kHalfFull{"half", "full"};
inline constexpr Words kDo{nullptr, "on"};

// The smallest and the largest value; all values unless limited.
struct ValueRange {
    std::int64_t least = INT64_MIN;
    std::int64_t most = INT64_MAX;

    [[nodiscard]] bool contains(std::int64_t value) const {
        return least <= value && value <= most;
    }
    [[nodiscard]] bool is_limited() const { return least != INT64_MIN || most != INT64_MAX; }
};

// One of the library's setters for a port. Returns 0, or why it refused.
using PortSetter = int(const char* interface_name, PortSettings* settings, std::uint32_t mask);

inline constexpr std::size_t kNoLimit = SIZE_MAX;

// A row of a table: everything that kxctl knows about one setting.
struct Setting {
    const char* key;           // its only name, on the command line and in JSON
    const char* help;          // its meaning; values and unit have their own columns
    std::uint64_t change_bit;  // of the record's change mask
    std::size_t offset = 0;    // of the field in the record
    std::size_t width = 0;     // of the field in bytes
    Form form = Form::kUnsigned;
    Words words = kNoWords;
    bool readable = true;  // false when no query of the library reads the value

    ValueRange range = {};                       // what can be set
    std::span<const std::int64_t> choices = {};  // the only values that can be set
    const char* unit = "";
    const char* condition = "";  // when it can be set, such as "with autoneg off"

    // How a table for people shows it.
    const char* title = "";
    ValueRange known = {};    // other readings mean that the driver does not know
    bool is_bit_set = false;  // shown in hexadecimal

    // Of a port's setting.
    std::size_t limit = kNoLimit;  // offset of the driver's limit in the PortInfo, 32 bits wide
    std::uint32_t reads = 0;       // the driver's command (ETHTOOL_G...) that reads it; 0 for none
    PortSetter* setter = nullptr;  // sets it, and what has the same change bit
    const char* saved_as = "";     // its key in the file of saved settings; empty when not saved

    // Whether a value fits the field; the library decides whether the adapter accepts it.
    [[nodiscard]] bool holds(std::int64_t value) const;
    // Whether a record has a known value.
    [[nodiscard]] bool is_shown() const { return readable && form != Form::kAction; }
    [[nodiscard]] std::optional<std::int64_t> value_in(const void* record) const;
    // The same; nothing when the driver does not know the value.
    [[nodiscard]] std::optional<std::int64_t> known_value_in(const void* record) const;
    // Requests a value that fits the field.
    void put_into(void* record, std::int64_t value) const;

    // Its meaning, values, unit and condition: "largest packet, 22 to 10222 bytes". With values as
    // numbers: "duplex of the link, 0 half, 1 full, with autoneg off".
    [[nodiscard]] std::string description() const { return described(words_text()); }
    [[nodiscard]] std::string description_of_numbers() const { return described(numbers_text()); }

    // The driver's limit, for a setting that has one. port: the port's record.
    [[nodiscard]] std::optional<std::int64_t> limit_in(const PortInfo& port) const;

    // The words for its values, such as "off" and "on".
    [[nodiscard]] std::vector<std::string> value_words() const;
    // A value for JSON: true or false for on or off, another word, or the number; null for none.
    [[nodiscard]] Json json_of(std::optional<std::int64_t> value) const;
    // A value as text: its word, or the number.
    [[nodiscard]] std::string text_of(std::int64_t value) const;
    // A value as users write it: a word, a decimal or 0x hexadecimal number.
    [[nodiscard]] std::optional<std::int64_t> parse(const std::string& text) const;

private:
    [[nodiscard]] std::string words_text() const;
    [[nodiscard]] std::string numbers_text() const;
    [[nodiscard]] std::string range_text() const;
    [[nodiscard]] std::string described(const std::string& values) const;
};

// One "key=value" of the user.
struct Change {
    const Setting* setting;
    std::int64_t value;
};

// The changes that words of the command line request. Throws Failure for a word that is not an
// assignment, an unknown key, a repeated key, and a value that does not fit its field.
[[nodiscard]] std::vector<Change> parse_changes(
    std::span<const Setting> settings, std::span<const std::string> words);

// Store all values in a record. Returns the bits for its change mask.
std::uint64_t apply_changes(std::span<const Change> changes, void* record);

// The table as a list for the command's help.
[[nodiscard]] std::vector<Term> terms_of(std::span<const Setting> settings);

}  // namespace kx::ctl
