#include "simulation.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "argument_vector.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "standard_streams.hpp"

namespace kx::ctl {
namespace {

constexpr const char* kDefaultScenario = "lab";
constexpr std::string_view kOption = "--sim";
constexpr std::string_view kOptionWithValue = "--sim=";

bool is_command_word(std::string_view word) {
    return std::ranges::any_of(commands(), [word](const Command& command) {
        return word == command.noun || word == command.verb;
    });
}

// Such as 03:00.4; a scenario file of that name can still be given as ./NAME or with --sim=NAME.
bool is_location(std::string_view word) {
    return word.find(':') != word.npos && word.find('/') == word.npos;
}

bool is_scenario(std::string_view word) {
    return !word.empty() && word[0] != '-' && !is_command_word(word) && !is_location(word);
}

std::filesystem::path own_path() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error);
}

std::string simulator_path(const std::filesystem::path& own) {
    const std::string beside = own.parent_path() / "kxsim";
    return access(beside.c_str(), X_OK) == 0 ? beside : "kxsim";
}

}  // namespace

SimulationWords take_simulation(const std::vector<std::string>& words) {
    SimulationWords taken;
    auto word = words.begin();
    for (; word != words.end() && *word != "--"; ++word) {
        if (*word == kOption) {
            const bool named = word + 1 != words.end() && is_scenario(word[1]);
            taken.scenario = named ? *++word : kDefaultScenario;
        } else if (word->starts_with(kOptionWithValue)) {
            taken.scenario = word->substr(kOptionWithValue.size());
        } else {
            taken.words.push_back(*word);
        }
    }
    taken.words.insert(taken.words.end(), word, words.end());
    if (taken.scenario && taken.scenario->empty()) {
        throw Failure(ExitCode::kUsage, "--sim= names no scenario");
    }
    return taken;
}

void run_simulated(const std::string& scenario, const std::vector<std::string>& words) {
    const std::filesystem::path own = own_path();
    std::vector<std::string> line = {simulator_path(own), "run", "--scenario", scenario, "--",
                                     own.string()};
    line.insert(line.end(), words.begin(), words.end());
    restore_signal_defaults();
    execvp(line[0].c_str(), argument_vector(line).data());
    if (errno == ENOENT) {
        throw Failure(
            ExitCode::kFailed, fmt::format(
                                   "The simulated host is not installed: no kxsim in {} or in PATH",
                                   own.parent_path().string()));
    }
    throw Failure(
        ExitCode::kFailed, fmt::format("Cannot run {}: {}", line[0], std::strerror(errno)));
}

}  // namespace kx::ctl
