// The adapters of the last scan of the PCI bus, by their index.
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

extern "C" {
#include <pci/pci.h>
}

#include "adapter/bus_table.hpp"
#include "support/handle.hpp"
#include "support/pci_bus.hpp"

namespace kx::adapter {
namespace {

constexpr uint16_t kQ3Ids = 1000;  // Q3 ids are between 0 and this
constexpr uint16_t kVirtualFunctionBit = 0x0800;
constexpr uint16_t kUnmanagedId = 0xA007;
constexpr uint8_t kQ3Function = 0;
constexpr uint8_t kManagedFunction = 4;  // of Q4 and Q5; its siblings serve storage

constexpr uint32_t kMostVirtualFunctions = 64;
constexpr uint8_t kEmptyBus = 1;
constexpr uint8_t kOutOfMemory = 99;

bool is_q3(uint16_t device_id) { return device_id != 0 && device_id < kQ3Ids; }

bool is_managed(const pci_dev& device) {
    if (is_q3(device.device_id)) {
        return device.func == kQ3Function;
    }
    return (device.device_id & kVirtualFunctionBit) == 0 && device.device_id != kUnmanagedId &&
           device.func == kManagedFunction;
}

bool is_virtual(const pci_dev& device) { return !is_q3(device.device_id) && device.dev != 0; }

// Begin a new scan. Returns the first device; or null, after printing that there is none.
pci_dev* rescan() {
    release_bus();
    pci_access_p = open_pci_bus();
    pci_dev* const first = pci_access_p == nullptr ? nullptr : pci_access_p->devices;
    if (first == nullptr) {
        std::puts("NO PCI devices");
    }
    return first;
}

// Walks the devices of the maker; the ids of each are read.
class MakersDevices {
public:
    explicit MakersDevices(pci_dev* first) : next_(first) {}

    pci_dev* next() {
        while (next_ != nullptr) {
            pci_dev* const device = std::exchange(next_, next_->next);
            fill_pci_device(device, PCI_FILL_IDENT);
            if (device->vendor_id == KESTRIX_PCI_VENDOR_ID) {
                return device;
            }
        }
        return nullptr;
    }

private:
    StandardStreamGuard streams_;  // one for all of them
    pci_dev* next_;
};

// The records of the virtual-function scan. Their numbers begin with the count of adapters of the
// previous scan; agents skip that many records, which are never written.
class VirtualFunctions {
public:
    explicit VirtualFunctions(uint8_t count) : count_(count) {}

    [[nodiscard]] bool full() const { return count_ >= kMostVirtualFunctions; }

    [[nodiscard]] bool add(const pci_dev& device) {
        void* const grown =
            std::realloc(records_.get(), (std::size_t{count_} + 1) * KX_VF_RECORD_SIZE);
        if (grown == nullptr) {
            return false;
        }
        static_cast<void>(records_.release());  // realloc has freed the old block
        records_.reset(static_cast<uint8_t*>(grown));
        uint8_t* const record = records_.get() + std::size_t{count_} * KX_VF_RECORD_SIZE;
        record[0] = device.bus;
        record[1] = device.dev;
        record[2] = device.func;
        ++count_;
        return true;
    }

    [[nodiscard]] uint32_t count() const { return count_; }
    [[nodiscard]] uint8_t* release() { return records_.release(); }

private:
    Block<uint8_t> records_;
    uint32_t count_;
};

}  // namespace

pci_dev* device_at(uint8_t adapter) {
    return adapter < std::size(kestrix_hbas) ? kestrix_hbas[adapter] : nullptr;
}

void release_bus() {
    free_pci_bus(std::exchange(pci_access_p, nullptr));
    std::fill(std::begin(kestrix_hbas), std::end(kestrix_hbas), nullptr);
}

}  // namespace kx::adapter

using kx::adapter::MakersDevices;

extern "C" {

pci_access* pci_access_p = nullptr;
pci_dev* kestrix_hbas[KX_MOST_ADAPTERS] = {};
uint8_t g_adapter_count = 0;

uint8_t scan_hbas(void) {
    MakersDevices devices(kx::adapter::rescan());
    uint8_t count = 0;
    for (pci_dev* device = devices.next(); device != nullptr; device = devices.next()) {
        if (!kx::adapter::is_managed(*device)) {
            continue;
        }
        if (count == KX_MOST_ADAPTERS) {
            break;
        }
        kx::fill_pci_device(device, PCI_FILL_BASES);
        kestrix_hbas[count++] = device;
    }
    return count;
}

uint8_t scan_vfhbas(uint32_t* count, uint8_t** records) {
    if (count == nullptr || records == nullptr) {
        return kx::adapter::kEmptyBus;
    }
    kx::adapter::VirtualFunctions functions(g_adapter_count);
    g_adapter_count = 0;
    g_KestrixAdapters = nullptr;  // not freed: the agent may still use the lists
    g_KestrixAdapterInfo = nullptr;
    pci_dev* const first = kx::adapter::rescan();
    if (first == nullptr) {
        return kx::adapter::kEmptyBus;
    }
    bool found = false;
    MakersDevices devices(first);
    for (pci_dev* device = devices.next(); device != nullptr; device = devices.next()) {
        if (!kx::adapter::is_virtual(*device)) {
            continue;
        }
        found = true;
        if (functions.full()) {
            break;
        }
        if (!functions.add(*device)) {
            return kx::adapter::kOutOfMemory;
        }
    }
    *count = found ? functions.count() : 0;
    *records = found ? functions.release() : nullptr;
    return 0;
}

int32_t get_chip_revision(uint8_t adapter) {
    const pci_dev* const device = kx::adapter::device_at(adapter);
    if (device == nullptr) {
        return KX_ADAPTER_INVALID;
    }
    return std::max(device->device_id >> 12, 3);
}

}  // extern "C"
