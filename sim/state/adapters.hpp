// The adapters of a session: the location and the hardware state of each.
#pragma once

#include <cstdint>

#include "state/adapter_hardware.hpp"

namespace kxsim::state {

inline constexpr std::uint32_t kMostAdapters = 256;
inline constexpr std::size_t kLocationSize = 16;  // "0000:03:00.4" with its NUL

// Below the session's directory. What an adapter's flash and EEPROM hold are files of their own,
// whose names end in its location.
inline constexpr char kAdaptersFile[] = "/state/adapters";
inline constexpr char kFlashFile[] = "/state/flash-";
inline constexpr char kEepromFile[] = "/state/eeprom-";

struct Adapter {
    char location[kLocationSize];
    std::uint64_t window;  // the address of its first memory BAR
    std::uint64_t window_size;
    std::uint32_t flash_size;  // of the files
    std::uint32_t eeprom_size;
    AdapterHardware hardware;
};

struct Adapters {
    std::uint32_t count;
    std::uint32_t reserved;
    Adapter adapters[kMostAdapters];
};

}  // namespace kxsim::state
