// The lock on the configuration files, which the library rewrites: reads, changes in memory,
// writes. Two agents that do so at once would lose each other's lines; two runs of kxctl take
// turns.
#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "cli/command.hpp"
#include "files/descriptor.hpp"
#include "files/lock_file.hpp"

namespace kx::ctl {

inline constexpr char kConfigurationLockFile[] = "/etc/kestrix-plexo/.kxctl.lock";

// How long to wait for the lock; without end when nothing.
using Patience = std::optional<std::chrono::nanoseconds>;

// Held while it lives. Whoever is to wait longer than a second is told so on standard error.
class ConfigurationLock {
public:
    using Purpose = LockPurpose;

    // For writing, the directory of the lock is made when it is missing; for reading, a host
    // without it has nothing to lock. Throws Failure: kBusy when patience is over, kNoPermission
    // when the lock is not to be had.
    ConfigurationLock(Purpose purpose, Patience patience);

private:
    Descriptor file_;
};

// The lock of a command that changes settings, unless it only plans (--dry-run).
[[nodiscard]] std::optional<ConfigurationLock> lock_unless_planning(const Arguments& arguments);

// What every command that takes the lock offers, and what the user wants.
[[nodiscard]] std::vector<Argument> with_lock_options(std::vector<Argument> arguments);
[[nodiscard]] Patience patience_wish(const Arguments& arguments);

}  // namespace kx::ctl
