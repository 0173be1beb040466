// --sim: the words that are removed from the command line, and the program that is run.
#include "cli/simulation.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "failure/failure.hpp"
#include "kxctl/process.hpp"
#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Words = std::vector<std::string>;

struct Row {
    Words words;
    std::optional<std::string> scenario;
    Words rest;
};

TEST(SimulationWords, NameTheScenarioAndLeaveTheCommand) {
    const Row rows[] = {
        {{"card", "list"}, std::nullopt, {"card", "list"}},
        {{"--sim", "card", "list"}, "lab", {"card", "list"}},
        {{"card", "list", "--sim"}, "lab", {"card", "list"}},
        {{"card", "--sim", "list"}, "lab", {"card", "list"}},
        {{"--sim", "-j", "card", "list"}, "lab", {"-j", "card", "list"}},
        {{"--sim", "q4", "card", "list"}, "q4", {"card", "list"}},
        {{"card", "list", "--sim", "q4"}, "q4", {"card", "list"}},
        {{"--sim=q4", "card", "list"}, "q4", {"card", "list"}},
        {{"--sim=card", "card", "list"}, "card", {"card", "list"}},
        {{"--sim", "./card", "card", "list"}, "./card", {"card", "list"}},
        {{"port", "list", "--sim", "03:00.4"}, "lab", {"port", "list", "03:00.4"}},
        {{"port", "list", "03:00.4", "--sim"}, "lab", {"port", "list", "03:00.4"}},
        {{"--sim", "/a:b/c.toml", "version"}, "/a:b/c.toml", {"version"}},
        {{"--sim", "", "version"}, "lab", {"", "version"}},
        {{"--sim", "a", "--sim=b", "version"}, "b", {"version"}},
        {{"--sim", "version"}, "lab", {"version"}},
        {{"--simple"}, std::nullopt, {"--simple"}},
        {{"port", "list", "--", "--sim"}, std::nullopt, {"port", "list", "--", "--sim"}},
        {{"--sim", "--", "x"}, "lab", {"--", "x"}},
        {{"--sim"}, "lab", {}},
        {{}, std::nullopt, {}},
    };
    for (const Row& row : rows) {
        const kx::ctl::SimulationWords taken = kx::ctl::take_simulation(row.words);
        EXPECT_EQ(taken.scenario, row.scenario) << testing::PrintToString(row.words);
        EXPECT_EQ(taken.words, row.rest) << testing::PrintToString(row.words);
    }
}

TEST(SimulationWords, RefuseAnEmptyScenario) {
    EXPECT_THROW(static_cast<void>(kx::ctl::take_simulation({"--sim="})), kx::ctl::Failure);
}

// A directory with a copy of kxctl and, when asked, a "kxsim" that tells how it was called.
class Installation {
public:
    Installation() {
        fs::copy_file(KXCTL_PROGRAM, kxctl());
        fs::create_symlink(built() / "libkxlinhw.so.6", root_ / "libkxlinhw.so.6");
    }

    fs::path kxctl() const { return root_ / "kxctl"; }
    static fs::path built() { return fs::path(KXCTL_PROGRAM).parent_path(); }

    fs::path add_kxsim(const std::string& directory, const std::string& script) const {
        fs::create_directories(root_ / directory);
        const fs::path tool = root_.write(directory + "/kxsim", "#!/bin/sh\n" + script);
        fs::permissions(tool, fs::perms::owner_all);
        return tool.parent_path();
    }

    // PATH has nothing but the basic tools and `front`. The library stays in the build tree.
    test::Result run(const Words& words, const std::string& front = "/nowhere") const {
        test::Setup setup;
        setup.program = kxctl();
        setup.environment = {
            "PATH=" + front + ":/usr/bin:/bin",
            "LD_LIBRARY_PATH=" + fs::path(KXCTL_PROGRAM).parent_path().string()};
        return test::run(words, setup);
    }

private:
    test::ScratchDirectory root_;
};

constexpr const char* kTell = "printf '%s|' \"$@\"\n";

TEST(SimulatedRun, UsesTheSimulatorBesideKxctl) {
    const Installation installation;
    installation.add_kxsim(".", kTell);
    const fs::path other = installation.add_kxsim("other", "echo other\n");
    const test::Result result =
        installation.run({"-v", "port", "list", "--sim", "--", "a b"}, other);
    EXPECT_EQ(
        result.out,
        "run|--scenario|lab|--|" + installation.kxctl().string() + "|-v|port|list|--|a b|");
    EXPECT_EQ(result.exit, 0);
}

