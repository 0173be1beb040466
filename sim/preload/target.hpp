// Where a path leads on the simulated host: into its tree, or to the real machine.
#pragma once

#include "preload/interception.hpp"
#include "process/attached.hpp"
#include "process/path_text.hpp"

namespace kxsim::preload {

enum class Intent {
    kUse,     // what is there, behind links
    kLink,    // what is there, be it a link
    kCreate,  // may make what is not there, behind links
    kChange,  // removes, renames, makes, be it a link: what the kernel's file systems refuse
};

class Target {
public:
    // directory as in openat; a path that is null or empty leads where it led.
    Target(int directory, const char* path, Intent intent);

    // What to hand to the C library in the path's place.
    [[nodiscard]] const char* path() const { return target_; }

    // The path on the simulated host, for rules and records; as given when there is no host.
    [[nodiscard]] const char* name() const { return name_; }

    [[nodiscard]] bool simulated() const { return simulated_; }

    // The errno with which the host's permissions refuse this intent or these flags of an open.
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
    int link_error_ = 0;  // why the links on the path lead nowhere
    PathText absolute_;
    PathText in_tree_;
};

// Turn a path in the tree into what it is on the simulated host, in place.
void strip_tree(char* path);

// The simulated path that a descriptor is open on; false when it is none of the host's.
[[nodiscard]] bool simulated_path(const Host& host, int descriptor, PathText& path);

}  // namespace kxsim::preload
