// Every path that the settings touch, beside those of the offload table.
#pragma once

#include <kxlinhw/settings.h>

namespace kx::settings {

inline constexpr char kPortParameterFile[] = KX_PORT_PARAMETER_FILE;
inline constexpr char kSysctlFile[] = KX_SYSCTL_FILE;
inline constexpr char kKernelSettings[] = "/proc/sys/";  // sysctl names its files from here
inline constexpr char kModules[] = "/sys/module/";
inline constexpr char kModuleParameters[] = "/parameters/";  // within a module's directory

}  // namespace kx::settings
