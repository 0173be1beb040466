// A view on a terminal that is redrawn in place, with a small graph for each row.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kx::ctl {

// Bars of eight heights, from zero to the largest value; a missing value is a blank.
[[nodiscard]] std::string graph_of(std::span<const std::optional<double>> values);

// The latest rates of each row, by its name.
class RateHistory {
public:
    static constexpr std::size_t kLength = 20;

    void add(const std::string& row, std::optional<double> rate);
    [[nodiscard]] std::string graph(const std::string& row) const;

private:
    std::map<std::string, std::vector<std::optional<double>>> rates_;
};

// Whether standard output is a terminal that can be drawn on, its height in lines, and its width in
// columns; 0 when it is not known, or when standard output is not a terminal.
[[nodiscard]] bool can_draw();
[[nodiscard]] std::size_t terminal_height();
[[nodiscard]] std::size_t terminal_width();

// The text that replaces the previous one; first: also clear the screen. Lines are not wrapped.
// When the terminal is too low, the last line gives the number of missing lines.
[[nodiscard]] std::string drawing(std::string_view text, std::size_t height, bool first);

}  // namespace kx::ctl
