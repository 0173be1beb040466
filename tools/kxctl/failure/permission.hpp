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
struct Circumstances {
    uid_t user = 0;
    std::uint64_t capabilities = ~std::uint64_t{0};  // effective, a bit each
    std::string lockdown = {};                       // "integrity", "confidentiality" or empty
    bool container = false;
};

// On a simulated host every user counts as root.
[[nodiscard]] Circumstances read_circumstances();

// The mode in brackets: "none [integrity] confidentiality". Empty for none.
[[nodiscard]] std::string lockdown_mode(const std::string& file);

// What prevents an operation, such as "the user is not root"; nothing when no reason is known.
[[nodiscard]] std::optional<std::string> obstacle(
    Privilege privilege, const Circumstances& circumstances);

// Whether an errno of /dev/mem means that this process, or every process on the host, may not open
// it.
[[nodiscard]] bool is_refusal_of_memory(int reason);

// The failures (kNoPermission) of opening /dev/mem and of opening a file of root; each message
// names the reason. reason: the errno.
[[nodiscard]] Failure refused_memory(const std::string& subject, int reason);
[[nodiscard]] Failure refused_file(const std::string& path, int reason);

}  // namespace kx::ctl
