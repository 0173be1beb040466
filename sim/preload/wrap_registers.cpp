// The library's register accesses, which it exports for this purpose. An address outside the
// simulated windows is memory of the process and is accessed as the library would do it.
#include <cstdint>

#include "models/device_memory.hpp"
#include "process/attached.hpp"

namespace {

using Register __attribute__((aligned(1), may_alias)) = volatile std::uint32_t;

std::uint32_t load(std::uint64_t address) {
    if (kxsim::process::Host* const host = kxsim::process::host(); host != nullptr) {
        if (const auto value = kxsim::models::load_device_memory(*host, address)) {
            return *value;
        }
    }
    return *reinterpret_cast<const Register*>(address);
}

void store(std::uint32_t value, std::uint64_t address) {
    kxsim::process::Host* const host = kxsim::process::host();
    if (host == nullptr || !kxsim::models::store_device_memory(*host, address, value)) {
        *reinterpret_cast<Register*>(address) = value;
    }
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

std::uint32_t readl(std::uint64_t address) { return load(address); }
void writel(std::uint32_t value, std::uint64_t address) { store(value, address); }
void writel_Q4(std::uint32_t value, std::uint64_t address) { store(value, address); }

#pragma GCC visibility pop

}  // extern "C"
