// Adapters and other PCI functions.
#include <kxlinhw/export.h>

#include <stdexcept>

#include "host/hardware.hpp"
#include "host/host_state.hpp"
#include "host/pci_function.hpp"

namespace kxsim {
namespace {

struct Chip {
    std::string_view name;
    const char* driver;
    unsigned device_id;  // unless the adapter has another id
};

constexpr Chip kChips[] = {
    {"Q3", "zfab3", 0x31},
    {"Q4", "zfab4", 0x4410},
    {"Q5", "zfab4", 0x5410},
};

const Chip& find_chip(const std::string& name) {
    for (const Chip& chip : kChips) {
        if (chip.name == name) {
            return chip;
        }
    }
    throw std::invalid_argument("chip \"" + name + "\" is none of Q3, Q4, Q5");
}

// Register windows are consecutive, below the top of the 32-bit address space.
std::uint64_t window_address(const Location& at) {
    constexpr std::uint64_t kFirst = 0x80000000;
    constexpr std::uint64_t kStep = 0x80000;
    return kFirst + kStep * ((at.bus << 3 | at.function) & 0x7FFU);
}

// The id of a virtual function has its adapter's chip digit, an 8, and the last two digits of the
// product.
unsigned virtual_function_id(unsigned device_id) { return (device_id & 0xF0FFU) | 0x0800U; }

Location virtual_function(const Location& managed, unsigned number) {
    return {managed.domain, managed.bus, 1 + number / 8, number % 8};
}

}  // namespace

void Host::pci_device(const PciDevice& device) {
    PciDevice complete = device;
    if (complete.subsystem_vendor_id == 0) {
        complete.subsystem_vendor_id = complete.vendor_id;
        complete.subsystem_id = complete.device_id;
    }
    write_pci_function(state_->tree, complete);
}

void Host::adapter(const Adapter& adapter) {
    const Chip& chip = find_chip(adapter.chip);
    const Location managed = Location::parse(adapter.location);
    const unsigned device_id = adapter.device_id == 0 ? chip.device_id : adapter.device_id;
    const std::string driver = adapter.driver.empty() ? chip.driver : adapter.driver;
    PciDevice function{
        .location = managed.full(),
        .vendor_id = KESTRIX_PCI_VENDOR_ID,
        .device_id = device_id,
        .revision = 1,
        .irq = adapter.irq,
        .bar0 = adapter.bar0 == 0 ? window_address(managed) : adapter.bar0,
        .driver = driver,
        .config_size = 4096};
    for (const unsigned sibling : adapter.siblings) {
        PciDevice other = function;
        other.location = Location{managed.domain, managed.bus, managed.device, sibling}.full();
        other.bar0 = 0;
        other.driver.clear();
        pci_device(other);
    }
    function.vital_product_data = adapter.eeprom.capability;
    pci_device(function);
    make_hardware(*state_->adapters, state_->root, function, adapter);
    hardware(function.location).faults(adapter.faults);
    for (unsigned i = 0; i < adapter.virtual_functions; ++i) {
        const Location at = virtual_function(managed, i);
        pci_device(
            {.location = at.full(),
             .vendor_id = KESTRIX_PCI_VENDOR_ID,
             .device_id = virtual_function_id(device_id)});
        state_->tree.make_link(at.directory() + "/physfn", "../" + managed.full());
        state_->tree.make_link(
            managed.directory() + "/virtfn" + std::to_string(i), "../" + at.full());
    }
    for (const Interface& each : adapter.ports) {
        port(managed.full(), each);
    }
}

}  // namespace kxsim
