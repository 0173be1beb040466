// A file that is replaced as a whole: other programs read either the old text or the new text,
// never a part.
#pragma once

#include <string>
#include <string_view>

namespace kx::ctl {

// Writes a file next to it, under a name that no reader of *.prom or *.html uses, and renames it.
// On failure throws Failure and does not change the file.
void replace_file(const std::string& path, std::string_view text);

}  // namespace kx::ctl
