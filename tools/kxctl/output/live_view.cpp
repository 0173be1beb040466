#include "output/live_view.hpp"

#include <fmt/core.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace kx::ctl {
namespace {

constexpr const char* kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::size_t kUsualHeight = 24;

constexpr std::string_view kClearScreen = "\033[2J";
constexpr std::string_view kHome = "\033[H";
constexpr std::string_view kNoWrapping = "\033[?7l";
constexpr std::string_view kWrapping = "\033[?7h";
constexpr std::string_view kClearLineEnd = "\033[K";
constexpr std::string_view kClearBelow = "\033[J";

std::vector<std::string_view> lines_of(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

}  // namespace

std::string graph_of(std::span<const std::optional<double>> values) {
    double most = 0;
    for (const auto& value : values) {
        most = std::max(most, value.value_or(0));
    }
    std::string graph;
    for (const auto& value : values) {
        const double part = most > 0 ? value.value_or(0) / most : 0;
        constexpr double kHighest = std::size(kBars) - 1;
        graph += value ? kBars[static_cast<std::size_t>(std::lround(part * kHighest))] : " ";
    }
    return graph;
}

void RateHistory::add(const std::string& row, std::optional<double> rate) {
    std::vector<std::optional<double>>& rates = rates_[row];
    if (rates.size() == kLength) {
        rates.erase(rates.begin());
    }
    rates.push_back(rate);
}

std::string RateHistory::graph(const std::string& row) const {
    const auto found = rates_.find(row);
    return found == rates_.end() ? "" : graph_of(found->second);
}

bool can_draw() {
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && *terminal != '\0' &&
           std::strcmp(terminal, "dumb") != 0;
}

std::size_t terminal_height() {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0;
    return known ? size.ws_row : kUsualHeight;
}

std::size_t terminal_width() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

std::string drawing(std::string_view text, std::size_t height, bool first) {
    const std::vector<std::string_view> lines = lines_of(text);
    // The cursor stays below the last line.
    const std::size_t room = std::max<std::size_t>(height, 3) - 1;
    const std::size_t shown = lines.size() <= room ? lines.size() : room - 1;
    std::string frame(first ? kClearScreen : "");
    frame += kHome;
    frame += kNoWrapping;
    for (std::size_t k = 0; k < shown; ++k) {
        frame += fmt::format("{}{}\n", lines[k], kClearLineEnd);
    }
    if (shown < lines.size()) {
        frame += fmt::format("and {} more{}\n", lines.size() - shown, kClearLineEnd);
    }
    frame += kClearBelow;
    frame += kWrapping;
    return frame;
}

}  // namespace kx::ctl
