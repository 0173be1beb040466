// The interfaces of this host as the kernel lists them in sysfs. No driver has to answer for that,
// so the list shows which interfaces a query of the library left out.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "library/pci_location.hpp"

namespace kx::ctl {

struct HostInterface {
    std::string name;
    std::string mac;  // empty when it cannot be read
    std::optional<PciLocation>
        location;  // of its PCI function, with the domain; nothing when virtual

    [[nodiscard]] bool operator==(const HostInterface&) const = default;
};

// All interfaces, by name. Throws Failure (kPartly) when the kernel's list cannot be read.
[[nodiscard]] std::vector<HostInterface> host_interfaces();

// One of them; nothing when there is none. Reads only that interface.
[[nodiscard]] std::optional<HostInterface> host_interface(const std::string& name);

// Whether the library leaves out an interface because of its name, as it does with VLANs and bonds,
// which report the adapter below them.
[[nodiscard]] bool is_stacked(const std::string& name);

// The interfaces of a PCI function that the library can have as ports, sorted by name.
[[nodiscard]] std::vector<std::string> interfaces_at(const PciLocation& location);

// "eth2 (0000:03:00.4, MAC 00:07:43:05:00:01)"
[[nodiscard]] std::string described(const HostInterface& interface);

// Whether an interface is still what was expected: without a MAC or a domain when those are
// unknown.
[[nodiscard]] bool is_same(const HostInterface& expected, const std::optional<HostInterface>& now);

// "The interface was eth2 (...) and is not there now"
[[nodiscard]] std::string movement(
    const HostInterface& expected, const std::optional<HostInterface>& now);

}  // namespace kx::ctl
