// Every path of the host that the adapters need, beside those of libpci.
#pragma once

namespace kx::adapter {

inline constexpr char kMemory[] = "/dev/mem";
inline constexpr char kDefaultConfig[] = "/lib/firmware/zfab4/q4-config.txt";

}  // namespace kx::adapter
