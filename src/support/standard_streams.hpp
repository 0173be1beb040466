// Reserving descriptors 0, 1 and 2 for the standard streams. In a process that has closed one of
// them, the next opened file gets its number, and the output of the process is then written into
// that file: a control file, the configuration space of a card, physical memory.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace kx {

inline constexpr int kStandardStreams = 3;

// The descriptor of a file that was just opened. When it has the number of a standard stream, it is
// closed and a copy above 2 is returned. -1 and errno for a failed open, and when no copy can be
// made.
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

// For files that other libraries open for us: while a guard exists, /dev/null is open on those of
// the three descriptors that were closed. The first guard of the process opens it and the last one
// closes it; guards in between, of this or another thread, cost nothing. A file that the agent has
// opened there meanwhile stays.
class StandardStreamGuard {
public:
    StandardStreamGuard();
    ~StandardStreamGuard();
    StandardStreamGuard(const StandardStreamGuard&) = delete;
    StandardStreamGuard& operator=(const StandardStreamGuard&) = delete;

    // False when /dev/null cannot be opened: a file that is opened now may get the number of a
    // stream.
    explicit operator bool() const;
};

}  // namespace kx
