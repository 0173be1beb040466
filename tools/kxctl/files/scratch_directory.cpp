#include "files/scratch_directory.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "failure/failure.hpp"
#include "support/locked_directory.hpp"

namespace kx::ctl {
namespace {

namespace fs = std::filesystem;

constexpr char kPrefix[] = "kxctl";
constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP};

// For the signal handler, which can use neither objects nor the allocator.
char directory_in_use[PATH_MAX];

// Remove the files of a directory; it has no directories in it.
void remove_files(int directory) {
    alignas(dirent64) std::array<char, 4096> entries;
    for (long got;
         (got = syscall(SYS_getdents64, directory, entries.data(), entries.size())) > 0;) {
        for (long at = 0; at < got;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(entries.data() + at);
            unlinkat(directory, entry->d_name, 0);
            at += entry->d_reclen;
        }
    }
}

void remove_and_end(int signal) {
    remove_scratch_directory();
    ::signal(signal, SIG_DFL);
    raise(signal);
}

// A signal that was ignored stays ignored.
void handle_ending_signals(void (*before)(int), void (*handler)(int)) {
    for (const int signal : kEndingSignals) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == before) {
            action.sa_handler = handler;
            sigaction(signal, &action, nullptr);
        }
    }
}

fs::path parent_directory() {
    std::error_code error;
    const fs::path parent = fs::temp_directory_path(error);
    return error ? "/tmp" : parent;
}

std::unique_ptr<LockedDirectory> new_directory() {
    const fs::path parent = parent_directory();
    LockedDirectory::remove_abandoned(kPrefix, parent);
    try {
        auto directory = std::make_unique<LockedDirectory>(kPrefix, parent);
        fs::current_path(directory->path());
        return directory;
    } catch (const std::system_error& error) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format(
                "Cannot work in a directory of its own: {}", std::strerror(error.code().value())));
    }
}

}  // namespace

void remove_scratch_directory() {
    const int directory = open(directory_in_use, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (directory >= 0) {
        remove_files(directory);
        rmdir(directory_in_use);
    }
}

ScratchDirectory::ScratchDirectory() : before_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    directory_ = new_directory();
    const std::string path = directory_->path();
    path.copy(directory_in_use, sizeof directory_in_use - 1);
    handle_ending_signals(SIG_DFL, remove_and_end);
}

ScratchDirectory::~ScratchDirectory() {
    static_cast<void>(before_ && fchdir(before_.get()) == 0);
    directory_.reset();
    handle_ending_signals(remove_and_end, SIG_DFL);
    std::memset(directory_in_use, 0, sizeof directory_in_use);
}

}  // namespace kx::ctl
