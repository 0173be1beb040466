// The completions in their shells. Their words are compared with the command table and with the
// simulated host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string_view>

#include "cli/command.hpp"
#include "kxctl/process.hpp"

namespace {

using namespace kx::ctl;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

using Words = std::vector<std::string>;

struct Shell {
    const char* name;
    const char* completion;  // below the directory of completions
    Words flags;             // no file of the user is read
};

std::ostream& operator<<(std::ostream& stream, const Shell& shell) { return stream << shell.name; }

const Shell kShells[] = {
    {"bash", "bash/kxctl", {"--norc"}},
    {"zsh", "zsh/_kxctl", {"-f"}},
    {"fish", "fish/kxctl.fish", {"--no-config"}},
};

bool is_installed(const std::string& program) {
    return test::run({"-c", "command -v " + program}, {.program = "sh"}).exit == 0;
}

class Completion : public testing::TestWithParam<Shell> {
protected:
    void SetUp() override {
        if (!is_installed(GetParam().name)) {
            GTEST_SKIP() << "there is no " << GetParam().name << " on this machine";
        }
    }

    // The words that the shell offers at the end of each line; its temporary files are in a
    // directory.
    std::map<std::string, Words> offers(
        const Words& lines, const std::string& scratch = testing::TempDir()) const {
        const Shell& shell = GetParam();
        const std::filesystem::path programs = std::filesystem::path(KXCTL_PROGRAM).parent_path();
        Words words = {"300", shell.name};
        words.insert(words.end(), shell.flags.begin(), shell.flags.end());
        words.push_back(std::string(KX_DOCS_TESTS "/complete.") + shell.name);
        words.push_back(std::string(KX_COMPLETIONS "/") + shell.completion);
        words.insert(words.end(), lines.begin(), lines.end());
        const test::Result result = test::run(
            words, {.program = "timeout",
                    .environment = {
                        "PATH=" + programs.string() + ":" + std::getenv("PATH"),
                        "HOME=" + testing::TempDir(), "TERM=dumb", "TMPDIR=" + scratch}});
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_EQ(result.err, "");
        return sorted_by_line(result.out);
    }

