// The file that a change of a configuration file is made to, locked against other agents.
//
// A configuration file that is a symbolic link stays one: what is changed is the file at the end of
// its links, and the temporary and backup names are beside that file. A change reads, works in
// memory and writes; two agents that do so at the same time would lose each other's lines. The lock
// is on the directory, because a rewrite replaces the file itself.
#pragma once

#include <string>

#include "support/handle.hpp"

namespace kx::settings {

class LockedTarget {
public:
    // Waits at most 5 seconds for an agent that holds the lock.
    explicit LockedTarget(const char* path);
    ~LockedTarget();
    LockedTarget(const LockedTarget&) = delete;
    LockedTarget& operator=(const LockedTarget&) = delete;

    // False when the links go round in a circle, the directory cannot be opened, or another agent
    // kept the lock.
    explicit operator bool() const { return locked_; }

    // The path of the file, which need not exist. Open it with O_NOFOLLOW: it was no link.
    [[nodiscard]] const std::string& path() const { return path_; }

    // Names live in the directory: until it is flushed, a power cut may bring the old ones back.
    [[nodiscard]] bool flush_directory() const;

private:
    std::string path_;
    Descriptor directory_;
    bool locked_ = false;
};

// Flush a file or directory to its disk. What has no disk (/dev/null) needs no flushing.
[[nodiscard]] bool flush_to_disk(const Descriptor& file);

}  // namespace kx::settings
