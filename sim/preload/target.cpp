#include "preload/target.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "preload/tree_links.hpp"
#include "process/next.hpp"
#include "process/owned_paths.hpp"

namespace kxsim::preload {
namespace {

bool look_at(const char* path, struct stat& status) {
    return next<"lstat", decltype(::lstat)>()(path, &status) == 0;
}

bool exists(const char* path) {
    struct stat status {};
    return look_at(path, status);
}

// The kernel's path of a descriptor.
std::string_view descriptor_path(int descriptor, char (&buffer)[PATH_MAX]) {
    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length =
        next<"readlink", decltype(::readlink)>()(link, buffer, sizeof buffer - 1);
    return {buffer, length < 0 ? 0 : static_cast<std::size_t>(length)};
}

std::string_view base_directory(int directory, char (&buffer)[PATH_MAX]) {
    if (directory != AT_FDCWD) {
        return descriptor_path(directory, buffer);
    }
    const char* const current = next<"getcwd", decltype(::getcwd)>()(buffer, sizeof buffer);
    return current == nullptr ? std::string_view() : std::string_view(current);
}

// The root and the kernel's directories are only steps to what is below them.
bool holds_files(std::string_view directory) {
    return directory != "/" && !is_kernel_path(directory);
}

bool makes(Intent intent) { return intent == Intent::kCreate || intent == Intent::kChange; }

}  // namespace

Target::Target(int directory, const char* path, Intent intent)
    : target_(path), name_(path == nullptr ? "" : path), intent_(intent) {
    const Host* const on = host();
    if (on == nullptr || path == nullptr || *path == '\0') {
        return;
    }
    const KeepErrno keep;
    const std::string_view tree(on->tree, on->tree_length);
    const std::string_view root(on->tree, on->root_length);
    bool from_tree = false;
    if (*path != '/') {
        char buffer[PATH_MAX];
        std::string_view base = base_directory(directory, buffer);
        if (base.empty() || base.front() != '/') {
            return;
        }
        if (is_in(base, tree)) {
            base.remove_prefix(tree.size());
            from_tree = true;
        }
        absolute_.walk(base);
    }
    absolute_.walk(path);
    absolute_.finish();
    if (absolute_.too_long() || is_in(absolute_.view(), root)) {
        return;
    }
    name_ = absolute_.c_str();
    decide(*on, intent);
    if (simulated_) {
        target_ = in_tree_.c_str();
    } else if (from_tree) {
        target_ = name_;  // the tree has other entries than the real directory
    }
}

void Target::decide(const Host& host, Intent intent) {
    lead_into_tree(host, intent);
    if (in_tree_.too_long()) {
        return;
    }
    if (link_error_ != 0) {
        simulated_ = true;
        return;
    }
    if (is_owned(absolute_.view())) {
        simulated_ = true;
        return;
    }
    struct stat status {};
    if (look_at(in_tree_.c_str(), status)) {
        simulated_ = !S_ISDIR(status.st_mode) || !exists(name_) ||
                     (intent == Intent::kHold && holds_files(absolute_.view()));
    } else if (makes(intent) && absolute_.parent() != "/") {
        // A file that is created next to simulated files must not be created in the real directory.
        PathText parent;
        parent.append(in_tree_.parent());
        simulated_ = exists(parent.c_str()) && !exists(name_);
    }
}

void Target::lead_into_tree(const Host& host, Intent intent) {
    PathText resolved;
    const bool keep = intent == Intent::kLink || intent == Intent::kChange;
    link_error_ =
        follow_links(host, absolute_.view(), keep ? LastLink::kKeep : LastLink::kFollow, resolved);
    in_tree_.append({host.tree, host.tree_length});
    in_tree_.append(resolved.view());
}

int Target::refusal() const {
    if (link_error_ != 0) {
        return link_error_;
    }
    return simulated_ && intent_ == Intent::kChange && is_kernel_path(absolute_.view()) ? EPERM : 0;
}

// A process on a simulated host does not change the settings of the real machine's kernel.
bool Target::changes_kernel(int open_flags) const {
    return host() != nullptr && (open_flags & O_ACCMODE) != O_RDONLY &&
           (is_in(name_, "/proc/sys") || is_in(name_, "/sys"));
}

int Target::refusal(int open_flags) const {
    if (!simulated_) {
        return changes_kernel(open_flags) ? EACCES : 0;
    }
    if (link_error_ != 0) {
        return link_error_;
    }
    const KeepErrno keep;
    const bool of_kernel = is_kernel_path(absolute_.view());
    struct stat status {};
    if (next<"stat", decltype(::stat)>()(target_, &status) != 0) {
        if (!of_kernel || (open_flags & O_CREAT) == 0) {
            return 0;
        }
        PathText parent;
        parent.append(in_tree_.parent());
        return exists(parent.c_str()) ? EACCES : ENOENT;
    }
    if ((open_flags & O_PATH) != 0) {
        return 0;
    }
    const int access = open_flags & O_ACCMODE;
    const bool no_reader = (status.st_mode & 0444U) == 0;
    const bool no_writer = (status.st_mode & 0222U) == 0;
    const bool refused = (access != O_WRONLY && no_reader) ||
                         (access != O_RDONLY && no_writer && (of_kernel || no_reader));
    return refused ? EACCES : 0;
}

void strip_tree(char* path) {
    const Host* const on = host();
    if (on == nullptr || path == nullptr) {
        return;
    }
    const std::string_view text(path);
    if (!is_in(text, {on->tree, on->tree_length})) {
        return;
    }
    if (text.size() == on->tree_length) {
        path[1] = '\0';  // the tree's own path begins with a slash
        return;
    }
    std::memmove(path, path + on->tree_length, text.size() - on->tree_length + 1);
}

bool simulated_path(const Host& host, int descriptor, PathText& path) {
    const KeepErrno keep;
    struct stat status {};
    if (next<"fstat", decltype(::fstat)>()(descriptor, &status) != 0 ||
        status.st_dev != host.device) {
        return false;
    }
    char buffer[PATH_MAX];
    std::string_view real = descriptor_path(descriptor, buffer);
    if (!is_in(real, {host.tree, host.tree_length})) {
        return false;
    }
    real.remove_prefix(host.tree_length);
    path.clear();
    path.append(real);
    path.finish();
    return true;
}

}  // namespace kxsim::preload
