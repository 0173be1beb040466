// The port that a command works on, found by the words of the command line.
//
// Port numbers of the library are positions among the interfaces whose drivers answer: when one
// does not answer, the same number is another port. So a number is only used where the kernel lists
// the same interfaces, and after that a port is known by its interface, its MAC and its PCI
// function.
#pragma once

#include <string>
#include <vector>

#include "cli/command.hpp"
#include "library/card_location.hpp"
#include "library/host_interfaces.hpp"
#include "library/port.hpp"
#include "output/json.hpp"

namespace kx::ctl {

class PortTarget {
public:
    // The port that LOCATION and PORT name: an interface alone, "LOCATION/PORT", or a card and a
    // number. Throws Failure when it is not certain which port that is.
    explicit PortTarget(const Arguments& arguments);

    [[nodiscard]] const std::string& location() const { return location_; }
    [[nodiscard]] std::uint32_t instance() const { return record_.instance; }
    [[nodiscard]] const std::string& interface() const { return identity_.name; }
    // The library's record of the port.
    [[nodiscard]] const Port& record() const { return record_; }

    // What the kernel says about the interface.
    [[nodiscard]] const HostInterface& identity() const { return identity_; }

    // The first members of every answer: location, instance, interface and MAC.
    [[nodiscard]] Json json() const;

    // Throws Failure (kBusy) when the interface is no longer the one that was found.
    void check_unmoved() const;
    // The same right before a change: also throws Failure (kPartly) when that is not certain.
    void check_before_change() const;

    // The counters of the interface. Throws Failure (kBusy) as above.
    [[nodiscard]] std::vector<StatEntry> read_counters() const;

    // The library's record after a change. Throws Failure (kPartly) when the interface is no longer
    // the same one.
    [[nodiscard]] Port read_again() const;

private:
    void find(const std::string& interface);
    void find(const std::string& card, std::uint32_t instance);
    void identify(const Port& record);

    std::string location_;
    Port record_{};
    HostInterface identity_;
};

}  // namespace kx::ctl
