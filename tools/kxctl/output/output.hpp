// The output of kxctl: collected while a command runs, written and checked at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "failure/exit_code.hpp"
#include "output/incomplete.hpp"
#include "output/json.hpp"

namespace kx::ctl {

class Failure;
class Table;

enum class ColourMode : std::uint8_t { kAuto, kAlways, kNever };

// Whether to use colour. no_colour and terminal_type are the values of NO_COLOR and TERM, or null.
[[nodiscard]] bool decide_colour(
    ColourMode mode, bool is_terminal, const char* no_colour, const char* terminal_type);

enum class Content : std::uint8_t { kText, kBytes };

class Output {
public:
    explicit Output(bool json) : json_(json) {}

    // Whether the user requested JSON; a command then prints one JSON value and nothing else.
    [[nodiscard]] bool wants_json() const { return json_; }
    void set_colour(bool colour) { colour_ = colour; }
    // The width of the terminal in columns, for tables; 0: no limit.
    void set_width(std::size_t width) { width_ = width; }

    // From now on the answer tells what could not be read of the host (failure/unread.hpp). For
    // commands that only read: others judge by what they read back.
    void tell_unread() { tells_unread_ = true; }
    // What else is missing from the answer.
    [[nodiscard]] Incomplete& incomplete() { return incomplete_; }

    void text(std::string_view text) { text_ += text; }
    void table(const Table& table) { text_ += table_text(table); }
    [[nodiscard]] std::string table_text(const Table& table) const;
    void json(Json value);
    void json_line(Json value);  // for commands that print one value after another

    // A file of the user as the whole output: the name "-" means standard output. must_be_free
    // throws Failure (wrong usage) when JSON was requested too, or, for bytes that are not text,
    // when standard output is a terminal; call it before the work.
    [[nodiscard]] static bool is_named(std::string_view file) { return file == "-"; }
    void must_be_free(Content content) const;
    void bytes(std::span<const std::uint8_t> bytes);

    // The output so far, which is not written afterwards.
    [[nodiscard]] std::string take() { return std::exchange(text_, {}); }

    // Write the output so far, for commands that continue. False when there is no reader any more.
    [[nodiscard]] bool flush();

    // Replace the output so far by a failure. Returns its exit code. What was not found, although
    // something could not be read, may be there.
    ExitCode report(const Failure& failure);

    // Write everything to standard output. Returns `whole`, kPartly when a successful command could
    // not read everything, or kFailed when it could not write its output. A closed reader is not a
    // failure.
    [[nodiscard]] ExitCode finish(ExitCode whole);

private:
    void add_unread();

    bool json_;
    bool tells_unread_ = false;
    Incomplete incomplete_;
    bool colour_ = false;
    std::size_t width_ = 0;
    std::string text_;
};

}  // namespace kx::ctl
