// Plurals of nouns: "kxctl cards" is short for "kxctl card list".
#pragma once

#include <string>
#include <vector>

#include "cli/command.hpp"

namespace kx::ctl {

// "cards" for "card list"; empty for any other command.
[[nodiscard]] std::string plural_of(const Command& command);

// The words with "card list" in place of "cards". A verb may follow a plural too: "cards stats".
[[nodiscard]] std::vector<std::string> without_plural(std::vector<std::string> words);

}  // namespace kx::ctl
