// Which adapter's port an interface was when its settings were saved: a file of kxctl beside the
// library's file of saved settings, which has only names. A name can belong to another port after
// adapters were moved or added.
//
// One line for each interface: its name, its MAC and the PCI location of its device ("-" for none).
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "settings/saved_settings.hpp"

namespace kx::ctl {

inline constexpr char kInterfaceRecordFile[] = "/etc/kestrix-plexo/kxctl-interfaces";

struct InterfaceRecord {
    std::string mac;
    std::string location;
};

struct InterfaceRecords {
    std::map<std::string, InterfaceRecord, std::less<>> by_name;
    std::vector<DamagedLine> damaged;
};

// What an interface is now: its permanent MAC when the driver tells it, otherwise the present one.
// Nothing when there is no MAC.
[[nodiscard]] std::optional<InterfaceRecord> identify(const std::string& interface_name);

// Read the file's text; later lines for one interface win.
[[nodiscard]] InterfaceRecords parse_interface_records(std::string_view text);

// The records of the host; none when the file is missing. Throws Failure when it cannot be read.
[[nodiscard]] InterfaceRecords read_interface_records();

// Record what an interface is now; the configuration lock must be held. Damaged lines are dropped.
// Throws Failure when the file cannot be replaced.
void record_interface(const std::string& interface_name);

}  // namespace kx::ctl
