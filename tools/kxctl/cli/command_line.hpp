// Turns the words of a command line into a command of the table and the values of its arguments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/command.hpp"

namespace kx::ctl {

// kNothing: no command was given, which is wrong usage.
enum class Action : std::uint8_t { kRun, kHelp, kVersion, kNothing };

struct Invocation {
    Action action = Action::kRun;
    const Command* command =
        nullptr;          // null for a help of several, for the version, or when there is none
    std::string noun;     // the given noun, perhaps without a verb
    Arguments arguments;  // of the command
    Arguments options;    // of all commands
};

// The words are those after the program's name. Throws Failure with kUsage.
[[nodiscard]] Invocation parse(const std::vector<std::string>& words);

// Whether JSON was requested; also for command lines that cannot be parsed.
[[nodiscard]] bool asks_for_json(const std::vector<std::string>& words);

}  // namespace kx::ctl
