// Runs of kxctl at the same time: none loses a line of another, and a waiting run can be stopped.
#include "settings/configuration_lock.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/settings.h>

#include <future>
#include <set>
#include <sstream>
#include <thread>

#include "failure/failure.hpp"
#include "kxctl/on_host.hpp"
#include "library/call.hpp"

namespace {

using namespace kx::ctl;
using Purpose = ConfigurationLock::Purpose;
using namespace std::chrono_literals;

constexpr char kDirectory[] = "/etc/kestrix-plexo";

class Locked : public testing::Test {
protected:
    Locked() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
        host_.directory(kDirectory);
    }

    static test::Result set_port(std::vector<std::string> options) {
        std::vector<std::string> words = {"port", "set", "03:00.4", "1", "mtu=9000"};
        words.insert(words.end(), options.begin(), options.end());
        return test::run(words);
    }

    kxsim::Host host_;
};

constexpr int kProcesses = 4;
constexpr int kSettings = 500;
constexpr int kKeys = 125;  // each written four times, so that lines are added and replaced

std::string key_of(int process, int k) { return "p" + std::to_string(process * 1000 + k) + "_"; }

// The work of one process; returns the exit code.
int save_settings(int process) {
    for (int n = 0; n < kSettings; ++n) {
        const ConfigurationLock lock(Purpose::kWrite, std::nullopt);
        const std::string key = key_of(process, n % kKeys);
        if (call_library([&] { return savePortParam(key.c_str(), "eth2", 1, n); }) != 0) {
            return 1;
        }
    }
    return 0;
}

TEST_F(Locked, FourProcessesWithFiveHundredSettingsEachLoseNone) {
    const auto attached = host_.attach();
    std::vector<pid_t> children;
    for (int process = 1; process <= kProcesses; ++process) {
        children.push_back(fork());
        ASSERT_NE(children.back(), -1);
        if (children.back() == 0) {
            _exit(save_settings(process));
        }
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    std::multiset<std::string> expected;
    for (int process = 1; process <= kProcesses; ++process) {
        for (int k = 0; k < kKeys; ++k) {
            expected.insert(
                "eth2." + key_of(process, k) + " = " + std::to_string(kSettings - kKeys + k));
        }
    }
    std::multiset<std::string> saved;
    std::istringstream file(host_.read(std::string(kDirectory) + "/kxportparams.conf"));
    for (std::string line; std::getline(file, line);) {
        saved.insert(line);
    }
    EXPECT_EQ(saved, expected);
}

TEST_F(Locked, CommandsThatMayNotWaitAreBusy) {
    const auto attached = host_.attach();
    const ConfigurationLock lock(Purpose::kWrite, std::nullopt);
    for (std::vector<std::string> options :
         {std::vector<std::string>{"--no-wait"}, std::vector<std::string>{"--wait", "0.05"}}) {
        for (std::vector<std::string> words :
             {std::vector<std::string>{"port", "set", "03:00.4", "1", "mtu=9000"},
              std::vector<std::string>{"offload", "set", "03:00.4", "mss=1460"},
              std::vector<std::string>{"restore"}, std::vector<std::string>{"repair"}}) {
            words.insert(words.end(), options.begin(), options.end());
            const test::Result result = test::run(words);
            EXPECT_EQ(result.exit, 5) << words[0];
            EXPECT_EQ(result.err, "kxctl: Another kxctl works on the configuration files\n");
            EXPECT_EQ(result.out, "");
        }
    }
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
    const test::Result result = set_port({"--no-wait", "-j"});
    EXPECT_EQ(nlohmann::json::parse(result.out).at("error").at("code"), 5);
}

TEST_F(Locked, PlanningNeedsNoLock) {
    const auto attached = host_.attach();
    const ConfigurationLock lock(Purpose::kWrite, std::nullopt);
    EXPECT_EQ(set_port({"--dry-run", "--no-wait"}).exit, 0);
}

TEST_F(Locked, WaitingLongerThanASecondIsShown) {
    const auto attached = host_.attach();
    std::optional<ConfigurationLock> lock(std::in_place, Purpose::kWrite, std::nullopt);
    auto waiting = std::async(std::launch::async, [] { return set_port({"--wait", "60"}); });
    EXPECT_EQ(waiting.wait_for(1500ms), std::future_status::timeout);
    lock.reset();
    const test::Result result = waiting.get();
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(
        result.err, "kxctl: waiting for another kxctl that works on the configuration files\n");
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
}

TEST_F(Locked, LockOfAProcessThatDiedIsFree) {
    const auto attached = host_.attach();
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        const ConfigurationLock lock(Purpose::kWrite, std::nullopt);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(set_port({"--no-wait"}).exit, 0);
}

TEST_F(Locked, ReadersLeaveAHostWithoutConfigurationAlone) {
    host_.remove(kDirectory);
    EXPECT_EQ(test::run_on(host_, {"restore"}).exit, 0);
    EXPECT_EQ(test::run_on(host_, {"repair"}).exit, 0);
    EXPECT_FALSE(host_.exists(kDirectory));
}

TEST_F(Locked, OptionsExcludeEachOther) {
    EXPECT_EQ(test::run_on(host_, {"restore", "--no-wait", "--wait", "1"}).exit, 2);
    EXPECT_EQ(test::run_on(host_, {"restore", "--wait", "soon"}).exit, 2);
    EXPECT_EQ(test::run_on(host_, {"restore", "--wait", "0"}).exit, 2);
}

}  // namespace
