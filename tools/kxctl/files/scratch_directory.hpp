// A working directory for calls that leave a file in theirs.
#pragma once

#include <filesystem>

#include "files/descriptor.hpp"

namespace kx::ctl {

// While it lives, the process works in an empty directory of its own, which goes with it. Throws
// Failure when there can be none.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

private:
    std::filesystem::path path_;
    Descriptor before_;  // empty when the process may not look at where it was
};

}  // namespace kx::ctl
