// The lock on the configuration files for a whole run of kxctl: only one run at a time has it, so
// that what it reads is still true when it changes settings. The library locks each single change
// against all agents; kxctl takes its own lock before that one.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "cli/command.hpp"
#include "files/descriptor.hpp"
#include "files/lock_file.hpp"

namespace kx::ctl {

inline constexpr char kConfigurationLockFile[] = "/etc/kestrix-plexo/.kxctl.lock";

// How long to wait for the lock; nothing: without a time limit.
using LockTimeout = std::optional<std::chrono::nanoseconds>;

// Held while the object exists. After a second of waiting it prints a line on standard error.
class ConfigurationLock {
public:
    using Purpose = LockPurpose;

    // For writing, creates the directory of the lock when it is missing; for reading, a host
    // without it has nothing to lock. Throws Failure: kBusy when the time is over, kNoPermission
    // when the lock cannot be opened.
    ConfigurationLock(Purpose purpose, LockTimeout timeout);

private:
    Descriptor file_;
};

// The lock of a command that changes settings, unless it changes nothing: it only plans
// (--dry-run), or lacks the privilege. missing: what it lacks. Throws Failure (kBusy) also when an
// earlier change is not finished or not confirmed.
[[nodiscard]] std::optional<ConfigurationLock> lock_for_change(
    const Arguments& arguments, const std::optional<std::string>& missing);

// The options of every command that takes the lock, and their values.
[[nodiscard]] std::vector<Argument> with_lock_options(std::vector<Argument> arguments);
[[nodiscard]] LockTimeout lock_timeout_option(const Arguments& arguments);

}  // namespace kx::ctl
