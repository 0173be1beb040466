// Calls that open a path: descriptors, streams and directories.
#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "preload/flushed_files.hpp"
#include "preload/listing.hpp"
#include "preload/on_path.hpp"

namespace {

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face
using kxsim::state::Call;

bool creates(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

// O_NOFOLLOW, and O_CREAT with O_EXCL, do not follow a link at the end of the path.
Intent intent_of(int flags) {
    constexpr int kNewFile = O_CREAT | O_EXCL;
    const bool keeps_link = (flags & O_NOFOLLOW) != 0 || (flags & kNewFile) == kNewFile;
    if (creates(flags)) {
        return keeps_link ? Intent::kChange : Intent::kCreate;
    }
    if (keeps_link) {
        return Intent::kLink;
    }
    return (flags & O_DIRECTORY) != 0 ? Intent::kHold : Intent::kUse;
}

// A descriptor of a directory that the real machine has too is the tree's. It is to list the same
// entries as opendir: the real ones.
void turn_to_listed(int descriptor) {
    Host* const on = host();
    PathText path;
    if (on == nullptr || !simulated_path(*on, descriptor, path) ||
        Target(AT_FDCWD, path.c_str(), Intent::kUse).simulated()) {
        return;
    }
    const KeepErrno keep;
    const int real =
        next<"open", decltype(::open)>()(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (real >= 0) {
        ::dup3(real, descriptor, O_CLOEXEC);  // as fdopendir leaves it
        ::close(real);
    }
}

int stopped_open(Call call, const Target& target, int flags) {
    if (const int error = intercept(call, target.name(), static_cast<unsigned>(flags));
        error != 0) {
        return error;
    }
    const int error = target.refusal(flags);
    if (error != 0) {
        note_refusal(error);
    }
    return error;
}

template <FunctionName kName, class Function>
int open_path(const char* path, int flags, mode_t mode) {
    const Target target(AT_FDCWD, path, intent_of(flags));
    if (const int error = stopped_open(Call::kOpen, target, flags); error != 0) {
        return refuse<int>(error);
    }
    return opened(next<kName, Function>()(target.path(), flags, mode));
}

template <FunctionName kName, class Function>
int open_path_at(int directory, const char* path, int flags, mode_t mode) {
    const Target target(directory, path, intent_of(flags));
    if (const int error = stopped_open(Call::kOpen, target, flags); error != 0) {
        return refuse<int>(error);
    }
    return opened(next<kName, Function>()(directory, target.path(), flags, mode));
}

// The flags of a stream's mode.
int stream_flags(const char* mode) {
    bool update = false;
    for (const char* letter = mode; *letter != '\0' && *letter != ','; ++letter) {
        update = update || *letter == '+';
    }
    const int access = update ? O_RDWR : O_WRONLY;
    switch (*mode) {
        case 'w':
            return access | O_CREAT | O_TRUNC;
        case 'a':
            return access | O_CREAT | O_APPEND;
        default:
            return update ? O_RDWR : O_RDONLY;
    }
}

FILE* opened_stream(FILE* stream) {
    if (stream != nullptr) {
        opened(::fileno(stream));
    }
    return stream;
}

template <FunctionName kName, class Function>
FILE* open_stream(const char* path, const char* mode) {
    const int flags = stream_flags(mode);
    const Target target(AT_FDCWD, path, intent_of(flags));
    if (const int error = stopped_open(Call::kFopen, target, flags); error != 0) {
        return refuse<FILE*>(error);
    }
    return opened_stream(next<kName, Function>()(target.path(), mode));
}

// A stream that cannot be opened again is closed anyway.
template <FunctionName kName, class Function>
FILE* reopen_stream(const char* path, const char* mode, FILE* stream) {
    const int flags = stream_flags(mode);
    const Target target(AT_FDCWD, path, intent_of(flags));
    if (const int error = stopped_open(Call::kFreopen, target, flags); error != 0) {
        next<"fclose", decltype(::fclose)>()(stream);
        return refuse<FILE*>(error);
    }
    return opened_stream(next<kName, Function>()(target.path(), mode, stream));
}

// The C library matches patterns; it can use our functions to read directories.
template <FunctionName kName, class Function, class Entry, class Found, class Read, class Look>
int glob_on_host(
    const char* pattern, int flags, int (*on_error)(const char*, int), Found* found, Read read,
    Look look, Look look_at_link) {
    if (host() == nullptr || (flags & GLOB_ALTDIRFUNC) != 0) {
        return next<kName, Function>()(pattern, flags, on_error, found);
    }
    found->gl_opendir = [](const char* path) -> void* { return ::opendir(path); };
    found->gl_closedir = [](void* directory) { ::closedir(static_cast<DIR*>(directory)); };
    found->gl_readdir = reinterpret_cast<Entry* (*)(void*)>(read);
    found->gl_stat = look;
    found->gl_lstat = look_at_link;
    return next<kName, Function>()(pattern, flags | GLOB_ALTDIRFUNC, on_error, found);
}

// The mode argument exists only when the flags create a file.
mode_t mode_argument(int flags, va_list arguments) {
    return creates(flags) ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    return open_path<"open", decltype(::open)>(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    return open_path<"open64", decltype(::open64)>(path, flags, mode);
}
int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    return open_path_at<"openat", decltype(::openat)>(directory, path, flags, mode);
}
int openat64(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    return open_path_at<"openat64", decltype(::openat64)>(directory, path, flags, mode);
}

// The form of open in a program that was built with checks, without a mode.
int __open_2(const char* path, int flags) {
    return open_path<"open", decltype(::open)>(path, flags, 0);
}
int __open64_2(const char* path, int flags) {
    return open_path<"open64", decltype(::open64)>(path, flags, 0);
}
int __openat_2(int directory, const char* path, int flags) {
    return open_path_at<"openat", decltype(::openat)>(directory, path, flags, 0);
}
int __openat64_2(int directory, const char* path, int flags) {
    return open_path_at<"openat64", decltype(::openat64)>(directory, path, flags, 0);
}

int creat(const char* path, mode_t mode) {
    return open_path<"open", decltype(::open)>(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}
int creat64(const char* path, mode_t mode) {
    return open_path<"open64", decltype(::open64)>(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

FILE* fopen(const char* path, const char* mode) {
    return open_stream<"fopen", decltype(::fopen)>(path, mode);
}
FILE* fopen64(const char* path, const char* mode) {
    return open_stream<"fopen64", decltype(::fopen64)>(path, mode);
}
FILE* freopen(const char* path, const char* mode, FILE* stream) {
    return reopen_stream<"freopen", decltype(::freopen)>(path, mode, stream);
}
FILE* freopen64(const char* path, const char* mode, FILE* stream) {
    return reopen_stream<"freopen64", decltype(::freopen64)>(path, mode, stream);
}

DIR* opendir(const char* path) {
    const Target target(AT_FDCWD, path, Intent::kUse);
    if (const int error = stopped_open(Call::kOpendir, target, O_RDONLY | O_DIRECTORY);
        error != 0) {
        return refuse<DIR*>(error);
    }
    return listed(next<"opendir", decltype(::opendir)>()(target.path()));
}
DIR* fdopendir(int descriptor) {
    turn_to_listed(descriptor);
    return listed(next<"fdopendir", decltype(::fdopendir)>()(descriptor));
}

// Sorts by its own comparison, so the order of the host has no effect.
int scandir(
    const char* path, dirent*** list, int (*select)(const dirent*),
    int (*compare)(const dirent**, const dirent**)) {
    return on_path<"scandir", decltype(::scandir)>({Call::kOpendir}, path, list, select, compare);
}
int scandir64(
    const char* path, dirent64*** list, int (*select)(const dirent64*),
    int (*compare)(const dirent64**, const dirent64**)) {
    return on_path<"scandir64", decltype(::scandir64)>(
        {Call::kOpendir}, path, list, select, compare);
}

int glob(
    const char* pattern, int flags, int (*on_error)(const char* path, int error), glob_t* found) {
    return glob_on_host<"glob", decltype(::glob), dirent>(
        pattern, flags, on_error, found, ::readdir, ::stat, ::lstat);
}
int glob64(
    const char* pattern, int flags, int (*on_error)(const char* path, int error), glob64_t* found) {
    return glob_on_host<"glob64", decltype(::glob64), dirent64>(
        pattern, flags, on_error, found, ::readdir64, ::stat64, ::lstat64);
}

#pragma GCC visibility pop

}  // extern "C"
