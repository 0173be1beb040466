// A file that others read while it is made anew: they find the old text or the new one, never half
// of one.
#pragma once

#include <string>
#include <string_view>

namespace kx::ctl {

// Written under another name beside it, which no reader of *.prom or *.html takes, then renamed.
// Throws Failure and leaves the file as it was when that cannot be done.
void replace_file(const std::string& path, std::string_view text);

}  // namespace kx::ctl
