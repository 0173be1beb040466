// A virtual machine of a simulated host.
#pragma once

#include <string>
#include <vector>

namespace kxsim {

struct VirtualMachine {
    std::string name;                   // without "/" and control characters
    std::string uuid = {};              // "11223344-5566-...", made from the name when empty
    std::string state = "shut off";     // or "running", "paused"
    std::vector<std::string> vfs = {};  // PCI functions of the host that the machine gets
    std::vector<std::string> bridges =
        {};  // interfaces of the host; the machine has an interface on each
};

}  // namespace kxsim
