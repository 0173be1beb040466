#include "settings/configuration_lock.hpp"

#include <fmt/core.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "cli/numbers.hpp"
#include "failure/failure.hpp"
#include "output/standard_streams.hpp"
#include "settings/open_change.hpp"

namespace kx::ctl {
namespace {

using LockClock = std::chrono::steady_clock;

constexpr std::chrono::seconds kTellAfter{1};
constexpr std::chrono::microseconds kFirstPause{200};
constexpr std::chrono::milliseconds kLongestPause{20};

// The kernel has no lock with a time limit; short pauses work as well and need no signals.
void wait_for_lock(int file, LockTimeout timeout) {
    const LockClock::time_point start = LockClock::now();
    std::chrono::nanoseconds pause = kFirstPause;
    bool told = false;
    while (flock(file, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            throw Failure(
                ExitCode::kFailed,
                fmt::format("{}: {}", kConfigurationLockFile, std::strerror(errno)));
        }
        const std::chrono::nanoseconds waited = LockClock::now() - start;
        if (timeout && waited >= *timeout) {
            throw Failure(ExitCode::kBusy, "Another kxctl works on the configuration files");
        }
        if (!told && waited >= kTellAfter) {
            complain("waiting for another kxctl that works on the configuration files");
            told = true;
        }
        std::this_thread::sleep_for(timeout ? std::min(pause, *timeout - waited) : pause);
        pause = std::min<std::chrono::nanoseconds>(2 * pause, kLongestPause);
    }
}

const Argument kNoWait{
    .name = "--no-wait",
    .help = "Do not wait for another kxctl; fail (exit code 5)",
};
const Argument kWaitLimit{
    .name = "--wait",
    .help =
        "Wait up to this many seconds (0.01 to 86400) for another kxctl, then fail (exit "
        "code 5)",
    .value = "SECONDS",
};

}  // namespace

ConfigurationLock::ConfigurationLock(Purpose purpose, LockTimeout timeout)
    : file_(open_lock_file(kConfigurationLockFile, purpose)) {
    if (file_) {
        wait_for_lock(file_.get(), timeout);
    }
}

std::optional<ConfigurationLock> lock_for_change(
    const Arguments& arguments, const std::optional<std::string>& missing) {
    const LockTimeout timeout = lock_timeout_option(arguments);
    if (arguments.has("--dry-run") || missing) {
        return std::nullopt;
    }
    std::optional<ConfigurationLock> lock(
        std::in_place, ConfigurationLock::Purpose::kWrite, timeout);
    refuse_open_change();
    return lock;
}

std::vector<Argument> with_lock_options(std::vector<Argument> arguments) {
    arguments.push_back(kNoWait);
    arguments.push_back(kWaitLimit);
    return arguments;
}

LockTimeout lock_timeout_option(const Arguments& arguments) {
    if (arguments.has("--no-wait") && arguments.has("--wait")) {
        refuse_usage("--no-wait and --wait exclude each other");
    }
    if (arguments.has("--no-wait")) {
        return std::chrono::nanoseconds(0);
    }
    return arguments.has("--wait") ? LockTimeout(seconds_option(arguments, "--wait"))
                                   : std::nullopt;
}

}  // namespace kx::ctl
