// The measured machine, as its maker (host.cpp) and what runs on it agree on it.
#pragma once

namespace bench {

// The adapter whose ports are measured, and a second one without ports.
inline constexpr char kCard[] = "03:00.4";
inline constexpr char kOtherCard[] = "04:00.4";

// How many interfaces, from eth0 on, are ports of the adapter.
inline constexpr char kPortsVariable[] = "KXBENCH_PORTS";

inline constexpr char kFirmware[] = "1.24.14.0";

}  // namespace bench
