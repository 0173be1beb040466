// The adapters on the PCI bus, from the library's lists and its adapter table.
#pragma once

#include <fmt/core.h>
#include <kxlinhw/adapter_lists.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kx::ctl {

// The PCI bus location of a record; users name an adapter by it.
template <class Record>
[[nodiscard]] std::string location_of(const Record& record) {
    return fmt::format("{:02x}:{:02x}.{:x}", record.bus, record.device, record.function);
}

// Copies of the library's lists, without their links. Each throws Failure with the library's
// status.
[[nodiscard]] std::vector<AdapterRecord> query_adapters();
[[nodiscard]] std::vector<AdapterInfoRecord> query_adapter_infos();

// One of them; throws Failure when it is missing.
[[nodiscard]] AdapterRecord query_adapter(const std::string& location);
[[nodiscard]] AdapterInfoRecord query_adapter_info(const std::string& location);

// Why an adapter of the list was not read, with its location in front.
[[nodiscard]] std::string unread_reason(const AdapterInfoRecord& adapter);

// Why the register window of an adapter of the list was not opened, with its location in front.
[[nodiscard]] std::string refused_reason(const AdapterInfoRecord& adapter);

// The adapters on the bus, by location; nothing else of them is read.
[[nodiscard]] std::vector<std::string> query_adapter_locations();

// Their number.
[[nodiscard]] std::size_t query_adapter_count();

// The vital product data in an adapter's EEPROM. Throws Failure when there is no such adapter or
// they cannot be read.
[[nodiscard]] std::vector<std::uint8_t> query_vpd(const std::string& location);

}  // namespace kx::ctl
