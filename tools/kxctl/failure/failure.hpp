// The failure of a command: thrown where it is detected, reported once by main().
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "failure/exit_code.hpp"

namespace kx::ctl {

class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}

    // A failure that the library reported, with its text and, for settings, its messages.
    [[nodiscard]] static Failure of_status(std::uint32_t status);

    [[nodiscard]] ExitCode code() const { return code_; }
    [[nodiscard]] std::optional<std::uint32_t> status() const { return status_; }
    [[nodiscard]] const std::vector<std::string>& detail() const { return detail_; }

    // The failure as one line for people, without the program's name.
    [[nodiscard]] std::string line() const;

private:
    ExitCode code_;
    std::optional<std::uint32_t> status_;
    std::vector<std::string> detail_;
};

// A text about a missing adapter. On a real host it also offers the simulated one.
[[nodiscard]] std::string with_simulation_offer(const std::string& text);

// Throw the failure of a wrong command line; it refers to the help.
[[noreturn]] void refuse_usage(const std::string& text);

// Throw the failure of a status that is not success.
void check(std::uint32_t status);

// The messages of the library's detail text, each of which ends in ";".
[[nodiscard]] std::vector<std::string> split_detail(std::string_view text);

}  // namespace kx::ctl
