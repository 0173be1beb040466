// Files as one piece of bytes: images that go into a flash, copies of what is in it.
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

// Why a file could not be opened, read or written, by the errno of that.
[[nodiscard]] Failure file_failure(const std::string& path, int reason);

// Throws Failure when the name is taken (wrong usage: copies never replace a file), or when there
// is no directory for it. To be asked before something that takes long.
void must_be_free(const std::string& path);

// Make a file of these bytes, on disk when it returns: the file and its name are flushed. Throws
// Failure and leaves no file behind when that cannot be done.
void write_new_file(const std::string& path, std::span<const std::uint8_t> bytes);

}  // namespace kx::ctl
