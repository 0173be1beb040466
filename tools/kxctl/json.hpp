// The JSON value that commands print: its keys keep the order in which they were written.
#pragma once

#include <nlohmann/json.hpp>

namespace kx::ctl {

using Json = nlohmann::ordered_json;

}  // namespace kx::ctl
