// The hardware state of a simulated adapter, which all processes of a session share: a plain record
// in a mapped file. The content of the flash and the EEPROM is in separate files.
#pragma once

#include <cstdint>
#include <type_traits>

namespace kxsim::state {

enum class Family : std::uint8_t { kQ3, kQ4 };  // Q5 adapters are kQ4 here: their parts are alike

inline constexpr std::uint32_t kFlashPage = 256;

// The state that a chip loses without power.
struct FlashLatches {
    std::uint8_t write_enabled;
    std::uint8_t endless;  // the current write never ends
    std::uint8_t command;  // since it was selected
    std::uint8_t reserved;
    std::uint32_t received;  // bytes since it was selected
    std::uint32_t address;
    std::uint32_t busy_polls;       // status reads until the current write ends
    std::uint8_t page[kFlashPage];  // the page program's bytes, 0xFF where there was none
};

struct SerialFlash {
    std::uint8_t manufacturer;
    std::uint8_t type;
    std::uint8_t capacity_code;
    std::uint8_t reserved;
    std::uint32_t sector_size;
    std::uint32_t program_polls;  // status reads that still find a page program in progress
    std::uint32_t erase_polls;    // and a sector erase
    std::uint32_t programs;       // page programs and sector erases that were carried out
    std::uint32_t erases;
    std::uint32_t reads;  // read commands that returned at least one byte
    FlashLatches latches;
};

struct ControllerLatches {
    std::uint32_t data;
    std::uint32_t operation;
    std::uint32_t result;     // becomes the data when the transfer ends
    std::uint32_t busy_left;  // reads until then
    std::uint8_t stuck;       // the current transfer never ends
    std::uint8_t selected;    // the flash is kept selected
    std::uint8_t locked;      // reserved for this host
    std::uint8_t reserved;
};

struct FlashController {
    std::uint32_t
        busy_polls;  // reads of the operation register that still find a transfer in progress
    std::uint32_t transfers;    // that were started
    std::uint32_t last_change;  // the transfer that carried out the last program or erase
    ControllerLatches latches;
};

// Faults, each at one position, counted from 1; 0: never.
struct FlashFaults {
    std::uint32_t stuck_busy_at;     // transfer that never ends
    std::uint32_t endless_write_at;  // page program or sector erase that never ends
    std::uint32_t flipped_bit_at;    // page program whose first byte takes a wrong bit
    std::uint32_t power_cut_at;      // transfer at which the power fails
    std::uint32_t misread_at;        // read command whose first byte arrives with a wrong bit
    std::uint32_t stuck_sector;      // sector that no erase changes
};

// The VPD capability in configuration space, and the values of its registers.
struct VpdCapability {
    std::uint32_t offset;  // 0: the adapter has none
    std::uint32_t polls;   // reads of the flag that still find the EEPROM busy
    std::uint32_t polls_left;
    std::uint32_t data;
    std::uint16_t address;      // with the flag in its top bit
    std::uint8_t silent;        // no request is ever answered
    std::uint8_t loses_writes;  // the data register loses what is written
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
