// Calls on a path that neither open nor list it, in all variants.
#include <fcntl.h>
#include <kxsim/preload.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utime.h>

#include <cstdio>
#include <cstdlib>

#include "preload/on_path.hpp"

namespace {

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face
using kxsim::state::Call;

constexpr Kind kAccess{Call::kAccess};
constexpr Kind kChdir{Call::kChdir};
constexpr Kind kChmod{Call::kChmod};
constexpr Kind kChown{Call::kChown};
constexpr Kind kMkdir{Call::kMkdir, Intent::kChange};
constexpr Kind kReadlink{Call::kReadlink, Intent::kLink};
constexpr Kind kRemove{Call::kUnlink, Intent::kChange};
constexpr Kind kRmdir{Call::kRmdir, Intent::kChange};
constexpr Kind kStat{Call::kStat};
constexpr Kind kSymlink{Call::kSymlink, Intent::kChange};
constexpr Kind kTruncate{Call::kTruncate};
constexpr Kind kUtime{Call::kUtime};
constexpr Kind kXattr{Call::kXattr};

// The kind of a call whose flags may select a link itself.
Kind with_flags(Kind kind, int flags) {
    return (flags & AT_SYMLINK_NOFOLLOW) != 0 ? Kind{kind.call, Intent::kLink} : kind;
}

constexpr Kind of_link(Kind kind) { return {kind.call, Intent::kLink}; }

// Two paths: the call is refused when either end refuses it, and rules see the first.
template <class Go>
int on_two_paths(
    Call call, int old_directory, const char* old_path, int new_directory, const char* new_path,
    Intent old_intent, Go go) {
    const Target from(old_directory, old_path, old_intent);
    const Target to(new_directory, new_path, Intent::kChange);
    if (const int error = stopped({call}, from); error != 0) {
        return refuse<int>(error);
    }
    if (const int error = to.refusal(); error != 0) {
        return refuse<int>(error);
    }
    return go(from.path(), to.path());
}

// Turns a path that the C library made from names of the tree into a path of the host.
char* told(char* path) {
    kxsim::preload::strip_tree(path);
    return path;
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

int access(const char* path, int mode) noexcept {
    return on_path<"access", decltype(::access)>(kAccess, path, mode);
}
int eaccess(const char* path, int mode) noexcept {
    return on_path<"eaccess", decltype(::eaccess)>(kAccess, path, mode);
}
int euidaccess(const char* path, int mode) noexcept {
    return on_path<"euidaccess", decltype(::euidaccess)>(kAccess, path, mode);
}
int faccessat(int directory, const char* path, int mode, int flags) noexcept {
    return on_path_at<"faccessat", decltype(::faccessat)>(
        with_flags(kAccess, flags), directory, path, mode, flags);
}

int stat(const char* path, struct stat* status) noexcept {
    return on_path<"stat", decltype(::stat)>(kStat, path, status);
}
int stat64(const char* path, struct stat64* status) noexcept {
    return on_path<"stat64", decltype(::stat64)>(kStat, path, status);
}
int lstat(const char* path, struct stat* status) noexcept {
    return on_path<"lstat", decltype(::lstat)>(of_link(kStat), path, status);
}
int lstat64(const char* path, struct stat64* status) noexcept {
    return on_path<"lstat64", decltype(::lstat64)>(of_link(kStat), path, status);
}
int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    return on_path_at<"fstatat", decltype(::fstatat)>(
        with_flags(kStat, flags), directory, path, status, flags);
}
int fstatat64(int directory, const char* path, struct stat64* status, int flags) noexcept {
    return on_path_at<"fstatat64", decltype(::fstatat64)>(
        with_flags(kStat, flags), directory, path, status, flags);
}
int statx(int directory, const char* path, int flags, unsigned mask, struct statx* out) noexcept {
    return on_path_at<"statx", decltype(::statx)>(
        with_flags(kStat, flags), directory, path, flags, mask, out);
}

// The functions that programs for an older C library call. The version only selects a layout, which
// never changed on this architecture.
int __xstat(int, const char* path, struct stat* status) noexcept { return stat(path, status); }
int __xstat64(int, const char* path, struct stat64* status) noexcept {
    return stat64(path, status);
}
int __lxstat(int, const char* path, struct stat* status) noexcept { return lstat(path, status); }
int __lxstat64(int, const char* path, struct stat64* status) noexcept {
    return lstat64(path, status);
}
int __fxstatat(int, int directory, const char* path, struct stat* status, int flags) noexcept {
    return fstatat(directory, path, status, flags);
}
int __fxstatat64(int, int directory, const char* path, struct stat64* status, int flags) noexcept {
    return fstatat64(directory, path, status, flags);
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    return on_path<"readlink", decltype(::readlink)>(kReadlink, path, buffer, size);
}
ssize_t readlinkat(int directory, const char* path, char* buffer, size_t size) noexcept {
    return on_path_at<"readlinkat", decltype(::readlinkat)>(
        kReadlink, directory, path, buffer, size);
}
ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t) noexcept {
    return readlink(path, buffer, size);
}
ssize_t __readlinkat_chk(
    int directory, const char* path, char* buffer, size_t size, size_t) noexcept {
    return readlinkat(directory, path, buffer, size);
}

