#include "files/directory_lock.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "failure/failure.hpp"
#include "failure/permission.hpp"

namespace kx::ctl {
namespace {

// As long as the library waits.
constexpr std::chrono::seconds kDirectoryPatience{5};
constexpr std::chrono::milliseconds kDirectoryPause{1};

[[noreturn]] void fail_to_lock(const std::string& directory, int reason) {
    if (reason == EWOULDBLOCK) {
        throw Failure(
            ExitCode::kBusy, fmt::format("Another agent changes a file in {}", directory));
    }
    if (reason == EACCES || reason == EPERM) {
        throw refused_file(directory, reason);
    }
    throw Failure(ExitCode::kFailed, fmt::format("{}: {}", directory, std::strerror(reason)));
}

// The kernel has no lock with a time limit.
int wait_for_directory(const Descriptor& directory) {
    const auto deadline = std::chrono::steady_clock::now() + kDirectoryPatience;
    while (flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
        const int reason = errno;
        const bool held = reason == EWOULDBLOCK || reason == EINTR;
        if (!held || std::chrono::steady_clock::now() >= deadline) {
            return reason;
        }
        std::this_thread::sleep_for(kDirectoryPause);
    }
    return 0;
}

}  // namespace

DirectoryLock::DirectoryLock(const std::string& path) {
    const std::string directory = std::filesystem::path(path).parent_path();
    directory_ = Descriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int reason = directory_ ? wait_for_directory(directory_) : errno;
    if (reason != 0 && reason != ENOENT) {
        fail_to_lock(directory, reason);
    }
}

void DirectoryLock::flush() const {
    if (directory_) {
        static_cast<void>(fsync(directory_.get()));
    }
}

}  // namespace kx::ctl
