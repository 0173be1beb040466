// The calls of the C library with which the library, and the libraries below it, read the host. A
// write belongs to them when it asks for data: a request for product data in configuration space.
// Each passes its arguments on to the next definition of its name, and tells failures to the watch
// (host_watch.hpp). A read of a file goes on until it has all that was asked for, because the
// library takes a part of a value as the value.
#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "failure/unread.hpp"
#include "library/descriptor_paths.hpp"
#include "library/host_watch.hpp"
#include "library/next_function.hpp"

namespace {

using namespace kx::ctl;  // NOLINT: the calls belong to it
using descriptor_paths::path_of;
using descriptor_paths::remember;

// Runs a note, which needs memory, and leaves errno as the caller is to see it.
template <class Note>
void note(Note run) noexcept {
    const int reason = errno;
    try {
        run();
    } catch (const std::exception&) {
        note_no_memory();
    }
    errno = reason;
}

void before_call() noexcept { host_watch::note_left_error(); }

void note_failure(const char* path) noexcept {
    const int reason = errno;
    note([&] { host_watch::note_path(path, reason); });
}

// A call whose result shows a failure.
template <class Result, class Call>
Result on_path(const char* path, Result failed, Call call) {
    if (!host_watch::active()) {
        return call();
    }
    before_call();
    const Result result = call();
    if (result == failed) {
        note_failure(path);
    }
    return result;
}

bool only_reads(int flags) { return (flags & O_ACCMODE) == O_RDONLY && (flags & O_CREAT) == 0; }

// libpci writes to configuration space to read product data.
bool asks_by_writing(const char* path) {
    constexpr std::string_view kSpaces[] = {"/sys/bus/pci/", "/proc/bus/pci/"};
    return std::ranges::any_of(
        kSpaces, [&](std::string_view row) { return std::string_view(path).starts_with(row); });
}

template <class Call>
int opened(const char* path, int flags, Call call) {
    if (!host_watch::active()) {
        return call();
    }
    const bool watched = only_reads(flags) || asks_by_writing(path);
    const int descriptor = watched ? on_path(path, -1, call) : call();
    if (watched) {
        remember(descriptor, path);
    }
    return descriptor;
}

mode_t mode_argument(int flags, std::va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, mode_t) : 0;
}

bool is_file(int descriptor) {
    struct stat status {};
    const int reason = errno;
    const bool file = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    errno = reason;
    return file;
}

// step reads at most that many bytes behind those that were read before.
template <class Step>
ssize_t read_whole(int descriptor, std::size_t size, Step step) {
    before_call();
    ssize_t got = step(std::size_t{0}, size);
    auto total = static_cast<std::size_t>(got > 0 ? got : 0);
    const bool goes_on = (got > 0 && total < size) || (got < 0 && errno == EINTR);
    if (goes_on && is_file(descriptor)) {
        do {
            got = step(total, size - total);
            total += static_cast<std::size_t>(got > 0 ? got : 0);
        } while ((got > 0 && total < size) || (got < 0 && errno == EINTR));
    }
    if (got < 0 && *path_of(descriptor) != '\0') {
        note_failure(path_of(descriptor));
    }
    return total > 0 ? static_cast<ssize_t>(total) : got;
}

// A write that is cut short sends another request than the one that was meant.
template <class Call>
ssize_t written(int descriptor, std::size_t size, Call call) {
    if (!host_watch::active() || *path_of(descriptor) == '\0') {
        return call();
    }
    before_call();
    const ssize_t sent = call();
    if (sent >= 0 && static_cast<std::size_t>(sent) < size) {
        errno = EIO;
    }
    if (sent < 0 || static_cast<std::size_t>(sent) < size) {
        note_failure(path_of(descriptor));
    }
    return sent;
}

constinit Next<decltype(::open)> next_open("open");
constinit Next<decltype(::open64)> next_open64("open64");
constinit Next<decltype(::openat)> next_openat("openat");
constinit Next<decltype(::fopen)> next_fopen("fopen");
constinit Next<decltype(::fopen64)> next_fopen64("fopen64");
constinit Next<decltype(::opendir)> next_opendir("opendir");
constinit Next<decltype(::readdir)> next_readdir("readdir");
constinit Next<decltype(::stat)> next_stat("stat");
constinit Next<decltype(::lstat)> next_lstat("lstat");
constinit Next<decltype(::access)> next_access("access");
constinit Next<decltype(::readlink)> next_readlink("readlink");
constinit Next<decltype(::read)> next_read("read");
constinit Next<decltype(::pread)> next_pread("pread");
constinit Next<decltype(::write)> next_write("write");
constinit Next<decltype(::pwrite)> next_pwrite("pwrite");
constinit Next<decltype(::close)> next_close("close");
constinit Next<decltype(::closedir)> next_closedir("closedir");
constinit Next<decltype(::mmap)> next_mmap("mmap");
constinit Next<decltype(::mmap64)> next_mmap64("mmap64");
constinit Next<int(int, unsigned long, void*)> next_ioctl("ioctl");
constinit Next<decltype(::socket)> next_socket("socket");
constinit Next<decltype(::getifaddrs)> next_getifaddrs("getifaddrs");

bool reads_stream(const char* mode) { return *mode == 'r' && std::strchr(mode, '+') == nullptr; }

template <class Call>
FILE* opened_stream(const char* path, const char* mode, Call call) {
    return reads_stream(mode) ? on_path<FILE*>(path, nullptr, call) : call();
}

