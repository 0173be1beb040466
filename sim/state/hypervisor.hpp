// Where a simulated host keeps its virtual machines, on the host's own paths.
#pragma once

namespace kxsim::state {

inline constexpr char kMachineDirectory[] = "/var/lib/libvirt/kxsim";

// The persistent definitions, all of them shut off: a node of libvirt's test driver.
inline constexpr char kNodeFile[] = "/var/lib/libvirt/kxsim/node.xml";

// The machines that run, one line each in the order of their ids: "ID STATE UUID" with libvirt's
// number of the state. The description that each runs with stands beside it, in UUID.xml.
inline constexpr char kActiveFile[] = "/var/lib/libvirt/kxsim/active";

inline constexpr char kNodeStart[] = "<node>\n";
inline constexpr char kNodeEnd[] = "</node>\n";

// Goes into each definition of the node.
inline constexpr char kTestNamespace[] = " xmlns:test='http://libvirt.org/schemas/domain/test/1.0'";
inline constexpr char kShutOff[] = "<test:runstate>5</test:runstate>";

}  // namespace kxsim::state
