// Changes as a whole: their journal, their read-back, and taking them back when a step fails.
#include "change/transaction.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "change/port_steps.hpp"
#include "change/record.hpp"
#include "failure/failure.hpp"
#include "kxctl/on_host.hpp"
#include "settings/port_settings.hpp"
#include "settings/setting.hpp"

namespace {

using kx::ctl::ChangeOptions;
using kx::ctl::ChangeOutcome;
using kx::ctl::ExitCode;
using kx::ctl::Failure;
using testing::HasSubstr;

constexpr char kSaved[] = "/etc/kestrix-plexo/kxportparams.conf";
constexpr char kInterfaces[] = "/etc/kestrix-plexo/kxctl-interfaces";
constexpr char kDone[] = "/var/lib/kxctl/changes/host/done/";
constexpr char kOldSettings[] = "# \xFF kept\neth3.mtu = 1600\n";

class Changes : public testing::Test {
protected:
    Changes() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {{.name = "eth2", .mac = "02:00:00:00:00:02"}, {.name = "eth3"}}});
        host_.file(kSaved, kOldSettings, 0640);
    }

    // Changes eth2 in this process.
    ChangeOutcome change(const std::vector<std::string>& words, const ChangeOptions& options) {
        const auto attached = host_.attach();
        const auto changes = kx::ctl::parse_changes(kx::ctl::port_settings(), words);
        const PortInfo port = kx::ctl::PortDriver("eth2").read();
        std::vector<kx::ctl::ChangeLine> lines;
        for (const auto& each : changes) {
            lines.push_back({.setting = each.setting, .wanted = each.value});
        }
        return kx::ctl::run_change(
            {kx::ctl::step_target(*kx::ctl::host_interface("eth2"))},
            kx::ctl::port_steps(0, lines, port.settings), options);
    }

    // The failure of a change.
    Failure failure(const std::vector<std::string>& words, const ChangeOptions& options) {
        try {
            change(words, options);
        } catch (const Failure& failure) {
            return failure;
        }
        ADD_FAILURE() << "no failure";
        return {ExitCode::kDone, ""};
    }

    kxsim::FaultRule refuse(unsigned command, unsigned nth = 1, unsigned times = 0) {
        return host_.fail(
            {.call = "ioctl", .nth = nth, .times = times, .error = EBUSY, .command = command});
    }

    void expect_as_before() {
        EXPECT_EQ(host_.mtu("eth2"), 1500U);
        EXPECT_EQ(host_.nic("eth2").tso, 1U);
        EXPECT_EQ(host_.nic("eth2").rings.rx_pending, rx_ring_);
        EXPECT_EQ(host_.read(kSaved), kOldSettings);
        EXPECT_FALSE(host_.exists(kInterfaces));
    }

    kxsim::Host host_;
    const unsigned rx_ring_ = kxsim::Nic().rings.rx_pending;
};

TEST_F(Changes, PortSetIsInTheJournal) {
    const auto result = test::run_on(host_, {"port", "set", "eth2", "mtu=9000", "tso=off"});
    EXPECT_EQ(result.exit, 0) << result.err;
    const std::string directory = std::string(kDone) + "1.applied/";
    const auto record = nlohmann::json::parse(host_.read(directory + "record.json"));
    EXPECT_EQ(record["command"], "kxctl port set eth2 mtu=9000 tso=off");
    EXPECT_EQ(record["targets"][0]["mac"], "02:00:00:00:00:02");
    EXPECT_EQ(record["targets"][0]["location"], "0000:03:00.4");
    EXPECT_EQ(record["steps"][0]["key"], "mtu");
    EXPECT_EQ(record["steps"][0]["before"], 1500);
    EXPECT_EQ(record["steps"][0]["wanted"], 9000);
    EXPECT_EQ(record["files"][0]["bytes"], "# \u00FF kept\neth3.mtu = 1600\n");
    EXPECT_EQ(record["files"][0]["mode"], 0640);
    const auto answer = nlohmann::json::parse(host_.read(directory + "result.json"));
    EXPECT_EQ(answer["steps"][0]["now"], 9000);
    EXPECT_THAT(answer["files"][0]["bytes"].get<std::string>(), HasSubstr("eth2.mtu = 9000"));
}

