// Numbers among the words of a command line. A word that is none throws Failure (wrong usage).
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "cli/command.hpp"

namespace kx::ctl {

// The PORT of a command: the port's number within its card.
[[nodiscard]] std::uint32_t port_instance(const Arguments& arguments);

// The value of an option that takes seconds and was given.
[[nodiscard]] std::chrono::nanoseconds seconds_option(
    const Arguments& arguments, const std::string& option);

// How a command repeats itself.
struct Watch {
    std::chrono::nanoseconds interval;
    std::uint64_t count;  // how often it shows what it reads; 0 for without end
};

// The wish of --watch and --count; nothing without --watch.
[[nodiscard]] std::optional<Watch> watch_wish(const Arguments& arguments);

}  // namespace kx::ctl
