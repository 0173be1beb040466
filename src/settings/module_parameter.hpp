// One parameter of a loaded kernel module: a file under /sys/module.
#pragma once

#include <cstdint>

namespace kx::settings {

// The driver of Q4 and Q5 ports, whose module parameters are the card's.
inline constexpr char kEthernetDriver[] = "zfab4";

// Write a value through the shell. A refusal is not noticed.
void write_module_parameter(const char* module, const char* parameter, int value);

// The parameter's value; 0 without a file or a number in it.
[[nodiscard]] uint32_t read_module_parameter(const char* module, const char* parameter);

}  // namespace kx::settings
