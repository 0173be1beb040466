// Reads numbers from words of a command line. Throws Failure (wrong usage) when a word is not a
// number.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "cli/command.hpp"

namespace kx::ctl {

// A port's number within its card.
[[nodiscard]] std::uint32_t port_number(const std::string& word);

// The value of a given option: a number from 0 to `most`.
[[nodiscard]] std::size_t number_option(
    const Arguments& arguments, const std::string& option, std::size_t most);

// The value of a given option in seconds.
[[nodiscard]] std::chrono::nanoseconds seconds_option(
    const Arguments& arguments, const std::string& option);

// The value of a given option as a time: "90", "90s", "5min" or "1h", 1 second to 1 day. In
// seconds.
[[nodiscard]] double time_option(const Arguments& arguments, const std::string& option);

// How a command repeats its output.
struct Watch {
    std::chrono::nanoseconds interval;
    std::uint64_t count;  // the number of readings; 0: no limit
};

// The repetition that --watch and --count request; nothing without --watch.
[[nodiscard]] std::optional<Watch> watch_option(const Arguments& arguments);

}  // namespace kx::ctl
