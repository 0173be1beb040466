#include "cli/time_limit.hpp"

#include <fmt/core.h>

#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

constexpr char kVariable[] = "KXCTL_TIMEOUT";
constexpr int kDefaultSeconds = 60;
constexpr int kMostSeconds = 86400;

std::string_view given_limit() {
    const char* const value = std::getenv(kVariable);
    return value == nullptr ? "" : value;
}

std::optional<int> seconds_in(std::string_view text) {
    int seconds = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, seconds);
    const bool valid = error == std::errc() && rest == end && seconds > 0;
    return valid && seconds <= kMostSeconds ? std::optional(seconds) : std::nullopt;
}

}  // namespace

std::chrono::seconds time_limit() {
    return std::chrono::seconds(seconds_in(given_limit()).value_or(kDefaultSeconds));
}

void check_time_limit() {
    if (!given_limit().empty() && !seconds_in(given_limit())) {
        throw Failure(
            ExitCode::kUsage,
            fmt::format(
                "{} is {}, expected seconds from 1 to {}", kVariable, given_limit(), kMostSeconds));
    }
}

}  // namespace kx::ctl
