#include "process/tree_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include "process/next.hpp"
#include "process/path_text.hpp"

namespace kxsim::process {

bool replace_content(const Host& host, std::string_view path, std::string_view content) {
    const KeepErrno keep;
    PathText in_tree;
    in_tree.append({host.tree, host.tree_length});
    in_tree.append(path);
    const int file =
        next<"open", decltype(::open)>()(in_tree.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    const ssize_t written =
        next<"write", decltype(::write)>()(file, content.data(), content.size());
    ::close(file);
    return written == static_cast<ssize_t>(content.size());
}

}  // namespace kxsim::process
