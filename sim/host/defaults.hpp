// The defaults of a simulated host.
#pragma once

#include <map>
#include <string>

namespace kxsim {

// The control files of an offload engine, with their values after the driver was loaded.
[[nodiscard]] const std::map<std::string, std::string>& offload_defaults();

// The names of makers, devices and classes that lspci shows.
[[nodiscard]] std::string pci_names();

}  // namespace kxsim
