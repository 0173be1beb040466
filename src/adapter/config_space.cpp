// PCI configuration space of an adapter: dwords, capabilities, and the VPD capability, which leads
// to the serial EEPROM.
#include <kxlinhw/adapter.h>

#include <cstdio>

#include "adapter/bus_table.hpp"
#include "support/pci_bus.hpp"
#include "support/standard_streams.hpp"

namespace {

constexpr uint32_t kCapabilityPointer = 0x34;
constexpr uint32_t kCapabilityOffsets = 0xFC;  // the low two bits of an offset are reserved
constexpr int kMostCapabilities = 48;          // the most that fit after the header

constexpr uint32_t kVpdAddresses = 0x1FFC;
constexpr uint32_t kVpdDone = 1U << 31;     // set by the adapter once the data register is valid
constexpr uint32_t kNoAnswer = 0xFFFFFFFF;  // as for an empty slot
constexpr uint32_t kVpdProbe = 0x00800000;

// Does the address register report that this request is complete?
bool answers(uint32_t dword, uint32_t request) {
    return ((dword ^ (request | kVpdDone)) & (kVpdAddresses << 16 | kVpdDone)) == 0;
}

// Whether the last written dword reached its adapter.
bool write_arrived = false;

// When the adapter is missing, the dword does not change.
uint32_t config_dword(uint8_t adapter, uint32_t offset, uint32_t absent) {
    uint32_t dword = absent;
    pci_config_read(adapter, offset, &dword);
    return dword;
}

uint32_t walk_capabilities(uint8_t adapter, uint8_t id) {
    uint32_t offset = config_dword(adapter, kCapabilityPointer, 0) & kCapabilityOffsets;
    for (int step = 0; offset != 0 && step < kMostCapabilities; ++step) {
        const uint32_t header = config_dword(adapter, offset, 0);
        if ((header & 0xFF) == id) {
            return offset;
        }
        offset = (header >> 8) & kCapabilityOffsets;
    }
    return 0;
}

}  // namespace

extern "C" {

void pci_config_read(uint8_t adapter, uint32_t offset, uint32_t* out) {
    pci_dev* const device = kx::adapter::device_at(adapter);
    if (device != nullptr && out != nullptr) {
        *out = kx::read_pci_config(device, offset);
    }
}

void pci_config_write(uint8_t adapter, uint32_t offset, uint32_t value) {
    pci_dev* const device = kx::adapter::device_at(adapter);
    if (device != nullptr) {
        write_arrived = kx::write_pci_config(device, offset, value);
    }
}

uint32_t find_pci_capability(uint8_t adapter, uint8_t id) {
    const uint32_t offset = walk_capabilities(adapter, id);
    if (offset == 0) {
        std::fprintf(stderr, "ERROR: Capability %02x not found.\n", id);
    }
    return offset;
}

void vpd_read_dword(uint8_t adapter, uint32_t cap, uint32_t address, uint32_t* out) {
    if (cap == 0) {
        return;  // without the capability there is never an answer
    }
    const kx::StandardStreamGuard streams;  // one, however long the adapter takes
    const uint32_t request = (address & kVpdAddresses) << 16;
    write_arrived = true;
    pci_config_write(adapter, cap, request);
    uint32_t answer = config_dword(adapter, cap, kVpdDone);
    if (!write_arrived &&
        !answers(answer, request)) {  // the request was never made, so there is nothing to wait for
        if (out != nullptr) {
            *out = kNoAnswer;
        }
        return;
    }
    while ((answer & kVpdDone) == 0) {
        answer = config_dword(adapter, cap, kVpdDone);
    }
    pci_config_read(adapter, cap + 4, out);
}

int32_t vpd_rw_check(uint8_t adapter, uint32_t cap) {
    pci_config_write(adapter, cap + 4, kVpdProbe);
    if (config_dword(adapter, cap + 4, 0) == kVpdProbe) {
        return 0;
    }
    std::fputs("ERROR: PCI configuration write/read check failed.\n", stderr);
    return 1;
}

int32_t vpd_setup(uint8_t adapter, uint32_t* cap) {
    if (cap == nullptr) {
        return KX_ADAPTER_INVALID;
    }
    *cap = find_pci_capability(adapter, KX_VPD_CAPABILITY);
    return *cap != 0 && vpd_rw_check(adapter, *cap) == 0 ? 0 : KX_ADAPTER_INVALID;
}

}  // extern "C"
