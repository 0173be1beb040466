// Whole files as bytes: images for a flash, and copies of its content.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "failure/failure.hpp"

namespace kx::ctl {

// All bytes of a file of at most `most` bytes. Throws Failure; a larger file is wrong usage.
[[nodiscard]] std::vector<std::uint8_t> read_whole_file(const std::string& path, std::size_t most);

// The failure of opening, reading or writing a file, from its errno.
[[nodiscard]] Failure file_failure(const std::string& path, int reason);

// Throws Failure when the file exists (wrong usage: copies never replace a file) or its directory
// is missing. Call it before an operation that takes long.
void must_be_free(const std::string& path);

// Create a file with these bytes, and flush the file and its name to the disk. On failure throws
// Failure and leaves no file.
void write_new_file(const std::string& path, std::span<const std::uint8_t> bytes);

}  // namespace kx::ctl
