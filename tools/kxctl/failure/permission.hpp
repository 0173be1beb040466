// Why the kernel refused an operation: a missing privilege of this process, or a restriction of the
// host for everybody.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "failure/failure.hpp"

namespace kx::ctl {

// An operation that needs a privilege.
enum class Privilege : std::uint8_t {
    kOwnFiles,      // writing root's files, such as those under /proc/sys
    kNetworkAdmin,  // changing interfaces
    kRawAccess,     // /dev/mem
    kConfigSpace,   // the PCI configuration space after its first 64 bytes
};

// What is known about this process and its host.
struct SecurityContext {
    uid_t user = 0;
    std::uint64_t capabilities = ~std::uint64_t{0};  // effective, a bit each
    std::string lockdown = {};                       // "integrity", "confidentiality" or empty
    bool container = false;
};

// On a simulated host every user counts as root.
[[nodiscard]] SecurityContext read_security_context();

// The mode in brackets: "none [integrity] confidentiality". Empty for none.
[[nodiscard]] std::string lockdown_mode(const std::string& file);

// What prevents an operation, such as "the user is not root"; nothing when no reason is known.
[[nodiscard]] std::optional<std::string> missing_privilege(
    Privilege privilege, const SecurityContext& context);

// The failure of opening a file of root (kNoPermission). The message names the reason, if it is
// known. reason: the errno.
[[nodiscard]] Failure refused_file(const std::string& path, int reason);

// The failure of opening /dev/mem: kNoPermission when this process, or every process on the host,
// may not open it.
[[nodiscard]] Failure failed_memory(const std::string& subject, int reason);

// The failure of mapping an adapter's registers through /dev/mem. Kernels with
// CONFIG_IO_STRICT_DEVMEM refuse even root while a driver is bound to the adapter; the message
// names the driver and what helps. location: with the PCI domain ("0000:03:00.4").
[[nodiscard]] Failure failed_registers(
    const std::string& subject, const std::string& location, int reason);

}  // namespace kx::ctl
