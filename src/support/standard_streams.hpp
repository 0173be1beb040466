// Keeping descriptors 0, 1 and 2 for the standard streams. In a process that has closed one of
// them, the next file to be opened gets its number, and what the process then prints is written
// into that file: a control file, the configuration space of a card, physical memory.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace kx {

inline constexpr int kStandardStreams = 3;

// The descriptor of a file that was just opened, or its copy above 2 when it has the number of a
// standard stream; it is closed then. -1 and errno for a failed open and when there is no copy.
[[nodiscard]] inline int above_standard_streams(int descriptor) {
    if (descriptor < 0 || descriptor >= kStandardStreams) {
        return descriptor;
    }
    const int above = fcntl(descriptor, F_DUPFD_CLOEXEC, kStandardStreams);
    const int reason = errno;
    close(descriptor);
    errno = reason;
    return above;
}

// For files that other libraries open on our behalf: while one lives, /dev/null stands on those of
// the three numbers that were closed. The first guard of the process puts it there, the last one
// takes it away again; those in between, of this or another thread, cost nothing. What the agent
// has put in its place meanwhile stays.
class StandardStreamGuard {
public:
    StandardStreamGuard();
    ~StandardStreamGuard();
    StandardStreamGuard(const StandardStreamGuard&) = delete;
    StandardStreamGuard& operator=(const StandardStreamGuard&) = delete;

    // False when /dev/null cannot be opened: what is opened now may get the number of a stream.
    explicit operator bool() const;
};

}  // namespace kx
