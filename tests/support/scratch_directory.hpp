// A temporary directory of a test, and working in it.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace test {

// Below TMPDIR or another directory; removed with its content.
class ScratchDirectory {
public:
    explicit ScratchDirectory(
        const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
        std::string name = parent / "kxtest-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        path_ = name;
    }
    ~ScratchDirectory() { std::filesystem::remove_all(path_); }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    // The path of a file in it.
    [[nodiscard]] std::string operator/(const std::string& name) const { return path_ / name; }

    // Make or replace a file in it; returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path_ / name, std::ios::binary) << content;
        return path_ / name;
    }

private:
    std::filesystem::path path_;
};

// While this object exists, a directory is the working directory of the process.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::filesystem::path& path) {
        std::filesystem::current_path(path);
    }
    ~WorkingDirectory() { std::filesystem::current_path(before_); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    const std::filesystem::path before_ = std::filesystem::current_path();
};

}  // namespace test
