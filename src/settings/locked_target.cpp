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

constexpr int kMostLinks = 40;  // as many as the kernel follows
constexpr std::chrono::milliseconds kPause{1};
constexpr std::chrono::seconds kPatience{5};

// Up to and with the last slash; empty for a name in the working directory.
std::string_view directory_part(std::string_view path) {
    return path.substr(0, path.rfind('/') + 1);
}

// What a link says; nothing for what is no link, or cannot be read.
std::optional<std::string> link_text(const std::string& path) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    return length < 0 ? std::nullopt
                      : std::optional(std::string(text.data(), static_cast<std::size_t>(length)));
}

// The path at the end of a path's links, whether or not there is a file; nothing when they do not
// end.
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

// The kernel has no lock with a time limit, and a signal could be one of the agent's: ask for it
// again and again.
bool lock(const Descriptor& directory) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + kPatience;
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

// A process that the agent forked meanwhile has the descriptor too; closing it here alone would
// leave the lock with that one.
LockedTarget::~LockedTarget() {
    if (locked_) {
        flock(directory_.get(), LOCK_UN);
    }
}

bool LockedTarget::flush_directory() const { return flush_to_disk(directory_); }

bool flush_to_disk(const Descriptor& file) { return fsync(file.get()) == 0 || errno == EINVAL; }

}  // namespace kx::settings
