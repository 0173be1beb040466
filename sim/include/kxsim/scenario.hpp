// Simulated hosts from files: scenarios, as docs/scenario.md describes them.
#pragma once

#include <filesystem>
#include <kxsim/host.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kxsim {

// What is wrong with a scenario, as one line: "FILE:LINE: what was found, what was expected".
class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Add what a scenario file holds to a host.
void load_scenario(Host& host, const std::filesystem::path& file);

// As load_scenario, for a text; name stands for the file in messages.
void load_scenario_text(Host& host, std::string_view text, const std::string& name);

struct ShippedScenario {
    std::string name;  // its file's without the ending
    std::filesystem::path file;
    std::string title;
};

// The scenarios that came with the program, by name. They are looked for in $KXSIM_SCENARIOS,
// beside the program and where it installs them.
[[nodiscard]] std::vector<ShippedScenario> shipped_scenarios();

// The file of a scenario: a shipped one by its name, any other by its path (which has a "/" or ends
// in ".toml"). Throws ScenarioError when there is none.
[[nodiscard]] std::filesystem::path find_scenario(const std::string& name_or_file);

}  // namespace kxsim
