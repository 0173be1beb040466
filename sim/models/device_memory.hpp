// Physical addresses of adapters' registers, as /dev/mem maps them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "process/attached.hpp"

namespace kxsim::models {

[[nodiscard]] bool is_device_memory(std::string_view path);

// Like mmap of /dev/mem at an offset: the start of pages that represent those physical addresses.
void* map_device_memory(std::size_t size, int protection, off_t offset);

// One 32-bit access at an address of this process in such pages; nothing or false for any other
// address.
[[nodiscard]] std::optional<std::uint32_t> load_device_memory(
    process::Host& host, std::uint64_t address);
[[nodiscard]] bool store_device_memory(
    process::Host& host, std::uint64_t address, std::uint32_t value);

}  // namespace kxsim::models
