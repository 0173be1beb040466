#include "cli/suggestion.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace kx::ctl {
namespace {

constexpr std::size_t kLongestWord = 64;  // longer words are not typing mistakes

char lower(char letter) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

bool same(char left, char right) { return lower(left) == lower(right); }

// The number of letters to add, remove, replace or swap with the next one that make one word the
// other.
std::size_t distance(std::string_view left, std::string_view right) {
    std::vector<std::vector<std::size_t>> cost(
        left.size() + 1, std::vector<std::size_t>(right.size() + 1));
    for (std::size_t row = 0; row <= left.size(); ++row) {
        for (std::size_t column = 0; column <= right.size(); ++column) {
            if (row == 0 || column == 0) {
                cost[row][column] = row + column;
                continue;
            }
            const std::size_t replaced = same(left[row - 1], right[column - 1]) ? 0 : 1;
            std::size_t least = std::min(
                {cost[row - 1][column] + 1, cost[row][column - 1] + 1,
                 cost[row - 1][column - 1] + replaced});
            if (row > 1 && column > 1 && same(left[row - 1], right[column - 2]) &&
                same(left[row - 2], right[column - 1])) {
                least = std::min(least, cost[row - 2][column - 2] + 1);
            }
            cost[row][column] = least;
        }
    }
    return cost[left.size()][right.size()];
}

}  // namespace

std::string closest(std::string_view word, std::span<const std::string> candidates) {
    if (word.empty() || word.size() > kLongestWord) {
        return "";
    }
    std::string best;
    std::size_t least = word.size() / 3 + 1;  // one mistake for three letters
    for (const std::string& candidate : candidates) {
        const std::size_t mistakes = distance(word, candidate);
        if (mistakes < least && mistakes < candidate.size()) {
            least = mistakes;
            best = candidate;
        }
    }
    return best;
}

std::string did_you_mean(std::string_view word, std::span<const std::string> candidates) {
    const std::string meant = closest(word, candidates);
    return meant.empty() ? "" : fmt::format("; did you mean {}?", meant);
}

}  // namespace kx::ctl
