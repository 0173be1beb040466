#include "files/lock_file.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "failure/failure.hpp"
#include "failure/permission.hpp"

namespace kx::ctl {
namespace {

constexpr mode_t kLockMode = 0600;
constexpr mode_t kLockDirectoryMode = 0755;

bool is_lock_refusal(int reason) { return reason == EACCES || reason == EPERM; }

int open_lock(const std::string& path) {
    return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockMode);
}

}  // namespace

Descriptor open_lock_file(const std::string& path, LockPurpose purpose) {
    const bool writing = purpose == LockPurpose::kWrite;
    Descriptor file(open_lock(path));
    if (!file && errno == ENOENT && writing) {
        static_cast<void>(mkdir(kLockDirectory, kLockDirectoryMode));
        file = Descriptor(open_lock(path));
    }
    const int reason = file ? 0 : errno;
    if (reason == 0 || reason == ENOENT || reason == EROFS ||
        (!writing && is_lock_refusal(reason))) {
        return file;
    }
    if (is_lock_refusal(reason)) {
        throw refused_file(path, reason);
    }
    throw Failure(ExitCode::kFailed, fmt::format("{}: {}", path, std::strerror(reason)));
}

}  // namespace kx::ctl
