// The lists of offload devices in /proc: a line for each device, with the interfaces that it
// serves. The library takes the first line that contains the name of an interface, so that eth1 is
// found in the line of eth10, which may be the device of another card.
#pragma once

#include <string>
#include <vector>

namespace kx::ctl {

// Throws Failure (kBusy) when the library would take a line for one of the interfaces that is not
// its own; for no interface the first device, when that serves one. is_q3: the list that the
// library reads for the engine of a Q3 counts too.
void check_offload_lines(const std::vector<std::string>& interfaces, bool is_q3);

}  // namespace kx::ctl
