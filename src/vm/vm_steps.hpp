// Steps that the members of VMUtils share: the connection, the agent's logger and command runner,
// and the texts that name domains.
#pragma once

#include <kxlinhw/host.h>
#include <kxlinhw/vmutils.h>

#include <array>
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

using Uuid = std::array<unsigned char, 16>;

// The bytes of a UUID of 32 hexadecimal digits without hyphens, as sscanf reads each pair; a byte
// that it cannot read stays zero. The code looks for the end at character i but reads byte i from
// character 2*i, so a text with fewer digits gives more bytes than it has pairs.
[[nodiscard]] Uuid uuid_of_text(const char* text);

// The domain with a UUID text; null when there is none, also for a null text.
[[nodiscard]] virDomainPtr domain_of_uuid(virConnectPtr connection, const char* text);

}  // namespace kx::vm
