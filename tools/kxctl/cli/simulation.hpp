// --sim: run the same command on the simulated host.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kx::ctl {

struct SimulationWords {
    std::optional<std::string> scenario;  // set when --sim was given
    std::vector<std::string> words;       // the command line without it
};

// Remove "--sim", "--sim=SCENARIO" or "--sim SCENARIO" from a command line (without the program's
// name). The word after a bare --sim is the scenario unless it is an option, a noun or verb, or a
// PCI bus location. Words after "--" stay. Of several scenarios the last one counts.
// Throws Failure for "--sim=".
[[nodiscard]] SimulationWords take_simulation(const std::vector<std::string>& words);

// Replace this process by kxctl with these words on the simulated host. kxsim is the program next
// to kxctl, or else the one in PATH. Throws Failure when it cannot be started.
[[noreturn]] void run_simulated(const std::string& scenario, const std::vector<std::string>& words);

// Throws Failure when this process was started for a simulated host (by run_simulated or by kxsim)
// and the library that simulates it is not in the process: it would work on the real machine.
void require_simulated_host();

}  // namespace kx::ctl
