// The version of the library.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kx::ctl {

// The record that GetLibVersion writes.
struct LibraryVersion {
    char name[11];
    std::array<char, 9> untouched;
    std::uint32_t word;  // major in the high half, minor in the low half

    [[nodiscard]] std::string text() const;  // "6.2"
};
static_assert(sizeof(LibraryVersion) == 24 && offsetof(LibraryVersion, word) == 20);

// Throws Failure.
[[nodiscard]] LibraryVersion query_version();

}  // namespace kx::ctl
