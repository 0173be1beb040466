// The card that a command works on, found by a word of the command line.
#pragma once

#include <string>
#include <vector>

#include "cli/command.hpp"

namespace kx::ctl {

// The location of the card that LOCATION names, as in the library's records. Users name a card by
// its location in any spelling, by one of its interfaces or by its serial number. Throws Failure
// when no card fits, or more than one.
[[nodiscard]] std::string card_location(const Arguments& arguments);

// The same for commands that need no driver: with the domain where several domains have an adapter
// at that location.
[[nodiscard]] std::string adapter_location(const Arguments& arguments);

// The location of the card that a word names, as above.
[[nodiscard]] std::string find_card(const std::string& word);

// The interfaces of adapters: what users may have meant by one that is not there.
[[nodiscard]] std::vector<std::string> adapter_interfaces();

[[noreturn]] void refuse_ambiguous(const std::string& word, const std::vector<std::string>& all);

}  // namespace kx::ctl
