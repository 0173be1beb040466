// The scenarios that come with the program.
#include <kxsim/scenario.hpp>

#include <algorithm>
#include <cstdlib>

#include "scenario/toml.hpp"

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

// By their names.
std::vector<fs::path> shipped_files() {
    std::vector<fs::path> files;
    for (const fs::path& place : places()) {
        std::error_code error;
        for (const fs::directory_entry& entry : fs::directory_iterator(place, error)) {
            if (entry.path().extension() == ".toml") {
                files.push_back(entry.path().lexically_normal());
            }
        }
        if (!files.empty()) {
            break;
        }
    }
    std::sort(files.begin(), files.end(), [](const fs::path& a, const fs::path& b) {
        return a.stem() < b.stem();
    });
    return files;
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
    for (const fs::path& file : shipped_files()) {
        scenarios.push_back({file.stem(), file, title_of(file)});
    }
    return scenarios;
}

fs::path find_scenario(const std::string& name_or_file) {
    if (name_or_file.find('/') != name_or_file.npos || name_or_file.ends_with(".toml")) {
        return name_or_file;
    }
    std::string names;
    for (const fs::path& file : shipped_files()) {
        if (file.stem() == name_or_file) {
            return file;
        }
        names += (names.empty() ? "" : ", ") + file.stem().string();
    }
    throw ScenarioError(
        "scenario \"" + name_or_file + "\", expected " + (names.empty() ? "a file" : names) +
        (names.empty() ? "" : " or a file"));
}

}  // namespace kxsim
