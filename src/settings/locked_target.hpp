// The file that a change of a configuration file works on, locked against other agents.
//
// When a configuration file is a symbolic link, the link stays: the file that it leads to is
// changed, and the temporary and backup files are in the directory of that file. A change reads the
// file, edits the text in memory and writes it; without a lock, two agents that do this at the same
// time would lose lines. The lock is on the directory, because a rewrite replaces the file itself.
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

    // False when the links form a circle, the directory cannot be opened, or another agent kept the
    // lock.
    explicit operator bool() const { return locked_; }

    // The path of the file, which need not exist. Open it with O_NOFOLLOW: it was not a link.
    [[nodiscard]] const std::string& path() const { return path_; }

    // The directory stores the names: until it is flushed, a power cut may restore the old ones.
    [[nodiscard]] bool flush_directory() const;

private:
    std::string path_;
    Descriptor directory_;
    bool locked_ = false;
};

// Flush a file or directory to its disk. A device such as /dev/null needs no flushing.
[[nodiscard]] bool flush_to_disk(const Descriptor& file);

}  // namespace kx::settings
