// A private network namespace and a private /etc, so that tests can change real interfaces and
// files. Those of the machine do not change.
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/scratch_directory.hpp"
#include "support/shell.hpp"

namespace test {

// Move this process and its children there. Returns the reason why that is impossible, or an empty
// text.
inline std::string enter_private_network() {
    if (geteuid() != 0) {
        return "only root can make a network of its own";
    }
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) {
        return std::string("no network of its own: ") + std::strerror(errno);
    }
    const auto failure = [] { return std::string("no files of its own: ") + std::strerror(errno); };
    const ScratchDirectory directory;
    const char* const path = directory.path().c_str();
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0 ||
        mount("tmpfs", path, "tmpfs", 0, nullptr) != 0) {
        return failure();
    }
    if (mount(path, "/etc", nullptr, MS_MOVE, nullptr) != 0) {
        const std::string reason = failure();
        umount(path);
        return reason;
    }
    return "";
}

// Run a command that must succeed; what it printed.
inline std::string must(const std::string& command) {
    const ShellResult result = shell(command + " 2>&1");
    if (result.status != 0) {
        std::fprintf(stderr, "%s\n%s", command.c_str(), result.output.c_str());
        std::abort();
    }
    return result.output;
}

}  // namespace test
