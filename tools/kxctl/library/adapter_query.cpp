#include "library/adapter_query.hpp"

#include <fcntl.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/status.h>
#include <kxlinhw/vpd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern "C" {
#include <pci/pci.h>
}

#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "files/descriptor.hpp"
#include "library/call.hpp"

namespace kx::ctl {
namespace {

// Frees the library's data about adapters: the bus scan and the lists. When that fails, they stay
// until the process ends, which is soon.
struct AdapterState {
    AdapterState() = default;
    ~AdapterState() {
        try {
            call_library([] { return cleanup_and_exit(0); });
        } catch (const Failure&) {
        }
    }
    AdapterState(const AdapterState&) = delete;
    AdapterState& operator=(const AdapterState&) = delete;
};

// A register window needs /dev/mem; a refusal of that file is the usual reason for a failure.
[[noreturn]] void fail_to_connect() {
    const std::string text = "The register window of an adapter cannot be opened";
    if (!Descriptor(open("/dev/mem", O_RDWR | O_CLOEXEC))) {
        const int reason = errno;
        if (is_refusal_of_memory(reason)) {
            throw refused_memory(text, reason);
        }
        throw Failure(
            ExitCode::kFailed, fmt::format("{}: /dev/mem: {}", text, std::strerror(reason)));
    }
    throw Failure(ExitCode::kFailed, text);
}

void check_list(std::uint32_t status) {
    if (status == static_cast<std::uint32_t>(KX_ADAPTER_INVALID)) {
        fail_to_connect();
    }
    if (status == KX_LIST_NO_MEMORY) {  // other functions use this status differently
        throw Failure(ExitCode::kFailed, "No memory for the list of adapters");
    }
    check(status);
}

template <class Record>
std::vector<Record> copy_list(std::uint32_t (*build)(Record**)) {
    const AdapterState state;
    Record* first = nullptr;
    check_list(call_library([&] { return build(&first); }));
    std::vector<Record> records;
    for (const Record* record = first; record != nullptr; record = record->next) {
        records.push_back(*record);
        records.back().next = nullptr;
    }
    return records;
}

template <class Record>
Record find_record(const std::vector<Record>& records, const std::string& location) {
    for (const Record& record : records) {
        if (location_of(record) == location) {
            return record;
        }
    }
    throw Failure::of_status(KX_NO_SUCH_DEVICE);
}

// The index of an adapter in the library's table.
std::uint8_t find_adapter(const std::string& location) {
    const std::uint8_t count = call_library(scan_hbas);
    if (count == 0) {
        throw Failure::of_status(KX_NO_ADAPTERS);
    }
    for (std::uint8_t adapter = 0; adapter < count; ++adapter) {
        const pci_dev& device = *kestrix_hbas[adapter];
        if (fmt::format("{:02x}:{:02x}.{:x}", device.bus, device.dev, device.func) == location) {
            return adapter;
        }
    }
    throw Failure::of_status(KX_NO_SUCH_DEVICE);
}

std::uint32_t find_capability(std::uint8_t adapter) {
    std::uint32_t capability = 0;
    const std::int32_t status = call_library([&] { return vpd_setup(adapter, &capability); });
    if (capability == 0) {
        // A process without the privilege sees only the first 64 bytes, which contain no
        // capability.
        if (const auto known = obstacle(Privilege::kConfigSpace, read_circumstances())) {
            throw Failure(
                ExitCode::kNoPermission,
                "The PCI configuration space of the adapter is not readable: " + *known);
        }
        throw Failure(
            ExitCode::kNotSupported, "The adapter has no PCI capability for vital product data");
    }
    if (status != 0) {
        throw Failure(
            ExitCode::kFailed,
            "The data register of the adapter's vital product data forgets what is written");
    }
    return capability;
}

}  // namespace

std::vector<AdapterRecord> query_adapters() { return copy_list(get_adapter_list); }

std::vector<AdapterInfoRecord> query_adapter_infos() { return copy_list(get_adapterinfo_list); }

AdapterRecord query_adapter(const std::string& location) {
    return find_record(query_adapters(), location);
}

AdapterInfoRecord query_adapter_info(const std::string& location) {
    return find_record(query_adapter_infos(), location);
}

std::vector<std::uint8_t> query_vpd(const std::string& location) {
    const AdapterState state;
    const std::uint8_t adapter = find_adapter(location);
    const std::uint32_t capability = find_capability(adapter);
    constexpr std::int32_t kQ3 = 3;
    const bool is_q3 = call_library([&] { return get_chip_revision(adapter); }) == kQ3;
    std::vector<std::uint8_t> eeprom(is_q3 ? KX_Q3_EEPROM_SIZE : KX_Q4_EEPROM_SIZE);
    std::vector<std::uint8_t> vpd(KX_VPD_READ_SIZE);
    const LibraryCall call;
    (is_q3 ? eeprom_rd_all_Q3 : eeprom_rd_all_Q4)(adapter, capability, eeprom.data());
    (is_q3 ? eeprom2vpd_Q3 : eeprom2vpd_Q4)(eeprom.data(), vpd.data());
    return vpd;
}

}  // namespace kx::ctl
