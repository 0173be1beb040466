// The section of "kxctl report" about one card.
#pragma once

#include <string>

#include "output/json.hpp"

namespace kx::ctl::page {

// entry: one of the cards of report_page(); number: its place among them, from 1 on.
[[nodiscard]] std::string card_section(const Json& entry, std::size_t number);

}  // namespace kx::ctl::page
