// Metrics in the text format that Prometheus and its node exporter read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "output/json.hpp"

namespace kx::ctl {

using Labels = std::vector<std::pair<std::string, std::string>>;

// Durations are fractions of seconds; everything else is a whole number.
using SampleValue = std::variant<std::uint64_t, double>;

struct Sample {
    Labels labels;
    SampleValue value;
};

struct Metric {
    const char* name;
    const char* type;  // "counter", "gauge" or "untyped"
    const char* help;
    std::vector<Sample> samples = {};
};

// A label's value as the format requires it: valid UTF-8 without control characters, with backslash
// and quote escaped.
[[nodiscard]] std::string label_text(std::string_view value);

// Metrics without a sample are left out.
[[nodiscard]] std::string exposition_text(const std::vector<Metric>& metrics);
[[nodiscard]] Json metrics_json(const std::vector<Metric>& metrics);

}  // namespace kx::ctl
