#include "files/replaced_file.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "files/descriptor.hpp"
#include "files/working_directory.hpp"

namespace kx::ctl {
namespace {

constexpr mode_t kEverybodyReads = 0644;

[[noreturn]] void fail_to_replace(const std::string& path, int reason) {
    if (reason == EACCES || reason == EPERM || reason == EROFS) {
        throw refused_file(path, reason);
    }
    throw Failure(
        reason == ENOENT ? ExitCode::kNotFound : ExitCode::kFailed,
        fmt::format("{}: {}", path, std::strerror(reason)));
}

// A new file next to the place. Names of processes that were killed may be left behind.
Descriptor open_beside(const std::string& place, std::string& name) {
    constexpr int kMostNames = 1000;
    int file = -1;
    for (int i = 0; i < kMostNames; ++i) {
        name = fmt::format("{}.{}-{}", place, getpid(), i);
        file = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (file >= 0 || errno != EEXIST) {
            break;
        }
    }
    return Descriptor(file);
}

// Returns 0, or the errno of the failed step.
int fill(int file, std::string_view text) {
    if (const int reason = write_text(file, text); reason != 0) {
        return reason;
    }
    return fchmod(file, kEverybodyReads) == 0 && fsync(file) == 0 ? 0 : errno;
}

}  // namespace

void replace_file(const std::string& path, std::string_view text) {
    const std::string place = user_path(path);
    std::string fresh;
    const Descriptor file = open_beside(place, fresh);
    if (!file) {
        fail_to_replace(path, errno);
    }
    int reason = fill(file.get(), text);
    if (reason == 0 && std::rename(fresh.c_str(), place.c_str()) != 0) {
        reason = errno;
    }
    if (reason != 0) {
        unlink(fresh.c_str());
        fail_to_replace(path, reason);
    }
}

}  // namespace kx::ctl
