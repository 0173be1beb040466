// Reading the kernel's small text files: as a whole, or in the pieces that fgets would return.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kx {

[[nodiscard]] bool path_exists(const char* path);

// The file's content, up to limit bytes; nothing when it cannot be opened. A read that fails ends
// the content there, as it would end a loop of fgets.
[[nodiscard]] std::optional<std::string> read_file(
    const char* path, std::size_t limit = std::string::npos);

// The result of one read of up to `longest` bytes: the whole content of a kernel file with one
// value.
[[nodiscard]] std::optional<std::string> read_value_file(const char* path, std::size_t longest);

// Splits a content into pieces that end after a newline or after `longest` characters, whichever
// comes first. A longer line gives several pieces.
class LinePieces {
public:
    LinePieces(std::string_view content, std::size_t longest) : rest_(content), longest_(longest) {}

    // The next piece with its newline, or nothing at the end.
    [[nodiscard]] std::optional<std::string_view> next();

private:
    std::string_view rest_;
    std::size_t longest_;
};

}  // namespace kx
