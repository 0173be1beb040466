// Links in a simulated host's tree.
#pragma once

#include <string_view>

#include "process/attached.hpp"
#include "process/path_text.hpp"

namespace kxsim::preload {

enum class LastLink {
    kFollow,
    kKeep,  // the call is about the link itself
};

// Follow the links on a path of the simulated host as if its tree were the whole file system: "/"
// at the beginning of a link is the tree, and ".." does not lead out of it. resolved: the resulting
// path on the host. Returns 0, ELOOP, or ENAMETOOLONG.
[[nodiscard]] int follow_links(
    const process::Host& host, std::string_view path, LastLink last, process::PathText& resolved);

}  // namespace kxsim::preload
