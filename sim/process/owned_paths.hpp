// What belongs to the simulated host alone. A path in or below these that the host does not hold is
// missing, whatever the real machine has there.
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
};

// Whether a path is that directory or file or lies below it.
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

// The kernel's file systems: nothing is made or removed there, and a file that lacks a permission
// lacks it for root too.
constexpr bool is_kernel_path(std::string_view path) {
    return is_in(path, "/proc") || is_in(path, "/sys");
}

}  // namespace kxsim::process
