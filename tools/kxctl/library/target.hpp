// The card or the port that a command works on, found by the words of the command line.
//
// Port numbers of the library are positions among the interfaces whose drivers answer: when one
// does not answer, the same number is another port. So a number is only used where the kernel lists
// the same interfaces, and after that a port is known by its interface, its MAC and its PCI
// function.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/command.hpp"
#include "library/host_interfaces.hpp"
#include "library/port.hpp"
#include "output/json.hpp"

namespace kx::ctl {

// The location of the card that LOCATION names, as in the library's records. Users name a card by
// its location in any spelling, by one of its interfaces or by its serial number. Throws Failure
// when no card fits, or more than one.
[[nodiscard]] std::string card_location(const Arguments& arguments);

// The same for commands that need no driver: with the domain where several domains have an adapter
// at that location.
[[nodiscard]] std::string adapter_location(const Arguments& arguments);

// The first members of an answer about a card: its location and the ports that answer.
[[nodiscard]] Json card_json(const std::string& location);

// The same first members as a line for people: "Port eth2 (03:00.4 port 1, MAC ...)"; empty for
// what is neither a card nor a port.
[[nodiscard]] std::string subject_text(const Json& subject);

// A card with all of its ports, for commands that work on its offload engine: the library finds the
// engine by the first port that answers.
class EngineTarget {
public:
    // The card that LOCATION names. Throws Failure when a port of it does not answer (kPartly), and
    // when the library would take the engine of another card (kBusy).
    explicit EngineTarget(const Arguments& arguments);

    [[nodiscard]] const std::string& location() const { return location_; }
    [[nodiscard]] const CardInfo& record() const { return record_; }
    [[nodiscard]] const std::vector<Port>& ports() const { return ports_; }

    // The first members of every answer: location and ports.
    [[nodiscard]] Json json() const;

    // Right before a change: throws Failure as above when something is different now.
    void check_before_change() const;

    // The library's record after a change.
    [[nodiscard]] CardInfo read_again() const;

private:
    [[nodiscard]] CardInfo read_card() const;
    void check_engine() const;

    std::string location_;
    std::vector<Port> ports_;
    CardInfo record_{};
};

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
