// Steps that the members of VMUtils share: the connection, the agent's logger and command runner,
// the texts by which agents name domains.
#pragma once

#include <kxlinhw/host.h>
#include <kxlinhw/vmutils.h>

#include <array>
#include <optional>
#include <string>

namespace kx::vm {

inline constexpr char kVirsh[] = "/usr/bin/virsh";

// The message stands in the format's place: agents recognise failures by it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"  // clang looks no further than this call
[[gnu::format(printf, 1, 0)]] inline void log_failure(const char* message) {
    KxLogger::KestrixLogMsg(KX_MOD_VM, KX_LOG_FAILURE, message);
}
#pragma GCC diagnostic pop

// VMUtils::getConnection for members that answer its exception with a result.
[[nodiscard]] bool connect(virConnectPtr& connection);

// Run a shell command through the agent's runner. Its output, or nothing when it failed: what a
// failing command printed counts for nothing.
[[nodiscard]] std::optional<std::string> run(const std::string& command);

using Uuid = std::array<unsigned char, 16>;

// The bytes of a UUID of 32 hexadecimal digits without hyphens, as sscanf reads each two of them;
// what it cannot read stays zero. The end is looked for at character i while byte i is read from
// character 2*i, so of a text with fewer digits some more bytes count than there are pairs.
[[nodiscard]] Uuid uuid_of_text(const char* text);

// The domain of a UUID text; null when there is none, also for a null text.
[[nodiscard]] virDomainPtr domain_of_uuid(virConnectPtr connection, const char* text);

}  // namespace kx::vm
