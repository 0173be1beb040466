// kxctl's own output: collected while a command runs, written and checked at its end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "failure/exit_code.hpp"
#include "output/json.hpp"

namespace kx::ctl {

class Failure;
class Table;

enum class ColourWish : std::uint8_t { kAuto, kAlways, kNever };

// Whether to use colour. no_colour and terminal_type are the values of NO_COLOR and TERM, or null.
[[nodiscard]] bool decide_colour(
    ColourWish wish, bool is_terminal, const char* no_colour, const char* terminal_type);

class Output {
public:
    explicit Output(bool json) : json_(json) {}

    // Whether the user asked for JSON; a command then prints one JSON value and nothing else.
    [[nodiscard]] bool wants_json() const { return json_; }
    void set_colour(bool colour) { colour_ = colour; }
    [[nodiscard]] bool colour() const { return colour_; }

    void text(std::string_view text) { text_ += text; }
    void table(const Table& table);
    void json(const Json& value);
    void json_line(const Json& value);  // for commands that print one value after another

    // What was printed so far, which then is not written.
    [[nodiscard]] std::string take() { return std::exchange(text_, {}); }

    // Write what was printed so far, for commands that go on. False when nobody reads it any more.
    [[nodiscard]] bool flush();

    // Put a failure in the place of what was printed so far. The exit code that it gives.
    ExitCode report(const Failure& failure);

    // Write everything to standard output. Gives `code`, or kFailed when a command that was done
    // could not say so. A reader that went away is no failure.
    [[nodiscard]] ExitCode finish(ExitCode code);

private:
    bool json_;
    bool colour_ = false;
    std::string text_;
};

}  // namespace kx::ctl
