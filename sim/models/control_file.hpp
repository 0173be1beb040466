// The kernel's control files: what is written replaces what is there, wherever the writer stands in
// the file, and reads back as a line.
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "preload/attached.hpp"

namespace kxsim::models {

[[nodiscard]] bool is_control_file(const preload::Host& host, int descriptor);

// As write.
ssize_t write_control_file(int descriptor, const void* data, std::size_t size);

}  // namespace kxsim::models
