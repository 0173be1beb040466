#include "library/machine_states.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <system_error>

#include "cli/child.hpp"

namespace kx::ctl {
namespace {

constexpr char kVirsh[] = "/usr/bin/virsh";
constexpr std::string_view kQuestion = "/usr/bin/virsh domstate ";

MachineStates* active = nullptr;

}  // namespace

bool has_virsh() {
    std::error_code error;
    return std::filesystem::exists(kVirsh, error) || error;
}

MachineStates::MachineStates() { active = this; }

MachineStates::~MachineStates() { active = nullptr; }

// A machine that changes its state between the two lists may be in both.
void MachineStates::read_list(const char* option, const char* state) {
    std::string names;
    const int status = run_child({kVirsh, "list", "--name", option}, [&](const Descriptor& in) {
        std::array<char, 4096> chunk;
        const ssize_t got = read(in.get(), chunk.data(), chunk.size());
        names.append(chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        return got >= 0 || errno == EINTR;
    });
    if (status != 0) {
        return;
    }
    std::istringstream lines(names);
    for (std::string name; std::getline(lines, name);) {
        if (const auto [place, is_new] = states_.emplace(name, state); !is_new) {
            place->second.clear();
        }
    }
}

void MachineStates::read_lists() {
    lists_read_ = true;
    read_list("--state-running", "running");
    read_list("--state-paused", "paused");
}

std::optional<std::string> MachineStates::answer(const std::string& command) {
    if (active == nullptr || !command.starts_with(kQuestion)) {
        return std::nullopt;
    }
    const std::string_view name = std::string_view(command).substr(kQuestion.size());
    if (name.find('\'') != name.npos) {
        return std::nullopt;  // quoted for the shell
    }
    if (!active->lists_read_) {
        active->read_lists();
    }
    const auto found = active->states_.find(name);
    if (found == active->states_.end() || found->second.empty()) {
        return std::nullopt;
    }
    return found->second + "\n\n";
}

void MachineStates::note_answer(const std::string& command) {
    if (active != nullptr && command.starts_with(kQuestion)) {
        active->answered_.insert(command.substr(kQuestion.size()));
    }
}

}  // namespace kx::ctl