TEST_F(Changes, PortSetKeepsWhatWorkedBesideAFailure) {
    refuse(ETHTOOL_STSO);
    const auto result = test::run_on(host_, {"port", "set", "eth2", "mtu=9000", "tso=off"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
    EXPECT_TRUE(host_.exists(std::string(kDone) + "1.partly"));
}

TEST_F(Changes, TheRecordIsOnTheDiskBeforeTheFirstStep) {
    host_.watch_flushes();
    // Its result cannot be written, so that it stays open.
    host_.fail(
        {.call = "rename",
         .times = 0,
         .error = EIO,
         .object = "/var/lib/kxctl/changes/host/open/*"});
    const auto result = test::run_on(host_, {"port", "set", "eth2", "mtu=9000"});
    host_.clear_faults();
    host_.lose_unflushed();
    EXPECT_TRUE(host_.exists("/var/lib/kxctl/changes/host/open/record.json")) << result.err;
    const auto record =
        nlohmann::json::parse(host_.read("/var/lib/kxctl/changes/host/open/record.json"));
    EXPECT_EQ(record["steps"][0]["before"], 1500);
}

TEST_F(Changes, AFailedStepTakesEverythingBack) {
    refuse(ETHTOOL_STSO);
    const Failure why = failure({"mtu=9000", "tso=off", "ring_rx=512"}, {});
    EXPECT_EQ(why.code(), ExitCode::kBusy) << why.what();
    EXPECT_THAT(why.what(), HasSubstr("everything is as it was before"));
    expect_as_before();
    EXPECT_TRUE(host_.exists(std::string(kDone) + "1.reverted"));
}

TEST_F(Changes, AValueThatReadsBackDifferentlyTakesEverythingBack) {
    kxsim::Nic nic = host_.nic("eth2");
    nic.ring_multiple = 64;
    host_.nic("eth2", nic);
    const ChangeOutcome rounded = change({"mtu=9000", "ring_rx=500"}, {});
    EXPECT_EQ(rounded.steps[1].now, 512) << "a rounded number is no failure";
    test::run_on(host_, {"port", "set", "eth2", "mtu=1500", "ring_rx=1024"});
    host_.file(kSaved, kOldSettings);
    host_.remove(kInterfaces);
    const Failure why = failure({"mtu=9000", "ring_rx=500"}, {.exact = true});
    EXPECT_EQ(why.code(), ExitCode::kVerification);
    EXPECT_THAT(why.what(), HasSubstr("ring_rx of eth2 reads back as 512, not 500"));
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
    EXPECT_EQ(host_.nic("eth2").rings.rx_pending, 1024U);
    EXPECT_EQ(host_.read(kSaved), kOldSettings);
    EXPECT_FALSE(host_.exists(kInterfaces));
}

TEST_F(Changes, WhatCannotBeTakenBackIsTold) {
    refuse(ETHTOOL_SRINGPARAM, 2);
    refuse(ETHTOOL_SCOALESCE);
    const Failure why = failure({"mtu=9000", "ring_rx=512", "rx_usecs=9"}, {});
    EXPECT_EQ(why.code(), ExitCode::kPartly);
    EXPECT_THAT(
        why.what(), HasSubstr("not everything could be taken back: eth2: ring_rx is 512, it was"));
    EXPECT_EQ(host_.mtu("eth2"), 1500U) << "the others are taken back";
    host_.clear_faults();
    const auto next = test::run_on(host_, {"port", "set", "eth2", "mtu=9000"});
    EXPECT_EQ(next.exit, 5);
    EXPECT_THAT(next.err, HasSubstr("first run \"kxctl revert\" to take it back"));
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
}

TEST_F(Changes, WithoutAJournalNothingIsChanged) {
    host_.fail({.call = "write", .times = 0, .error = ENOSPC, .object = "/var/lib/kxctl/*"});
    const auto result = test::run_on(host_, {"port", "set", "eth2", "mtu=9000"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, HasSubstr("No space left on device; nothing was changed"));
    expect_as_before();
    EXPECT_FALSE(host_.exists("/var/lib/kxctl/changes/host/open"));
}

TEST_F(Changes, AnOpenChangeRefusesOtherChanges) {
    host_.file("/var/lib/kxctl/changes/host/open/record.json", "{}");
    for (const char* const setting : {"port set eth2 mtu=9000", "offload set 03:00.4 mss=1400"}) {
        std::vector<std::string> words;
        std::istringstream text(setting);
        for (std::string word; text >> word;) {
            words.push_back(word);
        }
        const auto result = test::run_on(host_, words);
        EXPECT_EQ(result.exit, 5) << setting;
        EXPECT_THAT(result.err, HasSubstr("An earlier change is not finished"));
    }
    EXPECT_EQ(test::run_on(host_, {"port", "set", "eth2", "mtu=9000", "--dry-run"}).exit, 0);
    expect_as_before();
}

}  // namespace
