// The ports of a card, in the first members of every answer about it.
#pragma once

#include <string>
#include <vector>

#include "library/port.hpp"
#include "output/json.hpp"

namespace kx::ctl {

// The ports at a location; none for a card without a port.
[[nodiscard]] std::vector<Port> ports_at(const std::string& location);

[[nodiscard]] std::vector<std::string> names_of(const std::vector<Port>& ports);

// Throws Failure (kPartly) unless these ports of the library are the kernel's, so that their
// numbers are certain.
void check_numbers(const std::string& location, const std::vector<Port>& ports);

// The first members of an answer about a card: its location and the ports that answer.
[[nodiscard]] Json card_json(const std::string& location);
[[nodiscard]] Json card_json(const std::string& location, const std::vector<Port>& ports);

// The same first members as a line for people: "Port eth2 (03:00.4 port 1, MAC ...)"; empty for
// what is neither a card nor a port.
[[nodiscard]] std::string subject_text(const Json& subject);

}  // namespace kx::ctl