char* realpath(const char* path, char* resolved) noexcept {
    return told(on_path<"realpath", decltype(::realpath)>({Call::kRealpath}, path, resolved));
}
char* __realpath_chk(const char* path, char* resolved, size_t) noexcept {
    return realpath(path, resolved);
}
char* canonicalize_file_name(const char* path) noexcept { return realpath(path, nullptr); }

int rename(const char* from, const char* to) noexcept {
    return on_two_paths(
        Call::kRename, AT_FDCWD, from, AT_FDCWD, to, Intent::kChange,
        [](const char* a, const char* b) { return next<"rename", decltype(::rename)>()(a, b); });
}
int renameat(int from_directory, const char* from, int to_directory, const char* to) noexcept {
    return on_two_paths(
        Call::kRename, from_directory, from, to_directory, to, Intent::kChange,
        [=](const char* a, const char* b) {
            return next<"renameat", decltype(::renameat)>()(from_directory, a, to_directory, b);
        });
}
int renameat2(
    int from_directory, const char* from, int to_directory, const char* to,
    unsigned flags) noexcept {
    return on_two_paths(
        Call::kRename, from_directory, from, to_directory, to, Intent::kChange,
        [=](const char* a, const char* b) {
            return next<"renameat2", decltype(::renameat2)>()(
                from_directory, a, to_directory, b, flags);
        });
}
int link(const char* from, const char* to) noexcept {
    return on_two_paths(
        Call::kLink, AT_FDCWD, from, AT_FDCWD, to, Intent::kLink,
        [](const char* a, const char* b) { return next<"link", decltype(::link)>()(a, b); });
}
int linkat(
    int from_directory, const char* from, int to_directory, const char* to, int flags) noexcept {
    return on_two_paths(
        Call::kLink, from_directory, from, to_directory, to,
        (flags & AT_SYMLINK_FOLLOW) != 0 ? Intent::kUse : Intent::kLink,
        [=](const char* a, const char* b) {
            return next<"linkat", decltype(::linkat)>()(from_directory, a, to_directory, b, flags);
        });
}
// The text of a link is not a path to follow here; only the path of the link is redirected.
int symlink(const char* text, const char* path) noexcept {
    const Target place(AT_FDCWD, path, Intent::kChange);
    const int error = stopped(kSymlink, place);
    return error != 0 ? refuse<int>(error)
                      : next<"symlink", decltype(::symlink)>()(text, place.path());
}
int symlinkat(const char* text, int directory, const char* path) noexcept {
    const Target place(directory, path, Intent::kChange);
    const int error = stopped(kSymlink, place);
    return error != 0 ? refuse<int>(error)
                      : next<"symlinkat", decltype(::symlinkat)>()(text, directory, place.path());
}

