// Progress of a long operation on standard error: on a terminal one line that is updated, otherwise
// a line for each quarter.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "files/descriptor.hpp"

namespace kx::ctl {

// The text of a progress line: "Reading boot: 96 of 384 KiB (25%)", and with a measured time the
// rate and the time left.
[[nodiscard]] std::string progress_line(
    std::string_view label, std::uint64_t done, std::uint64_t total);
[[nodiscard]] std::string progress_line(
    std::string_view label, std::uint64_t done, std::uint64_t total,
    std::chrono::duration<double> spent);

class Progress {
public:
    // total: bytes; for 0 no progress is shown. Keeps a copy of standard error, because the
    // descriptor is redirected while the library runs.
    Progress(std::string label, std::uint64_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void add(std::uint64_t bytes);

private:
    using Clock = std::chrono::steady_clock;

    void redraw();
    void write_quarter(std::uint64_t before);

    std::string label_;
    std::uint64_t total_;
    std::uint64_t done_ = 0;
    Descriptor target_;
    bool terminal_;
    bool drawn_ = false;  // the line on the terminal is not complete
    Clock::time_point start_ = Clock::now();
    Clock::time_point last_drawn_ = {};
};

}  // namespace kx::ctl
