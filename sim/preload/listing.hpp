// Directories of the simulated host list their entries in the order in which the builder made them.
#pragma once

#include <dirent.h>

namespace kxsim::preload {

// Take charge of the order of a directory that was just opened, when it is one of the host's.
// Returns its argument.
DIR* listed(DIR* directory);

}  // namespace kxsim::preload