void note_answer(const ifreq& request, int result) noexcept {
    const int reason = result == 0 ? 0 : errno;
    std::uint32_t command = 0;
    std::memcpy(&command, request.ifr_data, sizeof command);
    const std::string_view name(request.ifr_name, strnlen(request.ifr_name, IFNAMSIZ));
    note([&] {
        host_watch::note_request(name, command, reason);
        if (command == ETHTOOL_GSET && result == 0) {
            ethtool_cmd link;
            std::memcpy(&link, request.ifr_data, sizeof link);
            host_watch::note_speed(name, ethtool_cmd_speed(&link));
        }
    });
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    return opened(path, flags, [=] { return next_open.get()(path, flags, mode); });
}
int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    return opened(path, flags, [=] { return next_open64.get()(path, flags, mode); });
}
int openat(int directory, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    const auto call = [=] { return next_openat.get()(directory, path, flags, mode); };
    if (!host_watch::active() || directory == AT_FDCWD || *path == '/') {
        return opened(path, flags, call);
    }
    std::array<char, 512> whole;
    std::snprintf(whole.data(), whole.size(), "%s/%s", path_of(directory), path);
    return opened(whole.data(), flags, call);
}
int __open_2(const char* path, int flags) {
    return opened(path, flags, [=] { return next_open.get()(path, flags); });
}

FILE* fopen(const char* path, const char* mode) {
    return opened_stream(path, mode, [=] { return next_fopen.get()(path, mode); });
}
FILE* fopen64(const char* path, const char* mode) {
    return opened_stream(path, mode, [=] { return next_fopen64.get()(path, mode); });
}

DIR* opendir(const char* path) {
    DIR* const directory = on_path<DIR*>(path, nullptr, [=] { return next_opendir.get()(path); });
    if (directory != nullptr && host_watch::active()) {
        remember(dirfd(directory), path);
    }
    return directory;
}

// The end of a directory and a failure differ in errno only.
dirent* readdir(DIR* directory) {
    if (!host_watch::active()) {
        return next_readdir.get()(directory);
    }
    before_call();
    const int reason = errno;
    errno = 0;
    dirent* const entry = next_readdir.get()(directory);
    if (entry == nullptr && errno != 0) {
        note_failure(path_of(dirfd(directory)));
    } else {
        errno = reason;
    }
    return entry;
}

int stat(const char* path, struct stat* status) noexcept {
    return on_path(path, -1, [=] { return next_stat.get()(path, status); });
}
int lstat(const char* path, struct stat* status) noexcept {
    return on_path(path, -1, [=] { return next_lstat.get()(path, status); });
}
int access(const char* path, int mode) noexcept {
    return on_path(path, -1, [=] { return next_access.get()(path, mode); });
}

// What is no link is none.
ssize_t readlink(const char* path, char* text, size_t size) noexcept {
    if (!host_watch::active()) {
        return next_readlink.get()(path, text, size);
    }
    before_call();
    const ssize_t length = next_readlink.get()(path, text, size);
    if (length < 0 && errno != EINVAL) {
        note_failure(path);
    }
    return length;
}

ssize_t read(int descriptor, void* buffer, size_t size) {
    const auto step = [=](std::size_t done, std::size_t most) {
        return next_read.get()(descriptor, static_cast<char*>(buffer) + done, most);
    };
    return host_watch::active() ? read_whole(descriptor, size, step) : step(0, size);
}
ssize_t pread(int descriptor, void* buffer, size_t size, off_t offset) {
    const auto step = [=](std::size_t done, std::size_t most) {
        return next_pread.get()(
            descriptor, static_cast<char*>(buffer) + done, most, offset + static_cast<off_t>(done));
    };
    return host_watch::active() ? read_whole(descriptor, size, step) : step(0, size);
}

ssize_t write(int descriptor, const void* data, size_t size) {
    return written(descriptor, size, [=] { return next_write.get()(descriptor, data, size); });
}
ssize_t pwrite(int descriptor, const void* data, size_t size, off_t offset) {
    return written(
        descriptor, size, [=] { return next_pwrite.get()(descriptor, data, size, offset); });
}

// The number may be another file's afterwards.
int close(int descriptor) {
    descriptor_paths::forget(descriptor);
    return next_close.get()(descriptor);
}
int closedir(DIR* directory) {
    descriptor_paths::forget(dirfd(directory));
    return next_closedir.get()(directory);
}

void* mmap(
    void* place, size_t size, int protection, int flags, int descriptor, off_t offset) noexcept {
    const auto call = [=] {
        return next_mmap.get()(place, size, protection, flags, descriptor, offset);
    };
    return descriptor < 0 ? call() : on_path(path_of(descriptor), MAP_FAILED, call);
}
void* mmap64(
    void* place, size_t size, int protection, int flags, int descriptor, off64_t offset) noexcept {
    const auto call = [=] {
        return next_mmap64.get()(place, size, protection, flags, descriptor, offset);
    };
    return descriptor < 0 ? call() : on_path(path_of(descriptor), MAP_FAILED, call);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, request);
    void* const data = va_arg(arguments, void*);
    va_end(arguments);
    if (!host_watch::active() || request != SIOCETHTOOL) {
        return next_ioctl.get()(descriptor, request, data);
    }
    before_call();
    const int result = next_ioctl.get()(descriptor, request, data);
    note_answer(*static_cast<const ifreq*>(data), result);
    return result;
}

int socket(int domain, int type, int protocol) noexcept {
    const auto call = [=] { return next_socket.get()(domain, type, protocol); };
    return domain == AF_INET ? on_path(host_watch::kInterfaceSocket, -1, call) : call();
}

int getifaddrs(ifaddrs** list) noexcept {
    return on_path("interface list", -1, [=] { return next_getifaddrs.get()(list); });
}

#pragma GCC visibility pop

}  // extern "C"
