// apply: what a state file wants is made as a whole, or taken back as a whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "kxctl/on_host.hpp"
#include "support/scratch_directory.hpp"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

constexpr char kSaved[] = "/etc/kestrix-plexo/kxportparams.conf";
constexpr char kRecords[] = "/etc/kestrix-plexo/kxctl-interfaces";
constexpr char kOldSaved[] = "# by hand\n eth2.mtu =  1500\neth2.gso = 1\n";

class ApplyCommand : public testing::Test {
protected:
    ApplyCommand() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {
                 {.name = "eth2", .mac = "00:07:43:05:00:01", .ipv4 = {"192.0.2.12/24"}},
                 {.name = "eth3", .mac = "00:07:43:05:00:02"}}});
        host_.directory("/etc/kestrix-plexo");
        host_.file(kSaved, kOldSaved);
        before_ = state();
    }

    test::Result run(std::vector<std::string> words) {
        return test::run_on(host_, std::move(words));
    }

    test::Result apply(const std::string& text, std::vector<std::string> words = {}) {
        words.insert(words.begin(), {"apply", directory_.write("host.toml", text)});
        return run(words);
    }

    std::string state() { return run({"state", "save"}).out; }

    // What a change that was taken back leaves.
    void expect_as_before() {
        EXPECT_EQ(state(), before_);
        EXPECT_EQ(host_.read(kSaved), kOldSaved);
        EXPECT_FALSE(host_.exists(kRecords));
    }

    kxsim::Host host_;
    const test::ScratchDirectory directory_;
    std::string before_;
};

constexpr char kWanted[] =
    "[[port]]\ninterface = \"eth2\"\nmtu = 9000\ntso = false\n"
    "[[port]]\ninterface = \"eth3\"\nrx_usecs = 9\ngso = false\n";

TEST_F(ApplyCommand, SetsReadsBackAndSaves) {
    const test::Result result = apply(kWanted);
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(
        result.out,
        "PORT  SETTING   BEFORE   NOW  RESULT\n"
        "eth2  mtu         1500  9000  applied\n"
        "eth2  tso           on   off  applied\n"
        "eth3  gso           on   off  applied\n"
        "eth3  rx_usecs       5     9  applied\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
    EXPECT_EQ(host_.nic("eth2").tso, 0U);
    EXPECT_EQ(host_.nic("eth3").coalescing.rx_coalesce_usecs, 9U);
    EXPECT_THAT(host_.read(kSaved), HasSubstr("eth2.mtu = 9000\n"));
    EXPECT_THAT(host_.read(kRecords), HasSubstr("eth3 00:07:43:05:00:02"));
}

TEST_F(ApplyCommand, ASecondTimeDoesNothingAndSaysSo) {
    EXPECT_EQ(apply(kWanted).exit, 0);
    const std::string saved = host_.read(kSaved);
    const test::Result result = apply(kWanted);
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.out, "Nothing differs, nothing was changed\n");
    EXPECT_EQ(host_.read(kSaved), saved);
    EXPECT_EQ(test::json_on(host_, {"history"})["changes"].size(), 1U);
    const Json answer = Json::parse(apply(kWanted, {"--json"}).out);
    EXPECT_EQ(answer["changed"], false);
    EXPECT_TRUE(answer["change"].is_null());
}

TEST_F(ApplyCommand, DoesWhatPlanShows) {
    directory_.write("host.toml", kWanted);
    const Json plan = Json::parse(run({"plan", directory_ / "host.toml", "--json"}).out);
    const Json done = Json::parse(apply(kWanted, {"--json"}).out);
    ASSERT_EQ(plan["steps"].size(), done["steps"].size());
    for (std::size_t i = 0; i < plan["steps"].size(); ++i) {
        for (const char* const key : {"interface", "key", "before", "wanted"}) {
            EXPECT_EQ(plan["steps"][i][key], done["steps"][i][key]);
        }
        EXPECT_EQ(done["steps"][i]["now"], done["steps"][i]["wanted"]);
    }
    EXPECT_EQ(done["change"], 1);
    EXPECT_EQ(done["steps"][1]["wanted"], false) << "as port show has it";
    EXPECT_EQ(done["changed"], true);
}

