// Reading the kernel's small text files: whole, or as the pieces that fgets would give.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kx {

[[nodiscard]] bool path_exists(const char* path);

// The file's content, up to limit bytes; nothing when it cannot be opened. A read that fails part
// of the way ends the content there, as it ends a loop of fgets.
[[nodiscard]] std::optional<std::string> read_file(
    const char* path, std::size_t limit = std::string::npos);

// What one read of up to `longest` bytes gives: the whole of the kernel's files of one value.
[[nodiscard]] std::optional<std::string> read_value_file(const char* path, std::size_t longest);

// Walks a content in pieces that end behind a newline or after `longest` characters, whichever
// comes first. A line longer than that comes as several pieces.
class Pieces {
public:
    Pieces(std::string_view content, std::size_t longest) : rest_(content), longest_(longest) {}

    // The next piece with its newline, or nothing at the end.
    [[nodiscard]] std::optional<std::string_view> next();

private:
    std::string_view rest_;
    std::size_t longest_;
};

}  // namespace kx
