// Files below a directory, reached without following a link: not even a link that another process
// puts in the way at the same time. A place is a path below the directory `top` (an open
// descriptor), such as "/a/b", without ".." in it; the directory itself is empty.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "support/handle.hpp"

namespace kxsim {

// As open(). Nothing, and errno, when there is a link on the way or at the end (ELOOP, ENOTDIR).
[[nodiscard]] kx::Descriptor open_beneath(
    int top, std::string_view place, int flags, mode_t mode = 0);

// The same name by name, for kernels without openat2.
[[nodiscard]] kx::Descriptor open_by_steps(
    int top, std::string_view place, int flags, mode_t mode = 0);

// A directory entry: its name in an open directory. Calls on it do not follow a link there.
struct Entry {
    Entry(int top, const std::string& place);

    kx::Descriptor directory;  // nothing, and errno, when it cannot be opened
    std::string name;
};

// Removes an entry with everything below it, of which links are removed and not followed. An entry
// that is missing is no failure. Throws std::system_error.
void remove_entry(const Entry& entry);

}  // namespace kxsim