TEST_F(ApplyCommand, ARefusedStepTakesEverythingBack) {
    host_.refuse("eth3", ETHTOOL_SGSO, EIO);
    const test::Result result = apply(kWanted);
    EXPECT_EQ(result.exit, 1) << result.out;
    EXPECT_THAT(result.err, HasSubstr("eth3"));
    EXPECT_THAT(result.err, HasSubstr("everything is as it was before"));
    EXPECT_EQ(result.out, "");
    expect_as_before();
    const Json answer = Json::parse(apply(kWanted, {"--json"}).out);
    EXPECT_EQ(answer["error"]["code"], 1);
}

TEST_F(ApplyCommand, AValueThatReadsBackDifferentlyTakesEverythingBack) {
    host_.ignore("eth3", ETHTOOL_SGSO);
    const test::Result result = apply(kWanted);
    EXPECT_EQ(result.exit, 6) << result.out;
    EXPECT_THAT(result.err, HasSubstr("gso of eth3 reads back as"));
    expect_as_before();
}

// A driver that stops answering after the plan was made.
TEST_F(ApplyCommand, AValueThatCannotBeReadBackIsNotApplied) {
    kxsim::Fault fault{
        .call = "ioctl",
        .nth = UINT32_MAX,
        .times = 0,
        .error = EIO,
        .object = "eth2",
        .command = ETHTOOL_GTSO,
        .program = "kxctl"};
    kxsim::FaultRule reading = host_.fail(fault);
    directory_.write("host.toml", kWanted);
    static_cast<void>(run({"plan", directory_ / "host.toml"}));
    fault.nth = reading.seen() + 1;
    reading.remove();
    host_.fail(fault);
    const test::Result result = apply(kWanted);
    EXPECT_EQ(result.exit, 4) << result.out;
    EXPECT_THAT(result.err, HasSubstr("kxctl: eth2: tso cannot be read back\n"));
    host_.clear_faults();
    EXPECT_EQ(run({"revert"}).exit, 0);
    expect_as_before();
}

TEST_F(ApplyCommand, ARoundedValueIsReportedAndFailsOnlyWithExact) {
    kxsim::Nic nic = host_.nic("eth2");
    nic.ring_multiple = 64;
    host_.nic("eth2", nic);
    const std::string wanted = "[[port]]\ninterface = \"eth2\"\nring_rx = 1000\nmtu = 9000\n";
    test::Result result = apply(wanted, {"--exact"});
    EXPECT_EQ(result.exit, 6) << result.out;
    expect_as_before();
    nic.rings.rx_pending = 512;
    host_.nic("eth2", nic);
    result = apply(wanted);
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.err, "kxctl: eth2: ring_rx is 1024: the driver rounded 1000\n");
    EXPECT_THAT(result.out, HasSubstr("ring_rx     512  1024  rounded\n"));
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
    result = apply(wanted);
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.out, "Nothing differs, nothing was changed\n");
    EXPECT_EQ(result.err, "kxctl: eth2: ring_rx stays 1024: the driver rounded 1000\n");
    EXPECT_EQ(run({"plan", directory_ / "host.toml"}).exit, 0);
}

