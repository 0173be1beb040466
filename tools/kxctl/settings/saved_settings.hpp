// The file in which the library records port settings: lines "INTERFACE.KEY = VALUE".
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kx::ctl {

struct SavedValue {
    std::int64_t value;
    std::size_t line;  // its number, from 1
};

// The saved settings of one interface, by key.
struct SavedInterface {
    std::string name;
    std::map<std::string, SavedValue, std::less<>> values;
};

struct DamagedLine {
    std::size_t line;  // its number, from 1
    std::string reason;
};

struct SavedSettings {
    std::vector<SavedInterface> interfaces;  // in the order in which they first appear
    std::vector<DamagedLine> damaged;
};

// Read the file's text. Empty lines and comments ("#", ";") are ignored; of several lines for one
// setting the last one counts; a damaged line affects no other line. The name of an interface may
// contain dots; a key has none.
[[nodiscard]] SavedSettings parse_saved_settings(std::string_view text);

}  // namespace kx::ctl
