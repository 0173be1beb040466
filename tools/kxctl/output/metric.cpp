#include "output/metric.hpp"

#include <fmt/core.h>

#include "output/printable.hpp"

namespace kx::ctl {
namespace {

std::string labels_text(const Labels& labels) {
    std::string text;
    for (const auto& [name, value] : labels) {
        text += fmt::format("{}{}=\"{}\"", text.empty() ? "" : ",", name, label_text(value));
    }
    return text.empty() ? "" : "{" + text + "}";
}

std::string value_text(const SampleValue& value) {
    return std::visit([](auto number) { return fmt::format("{}", number); }, value);
}

Json value_json(const SampleValue& value) {
    return std::visit([](auto number) { return Json(number); }, value);
}

Json sample_json(const Sample& sample) {
    Json labels = Json::object();
    for (const auto& [name, value] : sample.labels) {
        labels[name] = value;
    }
    return {{"labels", labels}, {"value", value_json(sample.value)}};
}

}  // namespace

std::string label_text(std::string_view value) {
    std::string text;
    for (const char byte : printable(value)) {
        if (byte == '\\' || byte == '"') {
            text += '\\';
        }
        text += byte;
    }
    return text;
}

std::string exposition_text(const std::vector<Metric>& metrics) {
    std::string text;
    for (const Metric& metric : metrics) {
        if (metric.samples.empty()) {
            continue;
        }
        text += fmt::format(
            "# HELP {} {}\n# TYPE {} {}\n", metric.name, metric.help, metric.name, metric.type);
        for (const Sample& sample : metric.samples) {
            text += fmt::format(
                "{}{} {}\n", metric.name, labels_text(sample.labels), value_text(sample.value));
        }
    }
    return text;
}

Json metrics_json(const std::vector<Metric>& metrics) {
    Json all = Json::array();
    for (const Metric& metric : metrics) {
        if (!metric.samples.empty()) {
            all.push_back(
                {{"name", metric.name},
                 {"type", metric.type},
                 {"help", metric.help},
                 {"samples", json_array(metric.samples, sample_json)}});
        }
    }
    return all;
}

}  // namespace kx::ctl
