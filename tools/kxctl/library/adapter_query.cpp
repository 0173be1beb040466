#include "library/adapter_query.hpp"

#include <fcntl.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/status.h>
#include <kxlinhw/vpd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

extern "C" {
#include <pci/pci.h>
}

#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "failure/unread.hpp"
#include "files/descriptor.hpp"
#include "library/call.hpp"
#include "library/register_windows.hpp"

namespace kx::ctl {
namespace {

constexpr char kNotRead[] = "The vital product data could not be read";
constexpr char kNoWindow[] = "The register window of an adapter cannot be opened";

std::string full_location_of(const pci_dev& device) {
    return fmt::format(
        "{:04x}:{:02x}:{:02x}.{:x}", static_cast<unsigned>(device.domain), device.bus, device.dev,
        device.func);
}

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

// The errno with which the first page of an adapter's registers cannot be mapped; 0 when it can.
int mapping_error(const Descriptor& memory, const pci_dev& device) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const auto start = static_cast<off_t>(device.base_addr[0] & PCI_ADDR_MEM_MASK & ~(page - 1));
    void* const window = mmap(nullptr, page, PROT_READ, MAP_SHARED, memory.get(), start);
    if (window == MAP_FAILED) {
        return errno;
    }
    munmap(window, page);
    return 0;
}

// The library does not say why it could not open a register window: ask /dev/mem, first as a whole
// and then for the registers of each adapter.
[[noreturn]] void fail_to_connect() {
    const Descriptor memory(open("/dev/mem", O_RDWR | O_CLOEXEC));
    if (!memory) {
        throw failed_memory(kNoWindow, errno);
    }
    const std::uint8_t count = call_library(scan_hbas);
    for (std::uint8_t adapter = 0; adapter < count; ++adapter) {
        const pci_dev& device = *kestrix_hbas[adapter];
        if (const int reason = mapping_error(memory, device); reason != 0) {
            throw failed_registers(kNoWindow, full_location_of(device), reason);
        }
    }
    throw Failure(ExitCode::kFailed, kNoWindow);
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

// A request that failed leaves bytes of another one, or none, in the product data.
template <class Record>
bool product_data_unread(const Record& record) {
    return is_unread(
        fmt::format("{:04x}:{}/config", static_cast<unsigned>(record.domain), location_of(record)));
}

void forget_product_data(AdapterInfoRecord& record) {
    char* const bytes = reinterpret_cast<char*>(&record);
    std::fill(
        bytes + offsetof(AdapterInfoRecord, product_name),
        bytes + offsetof(AdapterInfoRecord, boot), '\0');
}
void forget_product_data(AdapterRecord& record) {
    std::ranges::fill(record.q3_vpd, std::uint8_t{0});
}

template <class Record>
std::vector<Record> copy_list(std::uint32_t (*build)(Record**)) {
    const AdapterState state;
    Record* first = nullptr;
    forget_refused_windows();
    check_list(call_library([&] { return build(&first); }));
    std::vector<Record> records;
    for (const Record* record = first; record != nullptr; record = record->next) {
        records.push_back(*record);
        records.back().next = nullptr;
        if (product_data_unread(*record)) {
            forget_product_data(records.back());
        }
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

std::string location_in_table(std::uint8_t adapter) {
    const pci_dev& device = *kestrix_hbas[adapter];
    return fmt::format("{:02x}:{:02x}.{:x}", device.bus, device.dev, device.func);
}

// The index of an adapter in the library's table.
std::uint8_t find_adapter(const std::string& location) {
    const std::uint8_t count = call_library(scan_hbas);
    if (count == 0) {
        throw Failure::of_status(KX_NO_ADAPTERS);
    }
    for (std::uint8_t adapter = 0; adapter < count; ++adapter) {
        if (location_in_table(adapter) == location) {
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
        if (const auto known =
                missing_privilege(Privilege::kConfigSpace, read_security_context())) {
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

std::string unread_reason(const AdapterInfoRecord& adapter) {
    const AdapterState state;
    const std::string location = location_of(adapter);
    try {
        static_cast<void>(find_capability(find_adapter(location)));
    } catch (const Failure& failure) {
        return fmt::format("{}: {}", location, failure.what());
    }
    return fmt::format("{}: {}", location, kNotRead);
}

std::string refused_reason(const AdapterInfoRecord& adapter) {
    const AdapterState state;
    const std::string location = location_of(adapter);
    const Descriptor memory(open("/dev/mem", O_RDWR | O_CLOEXEC));
    if (!memory) {
        return failed_memory(location, errno).what();
    }
    const pci_dev& device = *kestrix_hbas[find_adapter(location)];
    const int reason = mapping_error(memory, device);
    return reason == 0 ? fmt::format("{}: {}", location, kNoWindow)
                       : failed_registers(location, full_location_of(device), reason).what();
}

std::vector<std::string> query_adapter_locations() {
    const AdapterState state;
    const std::uint8_t count = call_library(scan_hbas);
    std::vector<std::string> locations;
    for (std::uint8_t adapter = 0; adapter < count; ++adapter) {
        locations.push_back(location_in_table(adapter));
    }
    return locations;
}

std::size_t query_adapter_count() {
    const AdapterState state;
    return call_library(scan_hbas);
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
    if (is_unread(full_location_of(*kestrix_hbas[adapter]) + "/config")) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format("{}: {}: {}", location, kNotRead, unread_reasons().back()));
    }
    return vpd;
}

}  // namespace kx::ctl
