#include "files/whole_file.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "failure/failure.hpp"
#include "files/descriptor.hpp"
#include "files/working_directory.hpp"

namespace kx::ctl {
namespace {

constexpr mode_t kOwnersFile = 0600;  // a flash may contain secrets

ExitCode code_of(int reason) {
    switch (reason) {
        case EACCES:
        case EPERM:
        case EROFS:
            return ExitCode::kNoPermission;
        case EEXIST:
        case EISDIR:
            return ExitCode::kUsage;
        case ENOENT:
            return ExitCode::kNotFound;
        default:
            return ExitCode::kFailed;
    }
}

[[noreturn]] void fail(const std::string& path, int reason) { throw file_failure(path, reason); }

std::filesystem::path directory_of(const std::string& path) {
    const std::filesystem::path parent = std::filesystem::path(user_path(path)).parent_path();
    return parent.empty() ? "." : parent;
}

// The bytes are safe only after the name has been flushed too. Some file systems cannot flush a
// directory. Returns 0, or the errno of the failed step.
int flush_name_of(const std::string& path) {
    const Descriptor directory(
        open(directory_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory) {
        return errno;
    }
    return fsync(directory.get()) == 0 || errno == EINVAL ? 0 : errno;
}

// Returns 0, or the errno of the failed step.
int write_and_flush(int file, std::span<const std::uint8_t> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (const int reason = write_text(file, text); reason != 0) {
        return reason;
    }
    return fsync(file) != 0 ? errno : 0;
}

// A file with a temporary name of this process, next to the name that it gets when it is complete.
class UnfinishedFile {
public:
    explicit UnfinishedFile(const std::string& path)
        : name_(directory_of(path) / fmt::format(".kxctl-{}", getpid())) {
        file_ = make();
        if (!file_ && errno == EEXIST) {  // a process with this number was killed
            unlink(name_.c_str());
            file_ = make();
        }
    }
    ~UnfinishedFile() {
        if (file_) {
            unlink(name_.c_str());
        }
    }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

    explicit operator bool() const { return static_cast<bool>(file_); }
    [[nodiscard]] int get() const { return file_.get(); }

    // Give the file its name unless the name exists. Returns 0, or the errno of the failed step.
    [[nodiscard]] int finish(const std::string& path) {
        if (renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
            file_.reset();
            return 0;
        }
        if (errno != EINVAL && errno != ENOSYS) {
            return errno;
        }
        // The file system cannot do both at once. This object removes the other name.
        return link(name_.c_str(), path.c_str()) == 0 ? 0 : errno;
    }

private:
    [[nodiscard]] Descriptor make() const {
        return Descriptor(
            open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnersFile));
    }

    std::string name_;
    Descriptor file_;
};

}  // namespace

Failure file_failure(const std::string& path, int reason) {
    return {code_of(reason), fmt::format("{}: {}", path, std::strerror(reason))};
}

std::vector<std::uint8_t> read_whole_file(const std::string& path, std::size_t most) {
    // Opening a pipe without a writer would wait.
    const Descriptor file(open(user_path(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        fail(path, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure(ExitCode::kUsage, fmt::format("{} is not a file of bytes", path));
    }
    std::vector<std::uint8_t> bytes;
    std::array<std::uint8_t, 4096> chunk;
    ssize_t got = 0;
    while ((got = ::read(file.get(), chunk.data(), chunk.size())) > 0) {
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + got);
        if (bytes.size() > most) {
            throw Failure(ExitCode::kUsage, fmt::format("{} is larger than {} bytes", path, most));
        }
    }
    if (got < 0) {
        fail(path, errno);
    }
    return bytes;
}

void must_be_free(const std::string& path) {
    struct stat status {};
    if (lstat(user_path(path).c_str(), &status) == 0) {
        fail(path, EEXIST);
    }
    if (stat(directory_of(path).c_str(), &status) != 0) {
        fail(path, errno);
    }
}

void write_new_file(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string place = user_path(path);
    UnfinishedFile file(path);
    if (!file) {
        fail(path, errno);
    }
    if (const int reason = write_and_flush(file.get(), bytes); reason != 0) {
        fail(path, reason);
    }
    if (const int reason = file.finish(place); reason != 0) {
        fail(path, reason);
    }
    if (const int reason = flush_name_of(path); reason != 0) {
        unlink(place.c_str());
        fail(path, reason);
    }
}

}  // namespace kx::ctl