TEST(SimulatedRun, ForAMachineLooksAtTheScenarioFirst) {
    const Installation installation;
    installation.add_kxsim(".", kTell);
    const test::Result result = installation.run({"-j", "card", "list", "--sim"});
    EXPECT_EQ(
        result.out, "run|--scenario|lab|--|true|run|--scenario|lab|--|" +
                        installation.kxctl().string() + "|-j|card|list|");
}

TEST(SimulatedRun, ForAMachineDoesNotWaitForever) {
    const Installation installation;
    installation.add_kxsim(".", "[ \"$5\" = true ] && sleep 30\nexit 0\n");
    setenv("KXCTL_TIMEOUT", "1", 1);
    const test::Result result = installation.run({"-j", "card", "list", "--sim"});
    unsetenv("KXCTL_TIMEOUT");
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.out, HasSubstr("The simulated host did not start within 1 seconds"));
}

TEST(SimulatedRun, FallsBackToTheSimulatorInThePath) {
    const Installation installation;
    const fs::path other = installation.add_kxsim("other", kTell);
    EXPECT_THAT(
        installation.run({"--sim", "q3", "version"}, other).out,
        testing::StartsWith("run|--scenario|q3|--|"));
}

TEST(SimulatedRun, GivesTheExitCodeOfTheSimulator) {
    const Installation installation;
    installation.add_kxsim(".", "exit 77\n");
    EXPECT_EQ(installation.run({"--sim", "version"}).exit, 77);
}

TEST(SimulatedRun, HandsOverDefaultSignals) {
    const Installation installation;
    installation.add_kxsim(".", "kill -PIPE $$\nexit 0\n");
    EXPECT_EQ(installation.run({"--sim", "version"}).exit, 128 + SIGPIPE);
}

TEST(SimulatedRun, WithoutASimulatorSaysSo) {
    const Installation installation;
    const test::Result result = installation.run({"--sim", "version"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(
        result.err, "kxctl: The simulated host is not installed: no kxsim in " +
                        installation.kxctl().parent_path().string() + " or in PATH\n");
}

TEST(SimulatedRun, WithoutASimulatorSaysSoInJsonToo) {
    const Installation installation;
    const test::Result result = installation.run({"--sim", "version", "-j"});
    const nlohmann::json error = nlohmann::json::parse(result.out).at("error");
    EXPECT_EQ(error.at("code"), 1);
    EXPECT_THAT(error.at("text").get<std::string>(), HasSubstr("no kxsim"));
}

// Without the library that simulates the host, the commands would work on the real machine.
TEST(SimulatedRun, IsRefusedByTheSecondKxctlWithoutTheLibrary) {
    const Installation installation;
    installation.add_kxsim(".", "shift 4\nexec \"$@\"\n");
    const test::Result result = installation.run({"card", "list", "--sim"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("libkxsim.so is not loaded"));
}

TEST(SimulatedRun, IsRefusedWhenOnlyTheEnvironmentNamesTheHost) {
    test::Setup setup;
    setup.environment = {"KXSIM_ROOT=/tmp"};
    const test::Result result = test::run({"card", "list"}, setup);
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("libkxsim.so is not loaded"));
}

TEST(SimulatedRun, WorksFromADirectoryWithABlank) {
    const Installation installation;
    const fs::path blank = installation.kxctl().parent_path() / "a b";
    fs::create_directories(blank / "scenarios");
    for (const char* file :
         {"kxctl", "kxsim", "libkxsim.so", "libkxlinhw.so.6", "scenarios/lab.toml"}) {
        fs::copy_file(Installation::built() / file, blank / file);
    }
    test::Setup setup;
    setup.program = blank / "kxctl";
    const test::Result result = test::run({"--sim", "lab", "-j", "card", "list"}, setup);
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(nlohmann::json::parse(result.out).at("cards").size(), 3U) << result.out;
}

TEST(SimulatedRun, NeverStartsForAWrongCommandLine) {
    const Installation installation;
    installation.add_kxsim(".", kTell);
    const test::Result result = installation.run({"--sim", "lab", "port", "list"});
    EXPECT_EQ(result.exit, 2);
    EXPECT_EQ(result.out, "");
}

}  // namespace
