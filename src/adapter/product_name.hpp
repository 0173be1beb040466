// The name of a product: from its device id or from its VPD.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace kx::adapter {

// Cut the spaces at the end of a text that fills the first `length` characters of a field: a NUL is
// written after the last other character, or left out when that is outside the field. The first
// character always stays; the characters after the NUL do not change.
void trim_name(std::span<char> field, std::size_t length);

// Write the name of a Q3 product into its field: the name of its model, or else the identifier
// string of its VPD without trailing spaces.
void write_q3_name(std::span<char> field, uint32_t device_id, std::string_view identifier);

}  // namespace kx::adapter
