// A scan of the PCI bus through libpci. On an error, libpci ends the process by default. Here the
// bus is empty after an error, and a device that fails is absent.
#pragma once

#include <cstdint>
#include <string>

#include "support/standard_streams.hpp"

struct pci_access;
struct pci_dev;

namespace kx {

// Allocate a libpci handle and scan the bus with it. Null when libpci returns no handle; a handle
// without devices when the bus cannot be read. Free it with free_pci_bus.
[[nodiscard]] pci_access* open_pci_bus();
void free_pci_bus(pci_access* access);

// Owns one scan; its devices are valid as long as it exists.
class PciBus {
public:
    PciBus() : access_(open_pci_bus()) {}
    ~PciBus() { free_pci_bus(access_); }
    PciBus(const PciBus&) = delete;
    PciBus& operator=(const PciBus&) = delete;

    // First device in libpci's order; follow `next`. Null on an empty bus.
    [[nodiscard]] pci_dev* first() const;

private:
    StandardStreamGuard streams_;  // one for all that is asked about the devices
    pci_access* access_;
};

// Have libpci read the fields of a device (PCI_FILL_... bits) that its scan leaves out. A device
// whose ids cannot be read gets ids that no maker has.
void fill_pci_device(pci_dev* device, int fields);

// One dword of a device's configuration space. When libpci refuses or fails, a read returns all
// ones, as for an empty slot, and a write returns false.
[[nodiscard]] uint32_t read_pci_config(pci_dev* device, uint32_t offset);
bool write_pci_config(pci_dev* device, uint32_t offset, uint32_t value);

// "%02x:%02x.%x" of bus, device and function: agents name a card by this key.
[[nodiscard]] std::string pci_bus_location(const pci_dev& device);

}  // namespace kx
