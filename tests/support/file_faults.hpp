// Failing file calls on demand, and losing power between them. Include it in one file of a test
// program: it defines the C library's calls for the whole program and passes them on.
//
// While a FileFaults lives, file calls are counted. The chosen one fails with an errno and has no
// effect; after a power cut all later ones fail as well, and reboot() drops what was written to
// files but never flushed.
#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace test {

enum class Fault { kNone, kOneCall, kPowerCut };

class FileFaults {
public:
    FileFaults(Fault fault, std::size_t nth, int reason)
        : fault_(fault), nth_(nth), reason_(reason) {
        current_ = this;
    }
    ~FileFaults() { disarm(); }
    FileFaults(const FileFaults&) = delete;
    FileFaults& operator=(const FileFaults&) = delete;

    static FileFaults* current() { return current_; }

    // The names of the calls so far, the failing one included.
    [[nodiscard]] const std::vector<std::string>& calls() const { return calls_; }
    [[nodiscard]] bool struck() const { return calls_.size() >= nth_; }

    // Count and fail no more; what was counted stays.
    void disarm() { current_ = nullptr; }

    // Count a call; true when it must fail, with errno set.
    bool strikes(const char* call) {
        calls_.emplace_back(call);
        const bool fails = fault_ == Fault::kOneCall    ? calls_.size() == nth_
                           : fault_ == Fault::kPowerCut ? calls_.size() >= nth_
                                                        : false;
        if (fails) {
            errno = reason_;
        }
        return fails;
    }

    // A file was opened, or flushed: what it holds now is safe.
    void safe(int descriptor) {
        struct stat status {};
        if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
            safe_size_[status.st_ino] = status.st_size;
        }
    }

    // Come back after a power cut: every file of the directory is as long as its safe part.
    void reboot(const std::filesystem::path& directory) {
        disarm();
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            struct stat status {};
            if (::stat(entry.path().c_str(), &status) == 0 && safe_size_.contains(status.st_ino)) {
                std::filesystem::resize_file(
                    entry.path(), static_cast<std::uintmax_t>(safe_size_[status.st_ino]));
            }
        }
    }

private:
    static inline FileFaults* current_ = nullptr;
    Fault fault_;
    std::size_t nth_;
    int reason_;
    std::vector<std::string> calls_;
    std::map<ino_t, off_t> safe_size_;
};

// The C library's own call of that name and type.
template <class Call>
Call next_call(const char* name) {
    return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

inline bool strikes(const char* call) {
    return FileFaults::current() != nullptr && FileFaults::current()->strikes(call);
}

}  // namespace test

#define KX_PASSED_ON __attribute__((visibility("default")))

extern "C" {

KX_PASSED_ON int open(const char* path, int flags, ...) {
    using Call = int (*)(const char*, int, ...);
    static const Call next = test::next_call<Call>("open");
    std::va_list values;
    va_start(values, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(values, mode_t) : 0;
    va_end(values);
    if (test::strikes("open")) {
        return -1;
    }
    const int descriptor = next(path, flags, mode);
    if (test::FileFaults::current() != nullptr && descriptor >= 0) {
        test::FileFaults::current()->safe(descriptor);
    }
    return descriptor;
}

KX_PASSED_ON ssize_t read(int descriptor, void* buffer, size_t size) {
    using Call = ssize_t (*)(int, void*, size_t);
    static const Call next = test::next_call<Call>("read");
    return test::strikes("read") ? -1 : next(descriptor, buffer, size);
}

KX_PASSED_ON ssize_t write(int descriptor, const void* buffer, size_t size) {
    using Call = ssize_t (*)(int, const void*, size_t);
    static const Call next = test::next_call<Call>("write");
    if (!test::strikes("write")) {
        return next(descriptor, buffer, size);
    }
    // A full disk takes a part first; the next call tells the reason.
    const int reason = errno;
    static_cast<void>(next(descriptor, buffer, size / 2));
    errno = reason;
    return -1;
}

KX_PASSED_ON int fsync(int descriptor) {
    using Call = int (*)(int);
    static const Call next = test::next_call<Call>("fsync");
    if (test::strikes("fsync")) {
        return -1;
    }
    if (test::FileFaults::current() != nullptr) {
        test::FileFaults::current()->safe(descriptor);
    }
    return next(descriptor);
}

KX_PASSED_ON int fchmod(int descriptor, mode_t mode) noexcept {
    using Call = int (*)(int, mode_t);
    static const Call next = test::next_call<Call>("fchmod");
    return test::strikes("fchmod") ? -1 : next(descriptor, mode);
}

KX_PASSED_ON int fchown(int descriptor, uid_t user, gid_t group) noexcept {
    using Call = int (*)(int, uid_t, gid_t);
    static const Call next = test::next_call<Call>("fchown");
    return test::strikes("fchown") ? -1 : next(descriptor, user, group);
}

KX_PASSED_ON int ftruncate(int descriptor, off_t size) noexcept {
    using Call = int (*)(int, off_t);
    static const Call next = test::next_call<Call>("ftruncate");
    return test::strikes("ftruncate") ? -1 : next(descriptor, size);
}

KX_PASSED_ON int rename(const char* from, const char* to) noexcept {
    using Call = int (*)(const char*, const char*);
    static const Call next = test::next_call<Call>("rename");
    return test::strikes("rename") ? -1 : next(from, to);
}

KX_PASSED_ON int unlink(const char* path) noexcept {
    using Call = int (*)(const char*);
    static const Call next = test::next_call<Call>("unlink");
    return test::strikes("unlink") ? -1 : next(path);
}

}  // extern "C"
