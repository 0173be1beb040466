// Settings that are parameters of a loaded driver module, with the names of the settings.
#pragma once

#include <span>
#include <string>

#include "settings/change_line.hpp"

namespace kx::ctl {

// Refuse the parameters that the module does not have, and changes of those that it takes only
// while it is loaded. The library writes nothing then, and reports nothing.
void refuse_missing_parameters(std::span<ChangeLine> lines, const std::string& module);

}  // namespace kx::ctl
