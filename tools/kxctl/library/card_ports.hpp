// The ports of a card, in the first members of every answer about it.
#pragma once

#include <string>
#include <vector>

#include "library/port.hpp"
#include "output/incomplete.hpp"
#include "output/json.hpp"

namespace kx::ctl {

// The ports at a location; none for a card without a port.
[[nodiscard]] std::vector<Port> ports_at(const std::string& location);

[[nodiscard]] std::vector<std::string> names_of(const std::vector<Port>& ports);

// Throws Failure (kPartly) unless these ports of the library are the kernel's, so that their
// numbers are certain.
void check_numbers(const std::string& location, const std::vector<Port>& ports);

// The ports of a card in an answer: an array, or null when an interface that may be a port could
// not be read.
[[nodiscard]] Json ports_json(const std::vector<PortInfo>& ports);

// The same for people: "eth2, eth3", and their MACs; empty when they are not known.
[[nodiscard]] std::string interfaces_text(const Json& ports);
[[nodiscard]] std::string macs_text(const Json& ports);

// The ports of adapters, which have none without a driver.
class PortsOfAdapters {
public:
    // `incomplete` tells when they cannot be read.
    explicit PortsOfAdapters(Incomplete& incomplete);
    [[nodiscard]] Json at(const std::string& location) const;

private:
    Json by_location_;  // null when they cannot be read
};

// The first members of an answer about an adapter: its location and its ports.
[[nodiscard]] Json adapter_json(const std::string& location, Incomplete& incomplete);

// The first members of an answer about a card: its location and the ports that answer.
[[nodiscard]] Json card_json(const std::string& location);
[[nodiscard]] Json card_json(const std::string& location, const std::vector<Port>& ports);

// The same first members as a line for people: "Port eth2 (03:00.4 port 1, MAC ...)"; empty for
// what is neither a card nor a port.
[[nodiscard]] std::string subject_text(const Json& subject);

}  // namespace kx::ctl
