// A PCI function as the kernel shows it: its directory under /sys/bus/pci/devices.
#pragma once

#include <kxsim/host.hpp>

#include <string>

#include "host/tree.hpp"

namespace kxsim {

// The offset of the capability for vital product data in configuration space.
inline constexpr unsigned kVpdCapability = 0xD0;

// The location of a function.
struct Location {
    unsigned domain = 0;
    unsigned bus = 0;
    unsigned device = 0;
    unsigned function = 0;

    // "03:00.4" or "0001:03:00.4"; throws std::invalid_argument for any other text.
    [[nodiscard]] static Location parse(const std::string& text);

    // "0000:03:00.4", the kernel's name for it.
    [[nodiscard]] std::string full() const;
    [[nodiscard]] std::string directory() const;
};

void write_pci_function(Tree& tree, const PciDevice& device);

// The driver that a function is bound to; empty when it is bound to none.
[[nodiscard]] std::string bound_driver(const Tree& tree, const Location& at);

}  // namespace kxsim
