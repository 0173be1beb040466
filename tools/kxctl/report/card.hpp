// The section of "kxctl report" about one card.
#pragma once

#include <string>

#include "output/json.hpp"

namespace kx::ctl::page {

// entry: one of the cards of report_page().
[[nodiscard]] std::string card_section(const Json& entry);

}  // namespace kx::ctl::page
