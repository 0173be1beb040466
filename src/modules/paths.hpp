// The paths of the host for kernel modules.
#pragma once

namespace kx::modules {

inline constexpr char kLoadedModules[] = "/proc/modules";
inline constexpr char kBonding[] = "/proc/net/bonding";  // exists while the module is loaded
inline constexpr char kZfab3[] = "/proc/net/zfab3";      // as well
inline constexpr char kModuleTree[] = "/lib/modules";
inline constexpr char kUpdates[] = "updates";  // within the tree of a kernel

}  // namespace kx::modules
