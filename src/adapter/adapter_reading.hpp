// What both lists of adapters read from an adapter into a record.
#pragma once

#include <kxlinhw/adapter_lists.h>

#include <cstdint>
#include <span>
#include <string_view>

#include "adapter/bus_table.hpp"

extern "C" {
#include <pci/pci.h>
}

namespace kx::adapter {

[[nodiscard]] KxChipClass chip_class_of(uint16_t device_id);

// Store the adapter's index, its PCI location and its ids in a record.
template <class Record>
void describe(Record& record, uint8_t adapter, const pci_dev& device) {
    record.adapter = adapter;
    record.domain = static_cast<uint16_t>(device.domain);
    record.bus = device.bus;
    record.device = device.dev;
    record.function = device.func;
    record.vendor_id = device.vendor_id;
    record.device_id = device.device_id;
    record.chip_class = static_cast<uint8_t>(chip_class_of(device.device_id));
}

// Copy the text of a VPD value into a field, cut at the field's end; the rest of the field does not
// change.
void put_value(std::span<char> field, std::string_view value);

// Six bytes of 12 hexadecimal digits. Any other character counts as 0xFF, as the high or the low
// digit.
void decode_mac(std::span<uint8_t, 6> mac, std::string_view digits);

// Q5: read the EEPROM, and store the values of its VPD in the fields of a zeroed record.
void read_q5_values(uint8_t adapter, uint32_t cap, AdapterInfoRecord& record);

// Q3, window open: settings and option ROM record, when the flash holds an option ROM.
void read_q3_boot(
    uint8_t adapter, std::span<uint8_t, KX_Q3_SETTINGS_SIZE> settings,
    std::span<uint8_t, KX_Q3_OPTION_ROM_SIZE> option_rom);

// Q4 and Q5, window open: the configuration record, zero when it cannot be read.
void read_boot_config(uint8_t adapter, Q4BootConfig& config);

// Q4 and Q5, window open: 1 when the flash holds an option ROM.
[[nodiscard]] uint8_t option_rom_valid(uint8_t adapter);

}  // namespace kx::adapter
