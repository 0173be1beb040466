// The section of "kxctl report" about one card.
#pragma once

#include <string>

#include "output/json.hpp"

namespace kx::ctl::page {

// entry: one of the cards that report_page() takes.
[[nodiscard]] std::string card_section(const Json& entry);

}  // namespace kx::ctl::page
