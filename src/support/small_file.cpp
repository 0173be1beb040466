#include "support/small_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "support/handle.hpp"

namespace kx {

bool path_exists(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0;
}

std::optional<std::string> read_file(const char* path, std::size_t limit) {
    const Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file) {
        return std::nullopt;
    }
    std::string content;
    std::array<char, 4096> chunk;
    while (content.size() < limit) {
        const std::size_t wanted = std::min(chunk.size(), limit - content.size());
        const ssize_t got = read(file.get(), chunk.data(), wanted);
        if (got <= 0) {
            break;
        }
        content.append(chunk.data(), static_cast<std::size_t>(got));
    }
    return content;
}

std::optional<std::string> read_value_file(const char* path, std::size_t longest) {
    const Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file) {
        return std::nullopt;
    }
    std::array<char, 64> value;
    const ssize_t got = read(file.get(), value.data(), std::min(longest, value.size()));
    return std::string(value.data(), got < 0 ? 0 : static_cast<std::size_t>(got));
}

std::optional<std::string_view> LinePieces::next() {
    if (rest_.empty()) {
        return std::nullopt;
    }
    const std::size_t newline = rest_.substr(0, longest_).find('\n');
    const std::size_t length =
        newline == std::string_view::npos ? std::min(longest_, rest_.size()) : newline + 1;
    const std::string_view piece = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return piece;
}

}  // namespace kx
