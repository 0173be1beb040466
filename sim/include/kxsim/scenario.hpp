// Builds simulated hosts from scenario files, which docs/scenario.md describes.
#pragma once

#include <filesystem>
#include <kxsim/host.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kxsim {

// A mistake in a scenario, as one line: "FILE:LINE: what was found, what was expected".
class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Add the content of a scenario file to a host.
void load_scenario(Host& host, const std::filesystem::path& file);

// Like load_scenario, for a text; messages contain name instead of a file.
void load_scenario_text(Host& host, std::string_view text, const std::string& name);

struct ShippedScenario {
    std::string name;  // its file's without the ending
    std::filesystem::path file;
    std::string title;
};

// The included scenarios, by name. They are searched in $KXSIM_SCENARIOS, next to the program and
// in the installation.
[[nodiscard]] std::vector<ShippedScenario> shipped_scenarios();

// The file of a scenario: a shipped one by its name, any other by its path (which has a "/" or ends
// in ".toml"). Throws ScenarioError when there is none.
[[nodiscard]] std::filesystem::path find_scenario(const std::string& name_or_file);

}  // namespace kxsim
