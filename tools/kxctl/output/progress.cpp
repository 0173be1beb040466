#include "output/progress.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kx::ctl {
namespace {

constexpr std::uint64_t kKibi = 1024;
constexpr std::uint64_t kLeastInKibi = 16 * kKibi;  // smaller totals are shown in bytes
constexpr unsigned kQuarters = 4;
constexpr std::chrono::milliseconds kBetweenDrawings{100};
constexpr std::string_view kClearLine = "\r\033[K";

// "96 of 384 KiB", "1664 of 1664 bytes"
std::string amount_text(std::uint64_t done, std::uint64_t total) {
    return total % kKibi == 0 && total >= kLeastInKibi
               ? fmt::format("{} of {} KiB", done / kKibi, total / kKibi)
               : fmt::format("{} of {} bytes", done, total);
}

std::string time_text(double seconds) {
    const long whole = std::lround(seconds);
    return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

}  // namespace

std::string progress_line(std::string_view label, std::uint64_t done, std::uint64_t total) {
    return fmt::format("{}: {} ({}%)", label, amount_text(done, total), done * 100 / total);
}

std::string progress_line(
    std::string_view label, std::uint64_t done, std::uint64_t total,
    std::chrono::duration<double> spent) {
    std::string line = progress_line(label, done, total);
    if (done > 0 && spent.count() > 0) {
        const double rate = static_cast<double>(done) / spent.count();
        line += fmt::format(
            ", {:.1f} KiB/s, {} left", rate / static_cast<double>(kKibi),
            time_text(static_cast<double>(total - done) / rate));
    }
    return line;
}

Progress::Progress(std::string label, std::uint64_t total)
    : label_(std::move(label)),
      total_(total),
      target_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
      terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    if (drawn_) {
        static_cast<void>(write_text(target_.get(), "\n"));
    }
}

void Progress::add(std::uint64_t bytes) {
    const std::uint64_t before = done_;
    done_ += std::min(bytes, total_ - done_);
    if (done_ == before) {
        return;
    }
    if (terminal_) {
        redraw();
    } else {
        write_quarter(before);
    }
}

// Progress is not essential: when it cannot be shown, the operation continues.
void Progress::redraw() {
    const Clock::time_point now = Clock::now();
    if (done_ != total_ && drawn_ && now - last_drawn_ < kBetweenDrawings) {
        return;
    }
    last_drawn_ = now;
    drawn_ = true;
    static_cast<void>(write_text(
        target_.get(),
        std::string(kClearLine) + progress_line(label_, done_, total_, now - start_)));
}

void Progress::write_quarter(std::uint64_t before) {
    if (before * kQuarters / total_ != done_ * kQuarters / total_) {
        static_cast<void>(write_text(target_.get(), progress_line(label_, done_, total_) + "\n"));
    }
}

}  // namespace kx::ctl
