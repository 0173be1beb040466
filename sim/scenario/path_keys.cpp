#include "scenario/path_keys.hpp"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace kxsim {
namespace {

namespace fs = std::filesystem;

bool climbs(const fs::path& path) {
    return std::any_of(path.begin(), path.end(), [](const fs::path& name) { return name == ".."; });
}

[[noreturn]] void complain_of(
    std::string_view key, const std::string& value, const std::string& expected) {
    throw std::invalid_argument(std::string(key) + " is \"" + value + "\", expected " + expected);
}

}  // namespace

void check_path(const std::string& path) {
    if (!path.starts_with('/') || climbs(path)) {
        complain_of("path", path, "one that begins with / and has no ..");
    }
}

void check_relative_path(std::string_view key, const std::string& path) {
    if (path.starts_with('/') || climbs(path)) {
        complain_of(key, path, "a path that does not begin with / and has no ..");
    }
}

void check_file_name(std::string_view key, const std::string& name) {
    if (name == "." || name == ".." || name.find('/') != name.npos) {
        complain_of(key, name, "a name without /");
    }
}

std::string file_beside(const std::string& scenario, const std::string& name) try {
    check_relative_path("file", name);
    const fs::path parent = fs::path(scenario).parent_path();
    const fs::path directory = fs::canonical(parent.empty() ? fs::path(".") : parent);
    const fs::path file = fs::weakly_canonical(directory / name);
    const fs::path below = file.lexically_relative(directory);
    if (below.empty() || climbs(below) || fs::is_symlink(fs::symlink_status(file))) {
        complain_of(
            "file", name, "a file below the scenario's directory, but a link leads out of it");
    }
    const fs::file_status status = fs::status(file);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        complain_of("file", name, "a regular file");
    }
    return file;
} catch (const fs::filesystem_error& error) {
    complain_of("file", name, "a file that can be looked for: " + error.code().message());
}

}  // namespace kxsim
