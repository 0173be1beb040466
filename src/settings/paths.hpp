// Every path that the settings use, except those of the offload table.
#pragma once

#include <kxlinhw/settings.h>

namespace kx::settings {

inline constexpr char kPortParameterFile[] = KX_PORT_PARAMETER_FILE;
inline constexpr char kSysctlFile[] = KX_SYSCTL_FILE;
inline constexpr char kKernelSettings[] = "/proc/sys/";  // the root of the keys of sysctl
inline constexpr char kModules[] = "/sys/module/";
inline constexpr char kModuleParameters[] = "/parameters/";  // within a module's directory

}  // namespace kx::settings
