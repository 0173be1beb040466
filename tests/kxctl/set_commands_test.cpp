// port set, offload set, iwarp show and iwarp set on a simulated host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kxctl/on_host.hpp"
#include "output/output.hpp"
#include "settings/change_report.hpp"
#include "settings/port_settings.hpp"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

class SetCommands : public testing::Test {
protected:
    SetCommands() {
        host_.module({.name = "zfab4", .loaded = true, .parameters = {{"tx_coal", "0"}}});
        host_.module(
            {.name = "iw_zfab4",
             .loaded = true,
             .parameters = {{"snd_win", "131072"}, {"peer2peer", "0"}, {"markers_enabled", "0"}}});
        host_.module({.name = "iw_zfab3", .loaded = true, .parameters = {{"cong_flavor", "3"}}});
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {{.name = "eth2", .mac = "02:00:00:00:00:02"}, {.name = "eth3"}}});
        host_.toe_device({.index = 1, .interfaces = {"eth2"}, .parameters = {{"mss", "1400"}}});
        host_.directory("/etc/kestrix-plexo");
    }

    test::Result run(std::vector<std::string> words) {
        return test::run_on(host_, std::move(words));
    }

    kxsim::Host host_;
};

TEST_F(SetCommands, PortSetShowsWhatReadsBack) {
    const test::Result result =
        run({"port", "set", "03:00.4", "2", "mtu=9000", "tso=off", "rx_usecs=9"});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(
        result.out,
        "Port eth3 (03:00.4 port 2, MAC 02:4b:58:b1:9b:dd)\n"
        "SETTING   BEFORE   NOW  RESULT\n"
        "mtu         1500  9000  applied\n"
        "tso           on   off  applied\n"
        "rx_usecs       5     9  applied\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(host_.mtu("eth3"), 9000U);
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
    EXPECT_EQ(host_.nic("eth3").tso, 0U);
    EXPECT_EQ(
        host_.read("/etc/kestrix-plexo/kxportparams.conf"),
        "eth3.mtu = 9000\neth3.tcpoffload = 0\neth3.rxusecs = 9\n");
}

TEST_F(SetCommands, PortSetTellsEachFailureOnALineOfItsOwn) {
    const test::Result result =
        run({"port", "set", "03:00.4", "1", "mtu=21", "tso=2", "ring_rx=99999", "message_level=3"});
    EXPECT_EQ(result.exit, 4) << "the message level was taken";
    EXPECT_EQ(
        result.err,
        "kxctl: mtu cannot be 21: largest packet, 22 to 10222 bytes\n"
        "kxctl: tso cannot be 2: TCP segmentation offload, on or off\n"
        "kxctl: ring_rx cannot be 99999: the driver's limit is 16384\n");
    EXPECT_THAT(result.out, HasSubstr("message_level       7     3  applied\n"));
    EXPECT_THAT(result.out, HasSubstr("mtu              1500  1500  refused\n"));
    EXPECT_EQ(run({"port", "set", "03:00.4", "1", "tso=2"}).exit, 1) << "nothing was taken";
}

TEST_F(SetCommands, PortSetPlansWithoutChangingAnything) {
    const test::Result result = run(
        {"port", "set", "03:00.4", "1", "autoneg=off", "speed=1000", "duplex=half", "--dry-run"});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(
        result.out,
        "Port eth2 (03:00.4 port 1, MAC 02:00:00:00:00:02)\n"
        "SETTING    NOW   NEW\n"
        "autoneg     on   off\n"
        "speed    10000  1000\n"
        "duplex    full  half\n");
    EXPECT_EQ(host_.nic("eth2").link_settings.autoneg, 1U);
    EXPECT_EQ(host_.nic("eth2").negotiations, 0U);
    EXPECT_FALSE(host_.exists("/etc/kestrix-plexo/kxportparams.conf"));
}

TEST_F(SetCommands, PortSetAnswersInJson) {
    const Json plan = test::json_on(host_, {"port", "set", "03:00.4", "1", "gso=0", "--dry-run"});
    EXPECT_EQ(plan, Json::parse(R"({"location": "03:00.4", "instance": 1, "interface": "eth2",
            "mac": "02:00:00:00:00:02", "dry_run": true, "changed": false, "failures": [],
            "settings": [{"key": "gso", "before": true, "wanted": false, "result": "applied"}]})"));
    const Json done =
        test::json_on(host_, {"port", "set", "03:00.4", "1", "gso=0", "ring_tx=99999"}, 4);
    EXPECT_EQ(done, Json::parse(R"({"location": "03:00.4", "instance": 1, "interface": "eth2",
            "mac": "02:00:00:00:00:02", "changed": true,
            "settings": [{"key": "gso", "before": true, "wanted": false, "now": false,
                          "result": "applied"},
                         {"key": "ring_tx", "before": 2048, "wanted": 99999, "now": 2048,
                          "result": "refused"}],
            "failures": ["ring_tx cannot be 99999: the driver's limit is 16384"]})"));
}

TEST_F(SetCommands, PortSetRefusesWhatCannotBeMeant) {
    const auto refused = [this](const std::vector<std::string>& words, int exit) {
        std::vector<std::string> line = {"port", "set"};
        line.insert(line.end(), words.begin(), words.end());
        const test::Result result = run(line);
        EXPECT_EQ(result.exit, exit);
        EXPECT_EQ(result.out, "");
        return result.err;
    };
    EXPECT_EQ(refused({"03:00.4", "1", "speed=100"}, 2), "kxctl: speed needs autoneg=off\n");
    EXPECT_EQ(
        refused({"03:00.4", "1", "autoneg=on", "duplex=full"}, 2),
        "kxctl: duplex needs autoneg=off\n");
    EXPECT_EQ(refused({"03:00.4", "x", "gso=1"}, 2), "kxctl: x is no port number (see --help)\n");
    EXPECT_EQ(refused({"03:00.4", "0", "gso=1"}, 2), "kxctl: 0 is no port number (see --help)\n");
    EXPECT_THAT(refused({"03:00.4", "3", "gso=1"}, 3), HasSubstr("Invalid port instance"));
    EXPECT_THAT(refused({"09:11.2", "1", "gso=1"}, 3), HasSubstr("No device"));
    EXPECT_THAT(refused({"03:00.4", "1"}, 2), HasSubstr("port set"));
}

TEST_F(SetCommands, OffloadSetShowsWhatReadsBack) {
    const test::Result result =
        run({"offload", "set", "03:00.4", "mss=1300", "max_wr=16", "max_wr_credits=16"});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("mss               1400  1300  applied\n"));
    EXPECT_EQ(host_.read("/proc/sys/toe/toe1_tom/mss"), "1300\n");
    EXPECT_EQ(
        host_.read("/etc/sysctl.conf"),
        "toe.toe1_tom.max_wr = 16\ntoe.toe1_tom.max_wr_credits = 16\ntoe.toe1_tom.mss = 1300\n");
}

