// From the words of a command line to a command of the table and what was given for its arguments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/command.hpp"

namespace kx::ctl {

enum class Wish : std::uint8_t { kRun, kHelp, kVersion };

struct Invocation {
    Wish wish = Wish::kRun;
    const Command* command = nullptr;  // null only when help or the version is wanted
    std::string noun;                  // the noun given, perhaps without its verb
    Arguments arguments;               // of the command
    Arguments options;                 // of all commands
};

// The words are those behind the program's name. Throws Failure with kUsage.
[[nodiscard]] Invocation parse(const std::vector<std::string>& words);

// Whether JSON is wanted, for command lines that cannot be parsed as well.
[[nodiscard]] bool asks_for_json(const std::vector<std::string>& words);

}  // namespace kx::ctl
