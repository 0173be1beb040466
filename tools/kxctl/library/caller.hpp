// Who runs this process, when, and with which command line: what journals say about a change.
#pragma once

#include <string>
#include <vector>

namespace kx::ctl {

// The user; for sudo the user who called it.
[[nodiscard]] std::string user_name();

// The time now as "2026-01-31T12:00:00Z".
[[nodiscard]] std::string time_text();

// A text that is another one after each start of the machine; empty when the kernel does not tell
// it.
[[nodiscard]] std::string boot_id();

// The command line of this process, as a shell reads it: "kxctl port set eth2 mtu=9000".
void set_command_line(const std::vector<std::string>& words);
[[nodiscard]] const std::string& command_line();

}  // namespace kx::ctl