TEST_F(SetCommands, OffloadSetTellsEachFailureOnALineOfItsOwn) {
    const test::Result result =
        run({"offload", "set", "03:00.4", "activated=2", "mss=0", "failover_alg=4"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(
        result.err,
        "kxctl: activated cannot be 2: offload engine, on or off\n"
        "kxctl: mss cannot be 0: 1 to 1048576 bytes\n"
        "kxctl: failover_alg cannot be 4: -1 to 3\n");
    EXPECT_FALSE(host_.exists("/etc/sysctl.conf"));
}

TEST_F(SetCommands, OffloadSetKnowsWhatCreditsNeed) {
    test::Result result = run({"offload", "set", "03:00.4", "max_wr_credits=16"});
    EXPECT_EQ(result.exit, 2);
    EXPECT_EQ(result.err, "kxctl: max_wr_credits is applied only beside another offload setting\n");
    result = run({"offload", "set", "03:00.4", "max_wr_credits=16", "max_wr=17"});
    EXPECT_EQ(result.exit, 2);
    EXPECT_EQ(result.err, "kxctl: max_wr and max_wr_credits share one value\n");
}

TEST_F(SetCommands, OffloadSetPlansWithoutChangingAnything) {
    const test::Result result = run({"offload", "set", "03:00.4", "mss=1300", "--dry-run"});
    EXPECT_EQ(
        result.out,
        "Card 03:00.4 (eth2 MAC 02:00:00:00:00:02, eth3 MAC 02:4b:58:b1:9b:dd)\n"
        "SETTING   NOW   NEW\nmss      1400  1300\n");
    EXPECT_EQ(host_.read("/proc/sys/toe/toe1_tom/mss"), "1400\n");
    EXPECT_EQ(run({"offload", "set", "09:00.4", "mss=1300"}).exit, 3);
}

TEST_F(SetCommands, IwarpShowListsWhatTheModuleHas) {
    const Json newer = test::json_on(host_, {"iwarp", "show", "iw_zfab4"});
    EXPECT_EQ(newer["parameters"].size(), 29U);
    EXPECT_EQ(newer["parameters"]["snd_win"], 131072);
    EXPECT_FALSE(newer["parameters"].contains("markers_enabled"));
    const Json older = test::json_on(host_, {"iwarp", "show", "iw_zfab3"});
    EXPECT_EQ(older["parameters"].size(), 9U);
    EXPECT_EQ(older["parameters"]["cong_flavor"], 3);
    EXPECT_THAT(run({"iwarp", "show", "iw_zfab3"}).out, HasSubstr("\ncong_flavor          3\n"));
    EXPECT_EQ(run({"iwarp", "show", "zfab4"}).exit, 14);
    EXPECT_EQ(run({"iwarp", "show", "kxstor"}).exit, 3);
}

TEST_F(SetCommands, IwarpSetShowsWhatReadsBack) {
    const test::Result result =
        run({"iwarp", "set", "iw_zfab4", "snd_win=-5", "peer2peer=1", "markers_enabled=1"});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(
        result.out,
        "Module iw_zfab4\n"
        "SETTING          BEFORE  NOW  RESULT\n"
        "snd_win          131072   -5  applied\n"
        "peer2peer             0    1  applied\n"
        "markers_enabled       -    -  applied\n");
    EXPECT_EQ(host_.read("/sys/module/iw_zfab4/parameters/snd_win"), "-5\n");
    EXPECT_EQ(host_.read("/sys/module/iw_zfab4/parameters/markers_enabled"), "1\n");
}

TEST_F(SetCommands, IwarpSetTellsAParameterThatTheModuleLacks) {
    const test::Result result = run({"iwarp", "set", "iw_zfab4", "nocong=1", "snd_win=1"});
    EXPECT_EQ(result.exit, 4) << "there is no file for nocong";
    EXPECT_EQ(result.err, "kxctl: iw_zfab4 has no parameter nocong\n");
    EXPECT_EQ(host_.read("/sys/module/iw_zfab4/parameters/snd_win"), "1\n");
    EXPECT_EQ(run({"iwarp", "set", "iw_zfab4", "nocong=1"}).exit, 14);
    EXPECT_EQ(run({"iwarp", "set", "iw_zfab4", "nocong=0", "--dry-run"}).exit, 14);
}

TEST_F(SetCommands, IwarpSetTellsAParameterThatIsFixedWhileTheModuleIsLoaded) {
    constexpr char kFile[] = "/sys/module/iw_zfab4/parameters/nocong";
    host_.file(kFile, "0\n", 0444);
    for (const char* const how : {"--dry-run", "--verbose"}) {
        EXPECT_EQ(run({"iwarp", "set", "iw_zfab4", "nocong=1", how}).exit, 14) << how;
        EXPECT_EQ(run({"iwarp", "set", "iw_zfab4", "nocong=0", how}).exit, 0) << "nothing to do";
    }
    EXPECT_EQ(host_.read(kFile), "0\n");
}

TEST_F(SetCommands, OffloadSetPlansWithTheCodeOfTheRun) {
    const auto both = [this](const std::vector<std::string>& changes, int exit) {
        std::vector<std::string> words = {"offload", "set", "03:00.4"};
        words.insert(words.end(), changes.begin(), changes.end());
        const test::Result done = run(words);
        words.emplace_back("--dry-run");
        const test::Result planned = run(words);
        EXPECT_EQ(done.exit, exit) << done.err;
        EXPECT_EQ(planned.exit, exit) << planned.err;
        EXPECT_EQ(planned.err, done.err);
    };
    both({"mss=0"}, 1);
    both({"failover_alg=4", "activated=2"}, 1);
    host_.remove("/sys/module/zfab4/parameters/tx_coal");
    both({"tx_coal=1"}, 14);
    host_.remove("/proc/sys/toe/toe1_tom");
    both({"mss=1300"}, 3);
}

TEST_F(SetCommands, WhatIsSoAlreadyIsUnchanged) {
    const std::vector<std::vector<std::string>> commands = {
        {"port", "set", "03:00.4", "1", "mtu=1500"},
        {"offload", "set", "03:00.4", "mss=1400"},
        {"iwarp", "set", "iw_zfab4", "snd_win=131072"}};
    for (const std::vector<std::string>& words : commands) {
        const Json answer = test::json_on(host_, words);
        EXPECT_EQ(answer.at("changed"), false) << answer;
        EXPECT_EQ(answer.at("settings").at(0).at("result"), "unchanged");
        EXPECT_THAT(run(words).out, HasSubstr("  unchanged\n"));
    }
    EXPECT_EQ(test::json_on(host_, {"offload", "set", "03:00.4", "mss=1399"}).at("changed"), true);
}

// --- Drivers that do something else ---

TEST_F(SetCommands, AValueThatTheDriverRoundsIsToldAsItReadsBack) {
    kxsim::Nic nic = host_.nic("eth2");
    nic.ring_multiple = 64;
    nic.usecs_multiple = 8;
    host_.nic("eth2", nic);
    const test::Result result = run({"port", "set", "03:00.4", "1", "ring_rx=65", "rx_usecs=20"});
    EXPECT_EQ(result.exit, 6);
    EXPECT_EQ(
        result.err,
        "kxctl: ring_rx reads back as 128, not 65\nkxctl: rx_usecs reads back as 16, not 20\n");
    EXPECT_THAT(result.out, HasSubstr("ring_rx     1024  128  differs\n"));
    const Json answer = test::json_on(host_, {"port", "set", "03:00.4", "1", "ring_rx=129"}, 6);
    EXPECT_EQ(answer.at("settings").at(0).at("now"), 192);
    EXPECT_EQ(answer.at("changed"), true) << "although not to what was asked for";
}

TEST_F(SetCommands, AChangeThatTheDriverIgnoresIsNone) {
    host_.ignore("eth2", ETHTOOL_SRINGPARAM);
    host_.ignore("eth2", SIOCSIFMTU);
    const Json answer =
        test::json_on(host_, {"port", "set", "03:00.4", "1", "ring_rx=65", "mtu=9000"}, 6);
    EXPECT_EQ(answer.at("changed"), false);
    for (const Json& line : answer.at("settings")) {
        EXPECT_EQ(line.at("result"), "differs");
        EXPECT_EQ(line.at("now"), line.at("before"));
    }
}

TEST_F(SetCommands, AnMtuThatTheDriverRefusesHasTheKernelsReason) {
    constexpr std::pair<int, int> kReasons[] = {
        {EBUSY, 5}, {EOPNOTSUPP, 14}, {EPERM, 13}, {EINVAL, 1}};
    for (const auto& [reason, exit] : kReasons) {
        host_.refuse("eth2", SIOCSIFMTU, reason);
        const test::Result result = run({"port", "set", "03:00.4", "1", "mtu=9000"});
        EXPECT_EQ(result.exit, exit);
        EXPECT_EQ(result.err, std::string("kxctl: mtu of eth2: ") + std::strerror(reason) + "\n");
    }
}

TEST_F(SetCommands, IwarpSetRefusesWhatTheModuleLacks) {
    const test::Result result =
        run({"iwarp", "set", "iw_zfab4", "snd_win=1", "cong_flavor=1", "--dry-run"});
    EXPECT_EQ(result.exit, 14);
    EXPECT_EQ(result.err, "kxctl: iw_zfab4 has no parameter cong_flavor\n");
    EXPECT_EQ(run({"iwarp", "set", "iw_zfab3", "snd_win=1", "z4iw_debug=1"}).exit, 14);
}

TEST_F(SetCommands, PortSetThatTheDriverIsTooBusyForIsNoMatterOfPermission) {
    host_.fail(
        {.call = "ioctl",
         .times = 0,
         .error = EBUSY,
         .object = "eth2",
         .command = ETHTOOL_SCOALESCE});
    const test::Result result = run({"port", "set", "03:00.4", "1", "rx_usecs=9"});
    EXPECT_EQ(result.exit, 5);
    EXPECT_EQ(result.err, "kxctl: Set rx_usecs failed for eth2: Device or resource busy\n");
    EXPECT_EQ(run({"port", "set", "03:00.4", "1", "rx_usecs=9", "tso=off"}).exit, 4)
        << "the rest was taken";
}

class WithoutPrivilege : public testing::Test {
protected:
    WithoutPrivilege() { std::snprintf(settings_.mtu, sizeof settings_.mtu, "9000"); }

    // The exit code of a change of the MTU to that value.
    kx::ctl::ExitCode set_mtu(std::int64_t value) {
        const kx::ctl::Change changes[] = {{&kx::ctl::port_setting("mtu"), value}};
        kx::ctl::ChangeReport report(Json::object(), changes, &settings_);
        kx::ctl::refuse_changes(report.lines(), "the user is not root and lacks CAP_NET_ADMIN");
        return report.tell_result(output_, &settings_);
    }

    PortSettings settings_{};
    kx::ctl::Output output_{true};
};

TEST_F(WithoutPrivilege, WhatIsSoAlreadyIsDone) {
    EXPECT_EQ(set_mtu(9000), kx::ctl::ExitCode::kDone);
    const Json answer = Json::parse(output_.take());
    EXPECT_EQ(answer.at("settings").at(0).at("now"), 9000);
    EXPECT_EQ(answer.at("failures"), Json::array());
    EXPECT_EQ(answer.at("changed"), false);
}

TEST_F(WithoutPrivilege, AChangeFailsAndNamesTheMissingCapability) {
    EXPECT_EQ(set_mtu(1500), kx::ctl::ExitCode::kNoPermission);
    const Json answer = Json::parse(output_.take());
    EXPECT_EQ(
        answer.at("failures").at(0),
        "mtu cannot be changed: the user is not root and lacks CAP_NET_ADMIN");
    EXPECT_EQ(answer.at("changed"), false);
}

TEST_F(SetCommands, HelpListsTheKeysWithTheirRanges) {
    EXPECT_THAT(
        run({"port", "set", "--help"}).out,
        HasSubstr("  mtu              largest packet, 22 to 10222 bytes\n"));
    EXPECT_THAT(
        run({"offload", "set", "--help"}).out,
        HasSubstr("  failover_alg                   -1 to 3\n"));
    EXPECT_THAT(
        run({"iwarp", "set", "--help"}).out,
        HasSubstr("  cong_flavor                -2147483648 to 2147483647; iw_zfab3 only\n"));
}

}  // namespace
