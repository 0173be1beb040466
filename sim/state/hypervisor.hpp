// The files of a simulated host's virtual machines, as paths of the host.
#pragma once

namespace kxsim::state {

inline constexpr char kMachineDirectory[] = "/var/lib/libvirt/kxsim";

// The persistent definitions, all of them shut off: a node of libvirt's test driver.
inline constexpr char kNodeFile[] = "/var/lib/libvirt/kxsim/node.xml";

// The running machines, one line for each in the order of their ids: "ID STATE UUID" with libvirt's
// number of the state. The current description of each is in UUID.xml in the same directory.
inline constexpr char kActiveFile[] = "/var/lib/libvirt/kxsim/active";

inline constexpr char kNodeStart[] = "<node>\n";
inline constexpr char kNodeEnd[] = "</node>\n";

// Goes into each definition of the node.
inline constexpr char kTestNamespace[] = " xmlns:test='http://libvirt.org/schemas/domain/test/1.0'";
inline constexpr char kShutOff[] = "<test:runstate>5</test:runstate>";

}  // namespace kxsim::state
