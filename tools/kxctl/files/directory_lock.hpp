// The lock under which every agent changes a configuration file: a lock on the file's directory,
// because a change replaces the file itself.
#pragma once

#include <string>

#include "files/descriptor.hpp"

namespace kx::ctl {

// Held while the object exists.
class DirectoryLock {
public:
    // Locks the directory of the file `path`. A missing directory needs no lock. Waits at most 5
    // seconds for another agent, then throws Failure (kBusy); throws other failures when the
    // directory cannot be opened or locked.
    explicit DirectoryLock(const std::string& path);

    // Changed names are on the disk only after this.
    void flush() const;

private:
    Descriptor directory_;
};

}  // namespace kx::ctl
