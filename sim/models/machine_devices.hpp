// Attaches and detaches devices of virtual machines by editing their descriptions. A PCI function
// must be on the host and must not be attached to a running machine; a bridge must be on the host.
#pragma once

#include "models/hypervisor.hpp"

namespace kxsim::models {

// Like libvirt's functions with these names, with their flags and results. The reason of a refusal
// is printed on standard error.
[[nodiscard]] int attach_device(MachineVisit& visit, const char* device, unsigned flags);
[[nodiscard]] int detach_device(MachineVisit& visit, const char* device, unsigned flags);

}  // namespace kxsim::models
