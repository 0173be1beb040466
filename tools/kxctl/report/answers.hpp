// The answers of commands that only read with --json, for commands that combine the answers of
// others.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "cli/command.hpp"
#include "output/json.hpp"

namespace kx::ctl {

using GivenWords = std::initializer_list<std::pair<const char*, std::string>>;

// The command is named as in the table: "card list". Throws the command's Failure.
[[nodiscard]] Json answer_of(std::string_view command, GivenWords words = {});

// The same; of a command that fails {"failure": the line that it would print, "absent": whether it
// only says that something is not there}.
[[nodiscard]] Json answer_or_failure(std::string_view command, GivenWords words = {});

}  // namespace kx::ctl
