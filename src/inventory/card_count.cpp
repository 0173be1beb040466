// The number of adapters on the PCI bus, without an inventory.
#include <kxlinhw/statistics.h>

extern "C" {
#include <pci/pci.h>
}

#include "support/pci_bus.hpp"

extern "C" {

// A new adapter differs in both bus and device from the maker's previous function. Adapters on one
// bus therefore count once; agents rely on this count.
uint32_t getCardCount(void) {
    const kx::PciBus bus;
    uint32_t count = 0;
    uint32_t last_bus = 0xFFFFFFFF;
    uint32_t last_device = 0xFFFFFFFF;
    for (pci_dev* device = bus.first(); device != nullptr; device = device->next) {
        kx::fill_pci_device(device, PCI_FILL_IDENT);
        if (device->vendor_id != KESTRIX_PCI_VENDOR_ID) {
            continue;
        }
        if (device->bus != last_bus && device->dev != last_device) {
            ++count;
        }
        last_bus = device->bus;
        last_device = device->dev;
    }
    return count;
}

}  // extern "C"
