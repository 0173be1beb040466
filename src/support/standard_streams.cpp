#include "support/standard_streams.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <utility>

#include "support/paths.hpp"

namespace kx {
namespace {

struct Guarded {
    std::mutex mutex;
    int guards = 0;
    std::array<bool, kStandardStreams> by_us{};  // where /dev/null was opened
    bool complete = false;                       // no descriptor of a stream is free
};

constinit Guarded guarded;

// One system call checks all three.
bool streams_are_open() {
    std::array<pollfd, kStandardStreams> streams{{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}};
    return poll(streams.data(), streams.size(), 0) >= 0 &&
           std::none_of(streams.begin(), streams.end(), [](const pollfd& stream) {
               return (stream.revents & POLLNVAL) != 0;
           });
}

// The next opened file gets the lowest free number: when that is above the streams, none of their
// numbers is free.
bool fill_with_null() {
    for (;;) {
        const int number = open(kNullDevice, O_RDWR | O_CLOEXEC);
        if (number < 0) {
            return false;
        }
        if (number >= kStandardStreams) {
            close(number);
            return true;
        }
        guarded.by_us[static_cast<std::size_t>(number)] = true;
    }
}

void close_null(int number) {
    struct stat status {};
    if (fstat(number, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3)) {
        close(number);
    }
}

}  // namespace

StandardStreamGuard::StandardStreamGuard() {
    const std::lock_guard lock(guarded.mutex);
    if (guarded.guards++ == 0) {
        guarded.complete = streams_are_open() || fill_with_null();
    }
}

StandardStreamGuard::~StandardStreamGuard() {
    const std::lock_guard lock(guarded.mutex);
    if (--guarded.guards != 0) {
        return;
    }
    const int reason = errno;
    for (int number = 0; number < kStandardStreams; ++number) {
        if (std::exchange(guarded.by_us[static_cast<std::size_t>(number)], false)) {
            close_null(number);
        }
    }
    errno = reason;
}

StandardStreamGuard::operator bool() const {
    const std::lock_guard lock(guarded.mutex);
    return guarded.complete;
}

}  // namespace kx
