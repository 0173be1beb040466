#include "cli/numbers.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string>

#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

constexpr double kLongestInterval = 86400;  // seconds
constexpr double kShortestInterval = 0.01;

template <class Number>
std::optional<Number> parse(const std::string& word) {
    Number number{};
    const char* const end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, number);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

std::chrono::nanoseconds parse_seconds(const std::string& option, const std::string& word) {
    const auto seconds = parse<double>(word);
    if (!seconds || !(*seconds >= kShortestInterval && *seconds <= kLongestInterval)) {
        refuse_usage(fmt::format(
            "{} {}: expected a number of seconds from {} to {}", option, word, kShortestInterval,
            kLongestInterval));
    }
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(*seconds));
}

std::uint64_t parse_count(const std::string& word) {
    const auto count = parse<std::uint64_t>(word);
    if (!count || *count == 0) {
        refuse_usage(fmt::format("--count {}: expected a number from 1 on", word));
    }
    return *count;
}

struct TimeUnit {
    std::string_view name;
    double seconds;
};

constexpr TimeUnit kTimeUnits[] = {{"", 1},     {"s", 1},    {"m", 60},
                                   {"min", 60}, {"h", 3600}, {"d", 86400}};

}  // namespace

std::uint32_t port_number(const std::string& word) {
    const auto instance = parse<std::uint32_t>(word);
    if (!instance || *instance == 0) {
        refuse_usage(fmt::format("{} is no port number", word));
    }
    return *instance;
}

std::size_t number_option(const Arguments& arguments, const std::string& option, std::size_t most) {
    const std::string word = arguments.get(option);
    const auto number = parse<std::size_t>(word);
    if (!number || *number > most) {
        refuse_usage(fmt::format("{} {}: expected a number from 0 to {}", option, word, most));
    }
    return *number;
}

std::chrono::nanoseconds seconds_option(const Arguments& arguments, const std::string& option) {
    return parse_seconds(option, arguments.get(option));
}

double time_option(const Arguments& arguments, const std::string& option) {
    const std::string word = arguments.get(option);
    double number = 0;
    const char* const end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, number);
    const auto* const unit = std::ranges::find(
        kTimeUnits, std::string_view(rest, static_cast<std::size_t>(end - rest)), &TimeUnit::name);
    const bool known = error == std::errc() && unit != std::end(kTimeUnits);
    const double seconds = known ? number * unit->seconds : 0;
    if (!(seconds >= 1 && seconds <= kLongestInterval)) {
        refuse_usage(fmt::format(
            "{} {}: expected a time from 1s to 1d, such as 90s, 5min or 1h", option, word));
    }
    return seconds;
}

std::optional<Watch> watch_option(const Arguments& arguments) {
    if (!arguments.has("--watch")) {
        if (arguments.has("--count")) {
            refuse_usage("--count: expected --watch beside it");
        }
        return std::nullopt;
    }
    return Watch{
        .interval = seconds_option(arguments, "--watch"),
        .count = arguments.has("--count") ? parse_count(arguments.get("--count")) : 0};
}

}  // namespace kx::ctl
