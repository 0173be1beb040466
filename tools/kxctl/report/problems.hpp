// The first section of the page: what is wrong on the host, each line with a link to its place.
#pragma once

#include <string>
#include <string_view>

#include "output/json.hpp"

namespace kx::ctl::page {

// The id of a part of the page, such as "flash-2" for the flash of the second card.
[[nodiscard]] std::string place_id(std::string_view part, std::size_t card);
[[nodiscard]] std::string place_id(std::string_view part, std::size_t card, std::size_t port);

// host: the answers of report_page().
[[nodiscard]] std::string problems_section(const Json& host);

}  // namespace kx::ctl::page
