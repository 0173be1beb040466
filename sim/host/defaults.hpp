// What a simulated host has unless it is told otherwise.
#pragma once

#include <map>
#include <string>

namespace kxsim {

// The control files of an offload engine, with the values they hold after its driver was loaded.
[[nodiscard]] const std::map<std::string, std::string>& offload_defaults();

// The names by which lspci tells makers, devices and classes.
[[nodiscard]] std::string pci_names();

}  // namespace kxsim
