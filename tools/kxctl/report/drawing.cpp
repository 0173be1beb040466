#include "report/drawing.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "report/html.hpp"

namespace kx::ctl::page {
namespace {

double bar_width(std::uint64_t value, std::uint64_t most) {
    return most == 0 ? 0
                     : 100 * std::log1p(static_cast<double>(value)) /
                           std::log1p(static_cast<double>(most));
}

// One unit of the drawing is a thousandth of the flash; a smaller region is still visible.
std::string region_drawing(const Json& region, double size) {
    const double begin = 1000 * static_cast<double>(number_of(region, "address")) / size;
    const double width = 1000 * static_cast<double>(number_of(region, "size_bytes")) / size;
    const std::string name = html_text(text_of(region, "name"));
    return fmt::format(
        "<rect class=\"{0}\" x=\"{1:.2f}\" width=\"{2:.2f}\" "
        "height=\"10\"><title>{0}</title></rect>\n",
        name, begin, std::max(width, 1.0));
}

}  // namespace

std::string counter_bar(std::uint64_t value, std::uint64_t most) {
    return fmt::format(
        "<svg viewBox=\"0 0 100 10\" preserveAspectRatio=\"none\" aria-hidden=\"true\"><rect "
        "width=\"{:.1f}\" height=\"10\"/></svg>",
        bar_width(value, most));
}

std::string region_label(const Json& region) {
    return fmt::format(
        "<span class=\"chip {0}\"></span>&#160;{0}", html_text(text_of(region, "name")));
}

std::string flash_drawing(const Json& regions, std::uint64_t size) {
    std::string drawing;
    for (const Json& region : regions) {
        drawing += region_drawing(region, static_cast<double>(size));
    }
    return "<div class=\"flash\"><svg viewBox=\"0 0 1000 10\" preserveAspectRatio=\"none\" "
           "role=\"img\" aria-label=\"Regions of the flash\">\n" +
           drawing + "</svg></div>\n";
}

}  // namespace kx::ctl::page
