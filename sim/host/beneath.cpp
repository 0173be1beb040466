#include "host/beneath.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "host/fail_with_errno.hpp"

namespace kxsim {
namespace {

constexpr int kOpenDirectory = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// A place as a path that begins in its directory.
std::string relative(std::string_view place) {
    return place.empty() ? "." : std::string(place.substr(1));
}

// A seccomp filter that does not know the call refuses it with EPERM.
bool lacks_openat2() { return errno == ENOSYS || errno == EPERM; }

std::vector<std::string> names_in(int directory) {
    const kx::Descriptor opened(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    kx::Descriptor copy(opened ? ::dup(opened.get()) : -1);
    const kx::Directory stream(copy ? ::fdopendir(copy.get()) : nullptr);
    std::vector<std::string> names;
    if (stream == nullptr) {
        return names;
    }
    static_cast<void>(copy.release());  // the stream closes it
    while (const dirent* const entry = ::readdir(stream.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    return names;
}

void remove_below(int directory, const std::string& name) {
    if (::unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT) {
        return;
    }
    const int reason = errno;
    const kx::Descriptor below(::openat(directory, name.c_str(), kOpenDirectory));
    if (!below) {
        errno = reason;
        fail_with_errno(name);
    }
    for (const std::string& each : names_in(below.get())) {
        remove_below(below.get(), each);
    }
    if (::unlinkat(directory, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
        fail_with_errno(name);
    }
}

}  // namespace

kx::Descriptor open_beneath(int top, std::string_view place, int flags, mode_t mode) {
    open_how how{};
    how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
    how.mode = mode;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const long opened = ::syscall(SYS_openat2, top, relative(place).c_str(), &how, sizeof how);
    return opened < 0 && lacks_openat2() ? open_by_steps(top, place, flags, mode)
                                         : kx::Descriptor(static_cast<int>(opened));
}

kx::Descriptor open_by_steps(int top, std::string_view place, int flags, mode_t mode) {
    kx::Descriptor at;
    std::string rest = relative(place);
    for (std::size_t end = rest.find('/'); end != rest.npos; end = rest.find('/')) {
        const int from = at ? at.get() : top;
        at = kx::Descriptor(::openat(from, rest.substr(0, end).c_str(), kOpenDirectory));
        if (!at) {
            return at;
        }
        rest.erase(0, end + 1);
    }
    const int from = at ? at.get() : top;
    return kx::Descriptor(::openat(from, rest.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode));
}

Entry::Entry(int top, const std::string& place)
    : directory(open_beneath(top, place.substr(0, place.rfind('/')), kOpenDirectory)),
      name(place.substr(place.rfind('/') + 1)) {}

void remove_entry(const Entry& entry) {
    if (entry.directory) {
        remove_below(entry.directory.get(), entry.name);
    } else if (errno != ENOENT) {
        fail_with_errno(entry.name);
    }
}

}  // namespace kxsim
