// Every path of the host that the inventory reads, except those of the offload parameters.
#pragma once

namespace kx::inventory {

inline constexpr char kInterfaces[] = "/sys/class/net";
inline constexpr char kQ3Offload[] = "/proc/net/zfab3/";  // counters of each device
inline constexpr char kQ3OffloadDevices[] = "/proc/net/zfab3/devices";
inline constexpr char kQ4Driver[] = "/proc/driver/zfab4/";  // counters of each card
inline constexpr char kOffloadDevices[] = "/proc/net/offload/devices";

}  // namespace kx::inventory
