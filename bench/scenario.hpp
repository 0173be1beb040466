// The measured machine: what host.cpp, which builds it, and the programs that run on it share.
#pragma once

namespace bench {

// The adapter whose ports are measured, and a second one without ports.
inline constexpr char kCard[] = "03:00.4";
inline constexpr char kOtherCard[] = "04:00.4";

// How many interfaces, from eth0 on, are ports of the adapter.
inline constexpr char kPortsVariable[] = "KXBENCH_PORTS";

inline constexpr char kFirmware[] = "1.24.14.0";

}  // namespace bench
