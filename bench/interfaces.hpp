// The measured machine's network interfaces.
#pragma once

namespace bench {

// Make interfaces eth0, eth1, ... in pairs; the first `ports` get queues, addresses and a link.
void make_interfaces(unsigned interfaces, unsigned ports, unsigned queues);

}  // namespace bench