int unlink(const char* path) noexcept {
    return on_path<"unlink", decltype(::unlink)>(kRemove, path);
}
int unlinkat(int directory, const char* path, int flags) noexcept {
    return on_path_at<"unlinkat", decltype(::unlinkat)>(kRemove, directory, path, flags);
}
int remove(const char* path) noexcept {
    return on_path<"remove", decltype(::remove)>(kRemove, path);
}
int mkdir(const char* path, mode_t mode) noexcept {
    return on_path<"mkdir", decltype(::mkdir)>(kMkdir, path, mode);
}
int mkdirat(int directory, const char* path, mode_t mode) noexcept {
    return on_path_at<"mkdirat", decltype(::mkdirat)>(kMkdir, directory, path, mode);
}
int rmdir(const char* path) noexcept { return on_path<"rmdir", decltype(::rmdir)>(kRmdir, path); }

int chmod(const char* path, mode_t mode) noexcept {
    return on_path<"chmod", decltype(::chmod)>(kChmod, path, mode);
}
int fchmodat(int directory, const char* path, mode_t mode, int flags) noexcept {
    return on_path_at<"fchmodat", decltype(::fchmodat)>(
        with_flags(kChmod, flags), directory, path, mode, flags);
}
int chown(const char* path, uid_t owner, gid_t group) noexcept {
    return on_path<"chown", decltype(::chown)>(kChown, path, owner, group);
}
int lchown(const char* path, uid_t owner, gid_t group) noexcept {
    return on_path<"lchown", decltype(::lchown)>(of_link(kChown), path, owner, group);
}
int fchownat(int directory, const char* path, uid_t owner, gid_t group, int flags) noexcept {
    return on_path_at<"fchownat", decltype(::fchownat)>(
        with_flags(kChown, flags), directory, path, owner, group, flags);
}

int truncate(const char* path, off_t length) noexcept {
    return on_path<"truncate", decltype(::truncate)>(kTruncate, path, length);
}
int truncate64(const char* path, off64_t length) noexcept {
    return on_path<"truncate64", decltype(::truncate64)>(kTruncate, path, length);
}

int utime(const char* path, const struct utimbuf* times) noexcept {
    return on_path<"utime", decltype(::utime)>(kUtime, path, times);
}
int utimes(const char* path, const struct timeval times[2]) noexcept {
    return on_path<"utimes", decltype(::utimes)>(kUtime, path, times);
}
int lutimes(const char* path, const struct timeval times[2]) noexcept {
    return on_path<"lutimes", decltype(::lutimes)>(of_link(kUtime), path, times);
}
int futimesat(int directory, const char* path, const struct timeval times[2]) noexcept {
    return on_path_at<"futimesat", decltype(::futimesat)>(kUtime, directory, path, times);
}
int utimensat(int directory, const char* path, const struct timespec times[2], int flags) noexcept {
    return on_path_at<"utimensat", decltype(::utimensat)>(
        with_flags(kUtime, flags), directory, path, times, flags);
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept {
    return on_path<"getxattr", decltype(::getxattr)>(kXattr, path, name, value, size);
}
ssize_t lgetxattr(const char* path, const char* name, void* value, size_t size) noexcept {
    return on_path<"lgetxattr", decltype(::lgetxattr)>(of_link(kXattr), path, name, value, size);
}
ssize_t listxattr(const char* path, char* list, size_t size) noexcept {
    return on_path<"listxattr", decltype(::listxattr)>(kXattr, path, list, size);
}
ssize_t llistxattr(const char* path, char* list, size_t size) noexcept {
    return on_path<"llistxattr", decltype(::llistxattr)>(of_link(kXattr), path, list, size);
}

int name_to_handle_at(
    int directory, const char* path, struct file_handle* handle, int* mount, int flags) noexcept {
    return on_path_at<"name_to_handle_at", decltype(::name_to_handle_at)>(
        (flags & AT_SYMLINK_FOLLOW) != 0 ? kStat : of_link(kStat), directory, path, handle, mount,
        flags);
}

int chdir(const char* path) noexcept { return on_path<"chdir", decltype(::chdir)>(kChdir, path); }

char* getcwd(char* buffer, size_t size) noexcept {
    return told(next<"getcwd", decltype(::getcwd)>()(buffer, size));
}
char* __getcwd_chk(char* buffer, size_t size, size_t) noexcept { return getcwd(buffer, size); }
char* get_current_dir_name() noexcept { return getcwd(nullptr, 0); }

#pragma GCC visibility pop

}  // extern "C"
