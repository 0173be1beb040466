// Temporary directories, removed with the object that uses them.
#pragma once

#include <memory>

#include "support/locked_directory.hpp"

namespace kxsim {

// A new directory below TMPDIR, or below `parent`. Without TMPDIR it is in memory where that is
// possible.
[[nodiscard]] std::unique_ptr<kx::LockedDirectory> make_scratch();
[[nodiscard]] std::unique_ptr<kx::LockedDirectory> make_scratch(
    const std::filesystem::path& parent);

// Remove the directories of runs that were killed.
void remove_abandoned_scratch();

}  // namespace kxsim
