// The user's own session over the network: a change of its port may cut it.
#pragma once

#include <set>
#include <string>

namespace kx::ctl {

// The interface with the address at which the session of SSH arrives, and the interfaces below it,
// such as the ports of a bond or the port of a VLAN. Empty without such a session.
[[nodiscard]] std::set<std::string> session_interfaces();

}  // namespace kx::ctl
