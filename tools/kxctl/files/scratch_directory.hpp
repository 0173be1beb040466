// A working directory for calls that leave a file in the working directory.
#pragma once

#include <memory>

#include "files/descriptor.hpp"

namespace kx {
class LockedDirectory;
}

namespace kx::ctl {

// While this object exists, the working directory is a new empty directory, which is then removed,
// also when SIGINT, SIGTERM or SIGHUP ends the process. The next process
// removes the directory of a process that was killed. Throws Failure when it cannot be created.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

private:
    std::unique_ptr<LockedDirectory> directory_;
    Descriptor before_;  // empty when the process may not read its old working directory
};

// Remove the directory of the object that exists, if any, when no destructor will run.
void remove_scratch_directory();

}  // namespace kx::ctl
