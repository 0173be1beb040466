// The fields of an adapter in the output of commands. Texts of the library's records may fill their
// field without a NUL, and consist of erased bytes on an adapter that was never written.
#pragma once

#include <kxlinhw/adapter_lists.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "library/record_text.hpp"
#include "library/vpd_decode.hpp"
#include "output/json.hpp"

namespace kx::ctl {

// A text of the adapter's vital product data; empty when there is none.
template <std::size_t N>
[[nodiscard]] std::string product_text(const char (&field)[N]) {
    return vpd_text(field_text(field));
}

// "Q3", "Q4" or "Q5".
[[nodiscard]] std::string chip_text(const AdapterInfoRecord& adapter);

// Whether the library read the adapter; it reads only adapters with vital product data.
[[nodiscard]] bool was_read(const AdapterInfoRecord& adapter);

// Colon-separated; unchanged when it does not have twelve digits.
[[nodiscard]] std::string mac_text(const AdapterInfoRecord& adapter);

// Whether the flash contains a boot option ROM, and its version; empty when the version is unknown.
[[nodiscard]] bool has_option_rom(const AdapterInfoRecord& adapter);
[[nodiscard]] std::string bios_version(const AdapterInfoRecord& adapter);

// The number of ports of the product, otherwise the number of interfaces; nothing when both are
// unknown.
[[nodiscard]] std::optional<std::size_t> port_count(
    const AdapterInfoRecord& adapter, std::size_t interfaces);

// The boot configuration record of a Q4 or Q5 adapter; null when it has none.
[[nodiscard]] const Q4BootConfig* boot_config(const AdapterInfoRecord& adapter);

// Whether a Q3 adapter has its settings block.
[[nodiscard]] bool has_settings(const AdapterInfoRecord& adapter);

// A field of the boot configuration record: one number, or one for each of several ports.
struct BootField {
    const char* name;
    std::size_t offset;
    std::size_t width;
    std::size_t count;
};

// Every field with numbers, in the order of the record.
[[nodiscard]] std::span<const BootField> boot_fields();

// The numbers of a field.
[[nodiscard]] std::vector<std::uint32_t> boot_values(
    const Q4BootConfig& config, const BootField& field);

// The iSCSI initiator name; empty when there is none.
[[nodiscard]] std::string initiator_name(const Q4BootConfig& config);

}  // namespace kx::ctl
