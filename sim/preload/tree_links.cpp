#include "preload/tree_links.hpp"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "process/next.hpp"

namespace kxsim::preload {
namespace {

using process::Host;
using process::next;
using process::PathText;

constexpr int kMostLinks = 40;  // the kernel's limit

// The part of a path that is not processed yet.
class Rest {
public:
    explicit Rest(std::string_view path) : length_(path.size()), too_long_(length_ > sizeof text_) {
        length_ = too_long_ ? 0 : length_;
        std::memcpy(text_, path.data(), length_);
    }

    [[nodiscard]] bool too_long() const { return too_long_; }
    [[nodiscard]] std::string_view left() const { return {text_ + at_, length_ - at_}; }

    // Remove and return the next name; empty at the end.
    [[nodiscard]] std::string_view next_name() {
        skip_slashes();
        const std::size_t begin = at_;
        while (at_ < length_ && text_[at_] != '/') {
            ++at_;
        }
        const std::string_view name(text_ + begin, at_ - begin);
        skip_slashes();
        return name;
    }

    // Insert the target of a link before the rest.
    void put_in_front(std::string_view link) {
        const std::size_t left_length = length_ - at_;
        if (link.size() + 1 + left_length > sizeof text_) {
            too_long_ = true;
            return;
        }
        std::memmove(text_ + link.size() + 1, text_ + at_, left_length);
        std::memcpy(text_, link.data(), link.size());
        text_[link.size()] = '/';
        length_ = link.size() + 1 + left_length;
        at_ = 0;
    }

private:
    void skip_slashes() {
        while (at_ < length_ && text_[at_] == '/') {
            ++at_;
        }
    }

    std::size_t length_;
    std::size_t at_ = 0;
    bool too_long_;
    char text_[PATH_MAX];
};

// The text of a link in the tree; 0 when it is not a link, negative when it is missing.
ssize_t read_link(const Host& host, const PathText& path, char (&text)[PATH_MAX]) {
    PathText in_tree;
    in_tree.append({host.tree, host.tree_length});
    in_tree.append(path.view());
    const ssize_t length = in_tree.too_long() ? -1
                                              : next<"readlink", decltype(::readlink)>()(
                                                    in_tree.c_str(), text, sizeof text);
    return length < 0 && errno == EINVAL ? 0 : length;
}

// Whether the kernel finds the path, or the missing part of it, without following a link. Most
// paths have none, and this takes fewer calls than to look at each name. False also when a kernel
// without this call, or anything else, prevents an answer.
bool has_no_link(const Host& host, std::string_view path, LastLink last) {
    while (last == LastLink::kKeep && !path.empty() && path.back() != '/') {
        path.remove_suffix(1);
    }
    PathText in_tree;
    in_tree.append({host.tree, host.tree_length});
    in_tree.append(path);
    if (in_tree.too_long()) {
        return false;
    }
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long file = ::syscall(SYS_openat2, AT_FDCWD, in_tree.c_str(), &how, sizeof how);
    if (file < 0) {
        return errno == ENOENT || errno == ENOTDIR;
    }
    ::close(static_cast<int>(file));
    return true;
}

}  // namespace

int follow_links(const Host& host, std::string_view path, LastLink last, PathText& resolved) {
    resolved.clear();
    if (has_no_link(host, path, last)) {
        resolved.walk(path);
        resolved.finish();
        return resolved.too_long() ? ENAMETOOLONG : 0;
    }
    Rest rest(path);
    int links = 0;
    for (;;) {
        const std::string_view name = rest.next_name();
        if (rest.too_long() || resolved.too_long()) {
            return ENAMETOOLONG;
        }
        if (name.empty()) {
            break;
        }
        resolved.walk(name);
        if (name == "." || name == ".." || (rest.left().empty() && last == LastLink::kKeep)) {
            continue;
        }
        char link[PATH_MAX];
        const ssize_t length = read_link(host, resolved, link);
        if (length < 0) {
            resolved.walk(rest.left());  // there is nothing below a missing directory
            break;
        }
        if (length == 0) {
            continue;
        }
        if (++links > kMostLinks) {
            return ELOOP;
        }
        if (link[0] == '/') {
            resolved.clear();
        } else {
            resolved.walk("..");
        }
        rest.put_in_front({link, static_cast<std::size_t>(length)});
    }
    resolved.finish();
    return resolved.too_long() ? ENAMETOOLONG : 0;
}

}  // namespace kxsim::preload