    Words offer(const std::string& line) const { return offers({line})[line]; }

private:
    static std::map<std::string, Words> sorted_by_line(const std::string& out) {
        std::map<std::string, Words> offers;
        std::istringstream stream(out);
        Words* words = nullptr;
        for (std::string line; std::getline(stream, line);) {
            if (line.starts_with("> ")) {
                words = &offers[line.substr(2)];
            } else {
                words->push_back(line);
            }
        }
        return offers;
    }
};

INSTANTIATE_TEST_SUITE_P(Shells, Completion, testing::ValuesIn(kShells), [](const auto& shell) {
    return std::string(shell.param.name);
});

Words nouns() {
    Words all;
    for (const Command& command : commands()) {
        if (all.empty() || all.back() != command.noun) {
            all.emplace_back(command.noun);
        }
    }
    return all;
}

Words verbs(const std::string& noun) {
    Words all;
    for (const Command& command : commands()) {
        if (noun == command.noun && *command.verb != '\0') {
            all.emplace_back(command.verb);
        }
    }
    return all;
}

TEST_P(Completion, OffersEveryNoun) {
    EXPECT_THAT(offer("kxctl "), UnorderedElementsAreArray(nouns()));
}

TEST_P(Completion, OffersEveryVerbOfANoun) {
    Words lines;
    for (const std::string& noun : nouns()) {
        lines.push_back("kxctl " + noun + " ");
    }
    auto all = offers(lines);
    for (const std::string& noun : nouns()) {
        if (!verbs(noun).empty()) {
            EXPECT_THAT(all["kxctl " + noun + " "], UnorderedElementsAreArray(verbs(noun))) << noun;
        }
    }
}

// The long names of options.
Words long_names(std::span<const Argument> arguments) {
    Words names;
    for (const Argument& argument : arguments) {
        const std::string_view name = argument.name;
        if (argument.is_option()) {
            names.emplace_back(name.substr(name.rfind(',') + 1));
        }
    }
    return names;
}

TEST_P(Completion, OffersTheOptionsOfEveryCommand) {
    Words lines;
    for (const Command& command : commands()) {
        lines.push_back("kxctl " + command.name() + " --");
    }
    auto all = offers(lines);
    for (const Command& command : commands()) {
        Words expected = long_names(command.arguments);
        const Words global = long_names(global_options());
        expected.insert(expected.end(), global.begin(), global.end());
        EXPECT_THAT(all["kxctl " + command.name() + " --"], UnorderedElementsAreArray(expected))
            << command.name();
    }
}

// A line up to the KEY=VALUE of a command.
std::string line_up_to_settings(const Command& command) {
    std::string line = "kxctl " + command.name();
    for (const Argument& argument : command.arguments) {
        if (!argument.is_option() && argument.count == Count::kOne) {
            line += " word";
        }
    }
    return line + " ";
}

TEST_P(Completion, OffersTheSettingsOfEveryCommandThatSetsSomething) {
    Words lines;
    for (const Command& command : commands()) {
        if (!command.settings().empty()) {
            lines.push_back(line_up_to_settings(command));
        }
    }
    auto all = offers(lines);
    for (const Command& command : commands()) {
        Words expected;
        for (const Term& setting : command.settings()) {
            if (setting.values.empty()) {
                expected.push_back(setting.word + "=");
            }
            for (const std::string& value : setting.values) {
                expected.push_back(setting.word + "=" + value);
            }
        }
        if (!expected.empty()) {
            EXPECT_THAT(all[line_up_to_settings(command)], UnorderedElementsAreArray(expected));
        }
    }
}

TEST_P(Completion, GoesOnWithAWordThatWasBegun) {
    auto all = offers({"kxctl ver", "kxctl port st", "kxctl port set 03:00.4 1 mtu=9000 ts"});
    EXPECT_THAT(all["kxctl ver"], ElementsAre("version"));
    EXPECT_THAT(all["kxctl port st"], ElementsAre("stats"));
    EXPECT_THAT(
        all["kxctl port set 03:00.4 1 mtu=9000 ts"], UnorderedElementsAre("tso=off", "tso=on"));
}

TEST_P(Completion, GoesOnBehindColonsAndEqualSigns) {
    auto all = offers(
        {"kxctl --sim lab port list 03:", "kxctl port set 03:00.4 1 tso=o",
         "kxctl card list --color=a"});
    EXPECT_THAT(all["kxctl --sim lab port list 03:"], ElementsAre("03:00.4"));
    EXPECT_THAT(all["kxctl port set 03:00.4 1 tso=o"], UnorderedElementsAre("tso=off", "tso=on"));
    EXPECT_THAT(
        all["kxctl card list --color=a"], UnorderedElementsAre("--color=auto", "--color=always"));
}

TEST_P(Completion, OffersTheCardsAndPortsOfTheHostThatTheLineNames) {
    auto all = offers(
        {"kxctl --sim lab port show ", "kxctl port show --sim=nic-only-q3 ",
         "kxctl port stats --sim 04:00.4 ", "kxctl --sim lab port set eth2 ts"});
    EXPECT_THAT(
        all["kxctl --sim lab port show "], UnorderedElementsAre(
                                               "03:00.4", "04:00.4", "05:00.0", "eth2", "eth3",
                                               "eth4", "eth5", "eth6", "eth7", "eth8", "eth9"));
    EXPECT_THAT(all["kxctl port show --sim=nic-only-q3 "], testing::Contains("05:00.0"));
    EXPECT_THAT(all["kxctl --sim lab port set eth2 ts"], UnorderedElementsAre("tso=off", "tso=on"));
    EXPECT_THAT(all["kxctl port stats --sim 04:00.4 "], UnorderedElementsAre("1", "2", "3", "4"));
}

TEST_P(Completion, OffersTheMachinesOfTheHostByName) {
    EXPECT_THAT(offer("kxctl --sim vf list "), IsSupersetOf({"web1", "db1", "batch1"}));
}

TEST_P(Completion, OffersTheFunctionsThatAMachineCanBeGivenOrHas) {
    auto all = offers({"kxctl --sim vf attach web1 ", "kxctl --sim vf detach db1 "});
    EXPECT_THAT(all["kxctl --sim vf attach web1 "], IsSupersetOf({"0000:04:01.0", "0000:04:01.7"}));
    EXPECT_THAT(
        all["kxctl --sim vf detach db1 "], UnorderedElementsAre("0000:04:01.1", "0000:04:01.2"));
}

TEST_P(Completion, OffersTheBridgesAndInterfacesOfAMachine) {
    auto all = offers({"kxctl --sim bridge attach web1 ", "kxctl --sim bridge detach web1 "});
    EXPECT_THAT(all["kxctl --sim bridge attach web1 "], ElementsAre("br0"));
    EXPECT_THAT(all["kxctl --sim bridge detach web1 "], ElementsAre("testnet0"));
}

TEST_P(Completion, OffersTheRdmaDriversThatAreInstalled) {
    auto all = offers({"kxctl --sim iwarp show ", "kxctl --sim=empty iwarp set "});
    EXPECT_THAT(all["kxctl --sim iwarp show "], UnorderedElementsAre("iw_zfab3", "iw_zfab4"));
    EXPECT_THAT(all["kxctl --sim=empty iwarp set "], IsEmpty());
}

TEST_P(Completion, OffersScenariosAndBehindTheBareOptionCommandsToo) {
    auto all = offers({"kxctl --sim=", "kxctl --sim "});
    EXPECT_THAT(all["kxctl --sim="], Contains("--sim=nic-only-q3"));
    EXPECT_THAT(all["kxctl --sim "], IsSupersetOf({"nic-only-q3", "card", "port"}));
}

TEST_P(Completion, OffersTheValuesOfAnOptionAndNothingForANumber) {
    auto all = offers({"kxctl card list --color ", "kxctl card stats --watch "});
    EXPECT_THAT(all["kxctl card list --color "], UnorderedElementsAre("auto", "always", "never"));
    EXPECT_THAT(all["kxctl card stats --watch "], IsEmpty());
}

TEST_P(Completion, WorksBelowADirectoryWithBlanksAndLeavesItsNeighboursAlone) {
    const std::filesystem::path directory =
        std::filesystem::path(testing::TempDir()) / ("blanks-" + std::to_string(getpid()));
    const std::filesystem::path neighbour = directory / "a";
    const std::filesystem::path scratch = directory / "a b";
    create_directories(neighbour);
    create_directories(scratch);

    EXPECT_THAT(offers({"kxctl "}, scratch)["kxctl "], UnorderedElementsAreArray(nouns()));
    EXPECT_TRUE(exists(neighbour));
    EXPECT_TRUE(is_empty(scratch));

    remove_all(directory);
}

TEST_P(Completion, OffersNothingWhereNoWordIsTaken) {
    auto all = offers({"kxctl card list ", "kxctl nonsense ", "kxctl port show 03:00.4 1 "});
    EXPECT_THAT(all["kxctl card list "], IsEmpty());
    EXPECT_THAT(all["kxctl nonsense "], IsEmpty());
    EXPECT_THAT(all["kxctl port show 03:00.4 1 "], IsEmpty());
}

}  // namespace
