// Why the kernel refused something: what this process lacks, or what the host forbids everybody.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "failure/failure.hpp"

namespace kx::ctl {

// Something that takes a privilege.
enum class Privilege : std::uint8_t {
    kOwnFiles,      // writing root's files, such as those under /proc/sys
    kNetworkAdmin,  // changing interfaces
    kRawAccess,     // /dev/mem
    kConfigSpace,   // the PCI configuration space behind its first 64 bytes
};

// What can be told of this process and its host.
struct Circumstances {
    uid_t user = 0;
    std::uint64_t capabilities = ~std::uint64_t{0};  // effective, a bit each
    std::string lockdown = {};                       // "integrity", "confidentiality" or empty
    bool container = false;
};

// On a simulated host everybody is its root.
[[nodiscard]] Circumstances read_circumstances();

// The mode in brackets: "none [integrity] confidentiality". Empty for none.
[[nodiscard]] std::string lockdown_mode(const std::string& file);

// What keeps a process from something, such as "the user is not root"; nothing when nothing is
// known to.
[[nodiscard]] std::optional<std::string> obstacle(
    Privilege privilege, const Circumstances& circumstances);

// Whether an errno of /dev/mem means that it is kept from this process, or from everybody here.
[[nodiscard]] bool is_refusal_of_memory(int reason);

// The failures (kNoPermission) of opening /dev/mem and of opening a file of root's, each in a line
// that tells the obstacle. reason: the errno.
[[nodiscard]] Failure refused_memory(const std::string& subject, int reason);
[[nodiscard]] Failure refused_file(const std::string& path, int reason);

}  // namespace kx::ctl
