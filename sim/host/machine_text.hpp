// Reads the texts that describe virtual machines; also the initial state of the host's hypervisor.
#pragma once

#include <string>

#include "host/tree.hpp"

namespace kxsim {

// Throws std::invalid_argument that says what was found and what was expected.
void check_uuid(const std::string& text);

// A hypervisor without machines.
void furnish_hypervisor(Tree& tree);

}  // namespace kxsim
