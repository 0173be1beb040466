// The texts in which virtual machines are given, and the host's hypervisor at the start.
#pragma once

#include <string>

#include "host/tree.hpp"

namespace kxsim {

// Throws std::invalid_argument that says what was found and what was expected.
void check_uuid(const std::string& text);

// A hypervisor without machines.
void furnish_hypervisor(Tree& tree);

}  // namespace kxsim
