// The kinds of calls that the simulated host counts and can make fail.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace kxsim::state {

// Each includes all variants of a call: kOpen includes open, open64, openat, creat and so on.
enum class Call : std::uint16_t {
    kAccess,
    kCalloc,
    kChdir,
    kChmod,
    kChown,
    kFclose,
    kFflush,
    kFopen,
    kFreopen,
    kFsync,
    kGetifaddrs,
    kIoctl,
    kLibvirt,
    kLink,
    kMalloc,
    kMkdir,
    kMmap,
    kOpen,
    kOpendir,
    kRead,
    kReaddir,
    kReadlink,
    kRealloc,
    kRealpath,
    kRename,
    kRmdir,
    kSocket,
    kStat,
    kSymlink,
    kTruncate,
    kUnlink,
    kUsleep,
    kUtime,
    kWrite,
    kXattr,
    kCount,
    kFile = kCount,  // of a rule: every kind that is_file_call names
};

inline constexpr std::size_t kCallCount = static_cast<std::size_t>(Call::kCount);

// By kind; also the names that fault rules and counters use.
inline constexpr std::array<std::string_view, kCallCount> kCallNames{
    "access",   "calloc",   "chdir",    "chmod",      "chown",   "fclose",  "fflush",
    "fopen",    "freopen",  "fsync",    "getifaddrs", "ioctl",   "libvirt", "link",
    "malloc",   "mkdir",    "mmap",     "open",       "opendir", "read",    "readdir",
    "readlink", "realloc",  "realpath", "rename",     "rmdir",   "socket",  "stat",
    "symlink",  "truncate", "unlink",   "usleep",     "utime",   "write",   "xattr",
};

static_assert(!kCallNames.back().empty(), "every kind of call has a name");

// Calls that open files, move their bytes, flush them or change them: what a broken disk or a power
// cut makes fail.
constexpr bool is_file_call(Call call) {
    switch (call) {
        case Call::kChmod:
        case Call::kChown:
        case Call::kFclose:
        case Call::kFflush:
        case Call::kFopen:
        case Call::kFreopen:
        case Call::kFsync:
        case Call::kLink:
        case Call::kMkdir:
        case Call::kOpen:
        case Call::kRead:
        case Call::kRename:
        case Call::kRmdir:
        case Call::kSymlink:
        case Call::kTruncate:
        case Call::kUnlink:
        case Call::kWrite:
            return true;
        default:
            return false;
    }
}

// The name of all of these together.
inline constexpr std::string_view kFileCallsName = "file";

// All code uses memory, so these fail only while a window is open, or in a program that a rule
// names.
constexpr bool is_allocation(Call call) {
    return call == Call::kMalloc || call == Call::kCalloc || call == Call::kRealloc;
}

}  // namespace kxsim::state
