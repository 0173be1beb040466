// The page of "kxctl report": HTML made of what the commands answer. Well-formed as XML, complete
// in itself, readable on a phone and on paper, light or dark as the reader's device is.
#pragma once

#include <string>

#include "output/json.hpp"

namespace kx::ctl::page {

// host: {"name", "time", "version": answer, "modules": answer, "vms": answer whose machines have
// "vfs", "cards": [{"location", "card": answer, "adapter": answer, "ports": [answer with
// "counters"], "counters": answer, "flash": answer, "vpd": answer}]}. Any of the answers may be
// {"failure": text}, which is told in its place.
[[nodiscard]] std::string report_page(const Json& host);

}  // namespace kx::ctl::page