TEST_F(ApplyCommand, KeepGoingAppliesTheRest) {
    host_.refuse("eth2", ETHTOOL_STSO, EIO);
    const test::Result result = apply(kWanted, {"--keep-going"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
    EXPECT_EQ(host_.nic("eth3").gso, 0U);
    EXPECT_EQ(host_.nic("eth2").tso, 1U);
    EXPECT_EQ(test::json_on(host_, {"history"})["changes"][0]["state"], "partly");
}

TEST_F(ApplyCommand, KeepGoingReportsWhatCouldNotBeSaved) {
    for (const char* const object : {kRecords, kSaved}) {
        host_.fail(
            {.call = "write",
             .times = 0,
             .error = ENOSPC,
             .object = std::string(object) + ".*",
             .program = "kxctl"});
        const test::Result result = apply(kWanted, {"--keep-going"});
        EXPECT_EQ(result.exit, 4) << object << result.out << result.err;
        host_.clear_faults();
        EXPECT_EQ(run({"revert", "--force"}).exit, 0);
    }
}

TEST_F(ApplyCommand, ErrorsAreFoundBeforeAnythingIsChanged) {
    const test::Result result =
        apply("[[port]]\ninterface = \"eth2\"\nmtu = 9000\nring_rx = 99999\n");
    EXPECT_EQ(result.exit, 2);
    EXPECT_THAT(result.err, HasSubstr("host.toml:4:1: eth2: ring_rx cannot be 99999"));
    expect_as_before();
    EXPECT_EQ(test::json_on(host_, {"history"})["changes"].size(), 0U);
}

// The journal is written first, so that a full disk changes nothing.
TEST_F(ApplyCommand, WithoutRoomForTheJournalNothingIsChanged) {
    host_.fail(
        {.call = "write",
         .times = 0,
         .error = ENOSPC,
         .object = "/var/lib/kxctl*",
         .program = "kxctl"});
    const test::Result result = apply(kWanted);
    host_.clear_faults();
    EXPECT_EQ(result.exit, 1) << result.err;
    expect_as_before();
}

TEST_F(ApplyCommand, WithoutRoomForTheSavedSettingsEverythingIsTakenBack) {
    host_.fail(
        {.call = "write",
         .nth = 1,
         .times = 1,
         .error = ENOSPC,
         .object = "/etc/kestrix-plexo/kxportparams*",
         .program = "kxctl"});
    const test::Result result = apply(kWanted);
    host_.clear_faults();
    EXPECT_NE(result.exit, 0) << result.out;
    expect_as_before();
}

// The MTU is set, the next step fails, and then the MTU cannot be put back.
TEST_F(ApplyCommand, WhatCannotBeTakenBackIsReportedAndStopsOtherChanges) {
    host_.refuse("eth3", ETHTOOL_SGSO, EIO);
    host_.fail(
        {.call = "ioctl",
         .nth = 2,
         .times = 0,
         .error = EIO,
         .object = "eth2",
         .command = SIOCSIFMTU,
         .program = "kxctl"});
    test::Result result = apply(kWanted);
    EXPECT_EQ(result.exit, 4) << result.out;
    EXPECT_THAT(result.err, HasSubstr("mtu is 9000, it was 1500"));
    EXPECT_EQ(host_.nic("eth2").tso, 1U) << "everything else is taken back";
    host_.clear_faults();
    host_.refuse("eth3", ETHTOOL_SGSO, 0);
    result = apply(kWanted);
    EXPECT_EQ(result.exit, 5);
    EXPECT_THAT(result.err, HasSubstr("kxctl revert"));
    EXPECT_EQ(run({"revert"}).exit, 0);
    expect_as_before();
    EXPECT_EQ(apply(kWanted).exit, 0);
}

TEST_F(ApplyCommand, RevertTakesItBack) {
    EXPECT_EQ(apply(kWanted).exit, 0);
    const test::Result result = run({"revert"});
    EXPECT_EQ(result.exit, 0) << result.err;
    expect_as_before();
}

TEST_F(ApplyCommand, AsksBeforeItChangesThePortOfTheSession) {
    test::Setup setup;
    setup.environment = {"SSH_CONNECTION=192.0.2.1 50000 192.0.2.12 22"};
    const auto attached = host_.attach();
    const std::string file = directory_.write("host.toml", kWanted);
    const test::Result result = test::run({"apply", file}, setup);
    EXPECT_EQ(result.exit, 2) << "there is no terminal";
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
    EXPECT_EQ(test::run({"apply", file, "--yes"}, setup).exit, 0);
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
}

TEST_F(ApplyCommand, ComesBackUnlessItIsConfirmed) {
    test::Setup setup;
    setup.environment = {"SSH_CONNECTION=192.0.2.1 50000 192.0.2.12 22"};
    const std::string file = directory_.write("host.toml", kWanted);
    {
        const auto attached = host_.attach();
        const test::Result result =
            test::run({"apply", file, "--confirm-within", "2", "--json"}, setup);
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_EQ(Json::parse(result.out)["waits_for_confirm"], true);
        EXPECT_THAT(result.err, HasSubstr("change 1 is taken back in 2 seconds"));
    }
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
    const auto is_open = [this] { return host_.exists("/var/lib/kxctl/changes/host/open"); };
    EXPECT_TRUE(is_open());
    for (int look = 0; look < 600 && is_open(); ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    expect_as_before();
    EXPECT_EQ(apply(kWanted, {"--confirm-within", "60"}).exit, 0);
    EXPECT_EQ(run({"confirm"}).exit, 0);
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
    EXPECT_EQ(apply(kWanted, {"--confirm-within", "never"}).exit, 2);
}

}  // namespace
