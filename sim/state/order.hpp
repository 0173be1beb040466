// The order in which directories list their entries: the paths of the host's files, one in a line,
// in the order in which the builder made them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kxsim::state {

inline constexpr char kOrderFile[] = "/state/order";  // below the session's directory
inline constexpr std::size_t kMostOrder = std::size_t{1} << 24U;

// libpci inserts each device that it reads at the front of its list.
inline constexpr std::string_view kNewestFirst = "/sys/bus/pci/devices";

struct Order {
    std::atomic<std::uint64_t> length;  // grows when the text behind the last line is complete
    char text[kMostOrder];

    // Whole lines.
    [[nodiscard]] std::string_view lines() const {
        const std::uint64_t known = length.load(std::memory_order_acquire);
        return {text, known < kMostOrder ? known : kMostOrder};
    }
};

// Remove and return the first line, without its end.
inline std::string_view next_line(std::string_view& lines) {
    const void* const end = std::memchr(lines.data(), '\n', lines.size());
    const std::size_t length =
        end == nullptr ? lines.size()
                       : static_cast<std::size_t>(static_cast<const char*>(end) - lines.data());
    const std::string_view line(lines.data(), length);
    lines.remove_prefix(end == nullptr ? length : length + 1);
    return line;
}

// Remove and return the last line, without its end.
inline std::string_view last_line(std::string_view& lines) {
    lines.remove_suffix(lines.back() == '\n' ? 1 : 0);
    const void* const end = memrchr(lines.data(), '\n', lines.size());
    const std::size_t begin =
        end == nullptr ? 0
                       : static_cast<std::size_t>(static_cast<const char*>(end) - lines.data()) + 1;
    const std::string_view line(lines.data() + begin, lines.size() - begin);
    lines.remove_suffix(line.size());
    return line;
}

// The name of an entry of a directory ("" is the top); empty for any other path.
inline std::string_view name_in(std::string_view directory, std::string_view path) {
    const std::size_t length = directory.size();
    if (path.size() <= length + 1 || path[length] != '/' ||
        std::memcmp(path.data(), directory.data(), length) != 0) {
        return {};
    }
    const std::string_view name(path.data() + length + 1, path.size() - length - 1);
    return std::memchr(name.data(), '/', name.size()) == nullptr ? name : std::string_view();
}

}  // namespace kxsim::state
