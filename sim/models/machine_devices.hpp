// Devices of virtual machines, edited into and out of their descriptions. A machine gets a PCI
// function that the host has and no running machine holds, and an interface on a bridge that the
// host has.
#pragma once

#include "models/hypervisor.hpp"

namespace kxsim::models {

// As libvirt's functions of these names, with their flags and results. A refusal is told on
// standard error.
[[nodiscard]] int attach_device(MachineVisit& visit, const char* device, unsigned flags);
[[nodiscard]] int detach_device(MachineVisit& visit, const char* device, unsigned flags);

}  // namespace kxsim::models
