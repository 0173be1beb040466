// What a state file changes on this host: exactly the settings that differ, in the order in which
// they are applied.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "change/host_ports.hpp"
#include "change/state_file.hpp"
#include "settings/change_line.hpp"

namespace kx::ctl {

// A port with settings that differ.
struct PlannedPort {
    HostPort port;
    bool carries_session = false;
    std::vector<ChangeLine> lines = {};  // in the library's order; refused when it cannot be
    std::vector<FilePlace> places = {};  // of the lines, in the file
    PortSettings wanted = {};            // the settings as they would be
};

struct Plan {
    std::vector<PlannedPort> ports = {};  // the port that carries the session is the last one
    std::vector<std::string> warnings = {};

    [[nodiscard]] bool empty() const { return ports.empty(); }
    [[nodiscard]] std::size_t steps() const;
};

// Compare a file with the ports. What cannot be is an error of the file. Throws Failure when the
// host does not answer, or this process may not ask it.
[[nodiscard]] Plan make_plan(StateFile& file, const HostPorts& host);

}  // namespace kx::ctl
