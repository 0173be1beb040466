#include "preload/tree_links.hpp"

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

}  // namespace

int follow_links(const Host& host, std::string_view path, LastLink last, PathText& resolved) {
    Rest rest(path);
    resolved.clear();
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
