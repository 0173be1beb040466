// Command lines of kxctl: one word a line.
#include <sstream>

#include "cli/command_line.hpp"
#include "cli/help.hpp"
#include "cli/simulation.hpp"
#include "failure/failure.hpp"
#include "fuzz/input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<std::string> words;
    for (std::string line; std::getline(lines, line);) {
        words.push_back(line.substr(0, line.find('\0')));
    }
    static_cast<void>(kx::ctl::asks_for_json(words));
    try {
        const kx::ctl::SimulationWords simulation = kx::ctl::take_simulation(words);
        const kx::ctl::Invocation invocation = kx::ctl::parse(simulation.words);
        if (invocation.action == kx::ctl::Action::kHelp) {
            fuzz::require(!kx::ctl::help_text(invocation).empty(), "help has a text");
        } else if (invocation.action == kx::ctl::Action::kRun) {
            fuzz::require(invocation.command != nullptr, "what is to run is a command");
        }
    } catch (const kx::ctl::Failure&) {
    }
    return 0;
}
