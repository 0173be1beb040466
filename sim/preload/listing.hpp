// Lists the entries of the simulated host's directories in the order of their creation.
#pragma once

#include <dirent.h>

namespace kxsim::preload {

// Determine the order of a directory that was just opened, when it belongs to the host. Returns its
// argument.
DIR* listed(DIR* directory);

}  // namespace kxsim::preload
