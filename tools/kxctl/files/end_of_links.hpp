// Symbolic links in place of a file.
#pragma once

#include <string>

namespace kx::ctl {

// The file to which a path leads, link by link; it may be absent. The library keeps such links when
// it rewrites a file. Throws Failure when the links form a circle.
[[nodiscard]] std::string end_of_links(const std::string& path);

}  // namespace kx::ctl
