// The scenarios that come with the program.
#include <toml++/toml.h>
#include <kxsim/scenario.hpp>

#include <algorithm>
#include <cstdlib>

namespace kxsim {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> places() {
    std::vector<fs::path> places;
    if (const char* const given = std::getenv("KXSIM_SCENARIOS"); given != nullptr) {
        places.emplace_back(given);
    }
    std::error_code error;
    const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path();
    places.push_back(beside / "scenarios");
    places.push_back(beside / ".." / "scenarios");
    places.push_back(beside / ".." / "share" / "kxlinhw" / "scenarios");
    return places;
}

std::string title_of(const fs::path& file) {
    try {
        return toml::parse_file(file.string())["title"].value_or(std::string());
    } catch (const toml::parse_error&) {
        return {};
    }
}

}  // namespace

std::vector<ShippedScenario> shipped_scenarios() {
    std::vector<ShippedScenario> scenarios;
    for (const fs::path& place : places()) {
        std::error_code error;
        for (const fs::directory_entry& entry : fs::directory_iterator(place, error)) {
            if (entry.path().extension() == ".toml") {
                scenarios.push_back(
                    {entry.path().stem(), entry.path().lexically_normal(), title_of(entry.path())});
            }
        }
        if (!scenarios.empty()) {
            break;
        }
    }
    std::sort(scenarios.begin(), scenarios.end(), [](const auto& a, const auto& b) {
        return a.name < b.name;
    });
    return scenarios;
}

fs::path find_scenario(const std::string& name_or_file) {
    if (name_or_file.find('/') != name_or_file.npos || name_or_file.ends_with(".toml")) {
        return name_or_file;
    }
    std::string names;
    for (const ShippedScenario& scenario : shipped_scenarios()) {
        if (scenario.name == name_or_file) {
            return scenario.file;
        }
        names += (names.empty() ? "" : ", ") + scenario.name;
    }
    throw ScenarioError(
        "scenario \"" + name_or_file + "\", expected " + (names.empty() ? "a file" : names) +
        (names.empty() ? "" : " or a file"));
}

}  // namespace kxsim
