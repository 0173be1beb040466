// What the members of VMUtils use of the agent's: its connection, logger and command runner.
#pragma once

#include <kxlinhw/host.h>
#include <kxlinhw/vmutils.h>

#include <optional>
#include <string>

namespace kx::vm {

inline constexpr char kVirsh[] = "/usr/bin/virsh";

// The message is passed as the format: agents recognise failures by it. All messages are literals
// without values, which -Werror=format-security of a distribution cannot know.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
[[gnu::format(printf, 1, 0)]] inline void log_failure(const char* message) {
    KxLogger::KestrixLogMsg(KX_MOD_VM, KX_LOG_FAILURE, message);
}
#pragma GCC diagnostic pop

// VMUtils::getConnection for members that turn its exception into a result.
[[nodiscard]] bool connect(virConnectPtr& connection);

// Run a shell command through the agent's runner. Returns its output, or nothing when it failed;
// the output of a failed command is dropped.
[[nodiscard]] std::optional<std::string> run(const std::string& command);

}  // namespace kx::vm
