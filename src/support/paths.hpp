// The paths of the host that several folders use.
#pragma once

namespace kx {

inline constexpr char kNullDevice[] = "/dev/null";
inline constexpr char kOffloadControl[] = "/proc/sys/toe/toe";  // then its index
inline constexpr char kOffloadControlEnd[] = "_tom";

}  // namespace kx
