// What a product is called: by its device id, or by its VPD.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace kx::adapter {

// Cut the spaces at the end of a text that fills the first `length` characters of a field: a NUL
// goes behind the last other character, which may be behind the field's end (then it is left out).
// The first character always stays; what follows the NUL keeps its spaces.
void trim_name(std::span<char> field, std::size_t length);

// Write the name of a Q3 product into its field: that of its model, else the identifier string of
// its VPD without the spaces at its end.
void write_q3_name(std::span<char> field, uint32_t device_id, std::string_view identifier);

}  // namespace kx::adapter
