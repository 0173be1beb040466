#include "flash/lock.hpp"

#include <fmt/core.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <string_view>

#include "failure/failure.hpp"
#include "files/lock_file.hpp"
#include "output/printable.hpp"

namespace kx::ctl {
namespace {

bool is_alive(pid_t process) { return kill(process, 0) == 0 || errno == EPERM; }

// The owner of the lock, as it wrote itself: "1234 flash write-boot". A process that reads writes
// no line, and the line of a dead process stays.
std::string holder_in(int file) {
    constexpr std::string_view kUnknown = "another kxctl";
    std::array<char, 128> line{};
    const ssize_t got = pread(file, line.data(), line.size(), 0);
    const char* const end = line.data() + (got > 0 ? got : 0);
    pid_t process = 0;
    const auto [rest, error] = std::from_chars(line.data(), end, process);
    if (error != std::errc() || process <= 0 || rest == end || *rest != ' ' || !is_alive(process)) {
        return std::string(kUnknown);
    }
    return fmt::format(
        "kxctl {} (process {})", printable(std::string_view(rest + 1, end)), process);
}

}  // namespace

FlashLock::FlashLock(
    const std::string& location, const std::string& place, const std::string& writer)
    : writes_(!writer.empty()) {
    const std::string path = fmt::format("{}/.kxctl.flash-{}.lock", kLockDirectory, place);
    Descriptor file = open_lock_file(path, writes_ ? LockPurpose::kWrite : LockPurpose::kRead);
    if (!file) {
        return;
    }
    if (flock(file.get(), (writes_ ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
        const int reason = errno;
        throw reason == EWOULDBLOCK
            ? Failure(
                  ExitCode::kBusy,
                  fmt::format("{}: {} works on its flash", location, holder_in(file.get())))
            : Failure(ExitCode::kFailed, fmt::format("{}: {}", path, std::strerror(reason)));
    }
    file_ = std::move(file);
    if (writes_ && ftruncate(file_.get(), 0) == 0) {
        static_cast<void>(write_text(file_.get(), fmt::format("{} {}", getpid(), writer)));
    }
}

FlashLock::~FlashLock() {
    if (file_ && writes_) {
        // A line that stays belongs to a process that has ended.
        [[maybe_unused]] const int result = ftruncate(file_.get(), 0);
    }
}

}  // namespace kx::ctl
