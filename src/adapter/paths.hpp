// Every path of the host that the adapter functions use, except those of libpci.
#pragma once

namespace kx::adapter {

inline constexpr char kMemory[] = "/dev/mem";
inline constexpr char kDefaultConfig[] = "/lib/firmware/zfab4/q4-config.txt";

}  // namespace kx::adapter
