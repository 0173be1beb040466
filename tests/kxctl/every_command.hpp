// Every command of the table on a simulated host, with the words of its first example.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "cli/command.hpp"
#include "kxctl/boot_rom.hpp"
#include "kxctl/process.hpp"
#include "support/scratch_directory.hpp"

namespace test {

inline std::vector<std::string> words_of(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

// A working directory with the files that the examples read.
class ExampleDirectory {
public:
    ExampleDirectory() {
        directory_.write("rom.bin", boot_rom({}));
        directory_.write("config.bin", "CBIO" + std::string(1660, '\0'));
        directory_.write("host.toml", "[[port]]\ninterface = \"eth2\"\nmtu = 9000\n");
    }

private:
    const ScratchDirectory directory_;
    const WorkingDirectory here_{directory_.path()};
};

// The words of a command's first example; a command with --dry-run gets that option.
inline std::vector<std::string> example_of(const kx::ctl::Command& command) {
    std::vector<std::string> words = words_of(command.examples[0]);
    words.erase(words.begin());
    const bool can_plan = std::ranges::any_of(command.arguments, [](const auto& argument) {
        return std::string_view(argument.name) == "--dry-run";
    });
    if (can_plan && std::ranges::find(words, "--dry-run") == words.end()) {
        words.emplace_back("--dry-run");
    }
    return words;
}

// How the first example ends: rom.bin is not what the flash holds, and a host without a change has
// none to take back or to keep.
inline int exit_of_example(const kx::ctl::Command& command) {
    constexpr int kNotFound = 3;
    constexpr int kPartly = 4;
    const std::string name = command.name();
    return name == "flash verify" ? kPartly : name == "revert" || name == "confirm" ? kNotFound : 0;
}

inline std::string name_of_command(const testing::TestParamInfo<const kx::ctl::Command*>& info) {
    std::string name = std::string(info.param->noun) + "_" + info.param->verb;
    std::ranges::replace(name, '-', '_');
    return name;
}

inline std::vector<const kx::ctl::Command*> all_commands() {
    std::vector<const kx::ctl::Command*> all;
    for (const kx::ctl::Command& command : kx::ctl::commands()) {
        all.push_back(&command);
    }
    return all;
}

}  // namespace test
