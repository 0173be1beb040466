// Creates the hardware state of an adapter in a session.
#pragma once

#include <kxsim/host.hpp>

#include "state/adapters.hpp"

namespace kxsim {

// function: the adapter's managed function, with its full location and its window.
void make_hardware(
    state::Adapters& adapters, const std::string& root, const PciDevice& function,
    const Adapter& adapter);

}  // namespace kxsim
