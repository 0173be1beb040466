// A private directory for one run of a program, which the next run removes when this one cannot.
// The programs of this project use it; the library does not.
#pragma once

#include <filesystem>
#include <string_view>

#include "support/handle.hpp"

namespace kx {

// While this object exists, no other run removes the directory. The lock ends with the process,
// even when the process crashes.
class LockedDirectory {
public:
    // Make the directory PREFIX-locked-XXXXXX with mode 0700 below `parent`. Throws
    // std::system_error.
    LockedDirectory(std::string_view prefix, const std::filesystem::path& parent);

    // Remove the directory and its content. Links are not followed, and failures are ignored.
    ~LockedDirectory();
    LockedDirectory(const LockedDirectory&) = delete;
    LockedDirectory& operator=(const LockedDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    // Remove the directories PREFIX-locked-XXXXXX of this user below `parent` that no process has
    // locked. Directories that cannot be removed stay.
    static void remove_abandoned(std::string_view prefix, const std::filesystem::path& parent);

private:
    std::filesystem::path path_;
    Descriptor lock_;
};

}  // namespace kx
