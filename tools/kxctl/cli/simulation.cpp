#include "cli/simulation.hpp"

#include <dlfcn.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "cli/argument_vector.hpp"
#include "cli/child.hpp"
#include "cli/command.hpp"
#include "cli/command_line.hpp"
#include "cli/plural.hpp"
#include "cli/time_limit.hpp"
#include "failure/failure.hpp"
#include "files/descriptor.hpp"
#include "output/standard_streams.hpp"

namespace kx::ctl {
namespace {

constexpr const char* kDefaultScenario = "lab";
constexpr const char* kSimulatedVariable = "KXCTL_SIMULATED";  // set by a kxctl that had --sim
constexpr const char* kSessionVariable = "KXSIM_ROOT";         // set by kxsim
constexpr std::string_view kOption = "--sim";
constexpr std::string_view kOptionWithValue = "--sim=";

bool is_command_word(std::string_view word) {
    return std::ranges::any_of(commands(), [word](const Command& command) {
        return word == command.noun || word == command.verb ||
               (!word.empty() && word == plural_of(command));
    });
}

// Such as 03:00.4; a scenario file with such a name can be given as ./NAME or with --sim=NAME.
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

// The message of a failed program on standard error; nothing when it succeeded or could not be run.
// One that is stopped after the time limit is a failure of its own.
std::string complaint_of(const std::vector<std::string>& line) {
    const auto deadline = std::chrono::steady_clock::now() + time_limit();
    std::string text;
    const int status = run_child(
        line,
        [&text](const Descriptor& in) {
            std::array<char, 512> chunk;
            const ssize_t got = read(in.get(), chunk.data(), chunk.size());
            text.append(chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
            return got >= 0 || errno == EINTR;
        },
        time_limit(), STDERR_FILENO);
    if (status < 0 && std::chrono::steady_clock::now() >= deadline) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format(
                "The simulated host did not start within {} seconds", time_limit().count()));
    }
    return status == 0 ? "" : text;
}

// The simulator prints mistakes of a scenario for people. With --json kxctl must report them like
// every other failure, so it builds the host once to find them.
void check_scenario(const std::string& simulator, const std::string& scenario) {
    std::string text = complaint_of({simulator, "run", "--scenario", scenario, "--", "true"});
    text = text.substr(0, text.find('\n'));
    constexpr std::string_view kOwnName = "kxsim: ";
    if (text.starts_with(kOwnName)) {
        text.erase(0, kOwnName.size());
    }
    if (!text.empty()) {
        throw Failure(ExitCode::kUsage, text);
    }
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
    if (asks_for_json(words)) {
        check_scenario(line[0], scenario);
    }
    setenv(kSimulatedVariable, "1", 1);
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

void require_simulated_host() {
    const bool wanted =
        std::ranges::any_of(std::array{kSimulatedVariable, kSessionVariable}, [](const char* name) {
            const char* const value = std::getenv(name);
            return value != nullptr && *value != '\0';
        });
    if (wanted && dlsym(RTLD_DEFAULT, "kxsim_attach") == nullptr) {
        throw Failure(
            ExitCode::kFailed,
            "The simulated host was not started: libkxsim.so is not loaded, and the command would "
            "work on the real machine");
    }
}

}  // namespace kx::ctl
