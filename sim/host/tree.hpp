// The files of a simulated host in the session's directory, and the order of their directories.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kxsim {

class Tree {
public:
    explicit Tree(std::filesystem::path root) : root_(std::move(root)) {}

    void make_directory(std::string_view path);
    void write(std::string_view path, std::string_view content, mode_t mode);
    void append(std::string_view path, std::string_view content);
    void make_link(std::string_view path, std::string_view target);
    void remove(std::string_view path);
    void order(std::string_view directory, const std::vector<std::string>& names);

    [[nodiscard]] bool exists(std::string_view path) const;
    [[nodiscard]] std::string read(std::string_view path) const;
    [[nodiscard]] std::string read_link(std::string_view path) const;  // empty: there is none
    [[nodiscard]] mode_t mode(std::string_view path) const;

private:
    enum class LastLink { kFollow, kKeep };
    [[nodiscard]] std::filesystem::path place(
        std::string_view path, LastLink last = LastLink::kKeep) const;
    [[nodiscard]] std::filesystem::path order_file(const std::filesystem::path& directory) const;
    void make_directories(const std::filesystem::path& path);
    void prepare(const std::filesystem::path& path);
    void note_entry(const std::filesystem::path& path);
    void forget_entry(const std::filesystem::path& path);

    std::filesystem::path root_;
};

// The exception for a failed system call.
[[noreturn]] void fail_with_errno(const std::string& what);

// Read and replace real files.
[[nodiscard]] std::string read_whole(const std::filesystem::path& path);
void write_whole(const std::filesystem::path& path, std::string_view content);

}  // namespace kxsim
