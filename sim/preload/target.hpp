// Resolves a path on the simulated host: into its tree, or to the real machine.
#pragma once

#include "preload/interception.hpp"
#include "process/attached.hpp"
#include "process/path_text.hpp"

namespace kxsim::preload {

enum class Intent {
    kUse,     // an existing file; links are followed
    kLink,    // an existing file or link; links are not followed
    kHold,    // an existing directory, to flush it or lock it; links are followed
    kCreate,  // may create a missing file; links are followed
    kChange,  // removes, renames or creates a file or link: the kernel's file systems refuse it
};

class Target {
public:
    // directory as in openat; a null or empty path is not changed.
    Target(int directory, const char* path, Intent intent);

    // The path to pass to the C library.
    [[nodiscard]] const char* path() const { return target_; }

    // The path on the simulated host, for rules and records; the given path when there is no host.
    [[nodiscard]] const char* name() const { return name_; }

    [[nodiscard]] bool simulated() const { return simulated_; }

    // The errno with which the host's permissions refuse this kind of access, or these flags of an
    // open.
    [[nodiscard]] int refusal() const;
    [[nodiscard]] int refusal(int open_flags) const;

private:
    void decide(const Host& host, Intent intent);
    void lead_into_tree(const Host& host, Intent intent);
    [[nodiscard]] bool changes_kernel(int open_flags) const;

    const char* target_;
    const char* name_;
    Intent intent_;
    bool simulated_ = false;
    int link_error_ = 0;  // the errno of following the links on the path
    PathText absolute_;
    PathText in_tree_;
};

// Turn a path in the tree into the path on the simulated host, in place.
void strip_tree(char* path);

// The path of a descriptor on the simulated host; false when the file does not belong to the host.
[[nodiscard]] bool simulated_path(const Host& host, int descriptor, PathText& path);

}  // namespace kxsim::preload
