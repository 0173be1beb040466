// Copies of the files that a change rewrites, to put them back byte for byte.
#pragma once

#include <string>
#include <vector>

#include "output/json.hpp"

namespace kx::ctl {

struct SavedFile {
    std::string path;  // behind all symbolic links
    bool exists = false;
    unsigned mode = 0;
    unsigned user = 0;
    unsigned group = 0;
    std::string bytes = {};

    [[nodiscard]] bool operator==(const SavedFile&) const = default;
};

// The files that have the saved settings of ports, with the names that their rewriting uses.
[[nodiscard]] std::vector<std::string> port_setting_files();

// The file as it is now. Throws Failure when it cannot be read.
[[nodiscard]] SavedFile copy_file(const std::string& path);

// The file and its name are on the disk when this returns. Throws Failure.
void flush_file(const std::string& path);

// Gives the file the content, mode and owner of the copy, or removes it; flushed to the disk.
// Throws Failure, and the file is as it was then.
void put_file_back(const SavedFile& file);

[[nodiscard]] Json saved_file_json(const SavedFile& file);
// Throws std::exception when something is missing or wrong.
[[nodiscard]] SavedFile saved_file_of(const Json& json);

}  // namespace kx::ctl
