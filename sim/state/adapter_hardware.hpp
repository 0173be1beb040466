// The inside of a simulated adapter, as all processes of a session share it: a plain record in a
// mapped file. What the flash and the EEPROM hold are files beside it.
#pragma once

#include <cstdint>
#include <type_traits>

namespace kxsim::state {

enum class Family : std::uint8_t { kQ3, kQ4 };  // Q5 adapters are kQ4 here: their parts are alike

inline constexpr std::uint32_t kFlashPage = 256;

// What a chip forgets without power.
struct FlashLatches {
    std::uint8_t write_enabled;
    std::uint8_t endless;  // the write under way never ends
    std::uint8_t command;  // since it was selected
    std::uint8_t reserved;
    std::uint32_t received;  // bytes since it was selected
    std::uint32_t address;
    std::uint32_t busy_polls;       // status reads until the write under way ends
    std::uint8_t page[kFlashPage];  // the page program's bytes, 0xFF where there was none
};

struct SerialFlash {
    std::uint8_t manufacturer;
    std::uint8_t type;
    std::uint8_t capacity_code;
    std::uint8_t reserved;
    std::uint32_t sector_size;
    std::uint32_t program_polls;  // status reads that find a page program still under way
    std::uint32_t erase_polls;    // and a sector erase
    std::uint32_t programs;       // page programs and sector erases that were carried out
    std::uint32_t erases;
    FlashLatches latches;
};

struct ControllerLatches {
    std::uint32_t data;
    std::uint32_t operation;
    std::uint32_t result;     // becomes the data when the transfer ends
    std::uint32_t busy_left;  // reads until then
    std::uint8_t stuck;       // the transfer under way never ends
    std::uint8_t selected;    // the flash is kept selected
    std::uint8_t locked;      // reserved for this host
    std::uint8_t reserved;
};

struct FlashController {
    std::uint32_t busy_polls;  // reads of the operation register that find a transfer under way
    std::uint32_t transfers;   // that were started
    ControllerLatches latches;
};

// What goes wrong, each at one position counted from 1; 0 for never.
struct FlashFaults {
    std::uint32_t stuck_busy_at;     // transfer that never ends
    std::uint32_t endless_write_at;  // page program or sector erase that never ends
    std::uint32_t flipped_bit_at;    // page program whose first byte takes a wrong bit
    std::uint32_t power_cut_at;      // transfer that finds the power gone
};

// The VPD capability in configuration space, and what its registers hold.
struct VpdCapability {
    std::uint32_t offset;  // 0: the adapter has none
    std::uint32_t polls;   // reads of the flag that find the EEPROM still busy
    std::uint32_t polls_left;
    std::uint32_t data;
    std::uint16_t address;      // with the flag in its top bit
    std::uint8_t silent;        // no request is ever answered
    std::uint8_t loses_writes;  // the data register does not keep what is written
    std::uint8_t under_way;     // a request has not been answered yet
    std::uint8_t reserved[3];
};

struct AdapterHardware {
    Family family;
    std::uint8_t unpowered;
    std::uint8_t reserved[2];
    SerialFlash flash;
    FlashController controller;
    FlashFaults faults;
    VpdCapability vpd;
    std::uint64_t loads;  // register accesses through the window
    std::uint64_t stores;
    std::uint64_t dwords_read;  // of the EEPROM, through the VPD capability
};

static_assert(
    std::is_trivially_copyable_v<AdapterHardware>, "it lives in a file that processes share");

}  // namespace kxsim::state
