// The strings in the ".modinfo" section of a kernel module's file.
//
// The file is untrusted: every offset, count and size in it is checked against the mapping before
// use, and an inconsistent file has no section.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "support/byte_reader.hpp"

namespace kx::modules {

// The ".modinfo" section of a module file, or nothing. Both ELF classes and byte orders.
[[nodiscard]] std::optional<std::string_view> modinfo_section(std::span<const std::byte> file);

// Walks the key=value strings of a section. A string ends at its NUL or at the section's end, and
// any number of NUL bytes may follow it.
class ModinfoStrings {
public:
    explicit ModinfoStrings(std::string_view section)
        : reader_(std::as_bytes(std::span(section))) {}
    [[nodiscard]] std::optional<std::string_view> next();

private:
    ByteReader reader_;
};

}  // namespace kx::modules
