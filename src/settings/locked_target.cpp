#include "settings/locked_target.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

namespace kx::settings {
namespace {

constexpr int kMostLinks = 40;  // the limit of the kernel
constexpr std::chrono::milliseconds kPause{1};
constexpr std::chrono::seconds kLockTimeout{5};

// The path up to and including the last slash; empty for a name in the working directory.
std::string_view directory_part(std::string_view path) {
    return path.substr(0, path.rfind('/') + 1);
}

// The target of a link; nothing for a path that is not a link or cannot be read.
std::optional<std::string> link_text(const std::string& path) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    return length < 0 ? std::nullopt
                      : std::optional(std::string(text.data(), static_cast<std::size_t>(length)));
}

// The path that a path's links lead to, whether or not the file exists; nothing when the links form
// a circle.
std::optional<std::string> end_of_links(std::string path) {
    for (int links = 0; links <= kMostLinks; ++links) {
        const auto text = link_text(path);
        if (!text) {
            return path;
        }
        path = text->starts_with('/') ? *text : std::string(directory_part(path)) + *text;
    }
    return std::nullopt;
}

Descriptor open_directory_of(std::string_view path) {
    const std::string directory(directory_part(path));
    return Descriptor(
        open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// The kernel has no lock with a time limit, and a signal could disturb the agent. Therefore try
// again and again.
bool lock(const Descriptor& directory) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + kLockTimeout;
    while (flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
        const bool held = errno == EWOULDBLOCK || errno == EINTR;
        if (!held || Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

}  // namespace

LockedTarget::LockedTarget(const char* path) {
    if (auto target = end_of_links(path)) {
        path_ = std::move(*target);
        directory_ = open_directory_of(path_);
        locked_ = directory_ && lock(directory_);
    }
}

// A process that the agent forked meanwhile has the descriptor too; closing it only here would
// leave the lock there.
LockedTarget::~LockedTarget() {
    if (locked_) {
        flock(directory_.get(), LOCK_UN);
    }
}

bool LockedTarget::flush_directory() const { return flush_to_disk(directory_); }

bool flush_to_disk(const Descriptor& file) { return fsync(file.get()) == 0 || errno == EINVAL; }

}  // namespace kx::settings
