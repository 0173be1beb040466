// How long kxctl waits for other programs: those that it runs, and hypervisors.
#pragma once

#include <chrono>

namespace kx::ctl {

// 60 seconds, or what KXCTL_TIMEOUT says.
[[nodiscard]] std::chrono::seconds time_limit();

// Throws Failure when KXCTL_TIMEOUT is not a number of seconds.
void check_time_limit();

}  // namespace kx::ctl
