// The paths that belong to the simulated host alone. A file in or below them that the host does not
// have is missing, whatever the real machine has.
#pragma once

#include <string_view>

namespace kxsim::process {

inline constexpr std::string_view kOwnedPaths[] = {
    "/dev/mem",
    "/etc/kestrix-plexo",
    "/etc/sysctl.conf",
    "/etc/sysctl.conf.bk",
    "/etc/sysctl.conf.tmp",
    "/lib/firmware/zfab4",
    "/lib/modules",
    "/proc/bus/pci",
    "/proc/driver/zfab4",
    "/proc/modules",
    "/proc/net/bonding",
    "/proc/net/offload",
    "/proc/net/zfab3",
    "/proc/sys/toe",
    "/sys/bus/pci",
    "/sys/class/net",
    "/sys/module",
    "/usr/share/misc/pci.ids",
    "/usr/share/misc/pci.ids.gz",
    "/var/lib/kxctl",
};

// Whether a path is that directory or file, or is below it.
constexpr bool is_in(std::string_view path, std::string_view directory) {
    return path.starts_with(directory) &&
           (path.size() == directory.size() || path[directory.size()] == '/');
}

constexpr bool is_owned(std::string_view path) {
    for (const std::string_view owned : kOwnedPaths) {
        if (is_in(path, owned)) {
            return true;
        }
    }
    return false;
}

// The kernel's file systems: nothing is created or removed there, and permissions apply to root
// too.
constexpr bool is_kernel_path(std::string_view path) {
    return is_in(path, "/proc") || is_in(path, "/sys");
}

}  // namespace kxsim::process
