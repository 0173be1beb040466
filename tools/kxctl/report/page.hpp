// The page of "kxctl report": HTML made from the answers of the commands. It is well-formed XML,
// needs no other files, is readable on a phone and on paper, and follows the light or dark mode of
// the device.
#pragma once

#include <string>

#include "output/json.hpp"

namespace kx::ctl::page {

// host: {"name", "time", "version": answer, "modules": answer, "vms": answer whose machines have
// "vfs", "cards": [{"location", "card": answer, "adapter": answer, "ports": [answer with
// "counters"], "counters": answer, "flash": answer, "vpd": answer}], "incomplete": reasons, if
// there are any}. Each answer may be {"failure": text}, which is then shown in its place.
[[nodiscard]] std::string report_page(const Json& host);

}  // namespace kx::ctl::page
