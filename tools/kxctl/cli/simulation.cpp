#include "cli/simulation.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/core.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "cli/argument_vector.hpp"
#include "cli/command.hpp"
#include "cli/command_line.hpp"
#include "cli/plural.hpp"
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
std::string complaint_of(std::vector<std::string> line) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return "";
    }
    const Descriptor in(ends[0]);
    Descriptor out(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out.get(), STDERR_FILENO);
    pid_t child = -1;
    const int reason = posix_spawnp(
        &child, line[0].c_str(), &actions, nullptr, argument_vector(line).data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    out.reset();
    if (reason != 0) {
        return "";
    }
    std::string text;
    std::array<char, 512> chunk;
    for (ssize_t got; (got = read(in.get(), chunk.data(), chunk.size())) > 0;) {
        text.append(chunk.data(), static_cast<std::size_t>(got));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "" : text;
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
