// A scan of the PCI bus through libpci. libpci's own way out of an error is to end the process;
// here an error makes the bus look empty, and a device that fails look absent.
#pragma once

#include <cstdint>
#include <string>

#include "support/standard_streams.hpp"

struct pci_access;
struct pci_dev;

namespace kx {

// Allocate a libpci handle and scan the bus with it. Null when libpci gives no handle; a handle
// without devices when the bus cannot be read. Free it with free_pci_bus.
[[nodiscard]] pci_access* open_pci_bus();
void free_pci_bus(pci_access* access);

// Owns one scan; devices live as long as it does.
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
// whose ids cannot be read gets those of no maker.
void fill_pci_device(pci_dev* device, int fields);

// One dword of a device's configuration space. What libpci refuses or cannot do reads all ones, as
// from an empty slot, and writes nothing, which is false.
[[nodiscard]] uint32_t read_pci_config(pci_dev* device, uint32_t offset);
bool write_pci_config(pci_dev* device, uint32_t offset, uint32_t value);

// "%02x:%02x.%x" of bus, device and function: the key by which agents name a card.
[[nodiscard]] std::string pci_bus_location(const pci_dev& device);

}  // namespace kx
