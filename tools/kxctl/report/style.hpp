// The parts that are the same on every page of "kxctl report".
#pragma once

#include <string_view>

namespace kx::ctl::page {

// The document's beginning, up to its title.
extern const std::string_view kReportHead;

// The style sheet, as an element.
extern const std::string_view kReportStyle;

}  // namespace kx::ctl::page
