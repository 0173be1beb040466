// restore: saved settings are applied again, on new interfaces as after a reboot.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "kxctl/on_host.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Json = nlohmann::json;

constexpr char kConfFile[] = "/etc/kestrix-plexo/kxportparams.conf";

class Restore : public testing::Test {
protected:
    Restore() {
        host_.directory("/etc/kestrix-plexo");
        host_.interface({.name = "eth2"});
    }

    test::Result restore(std::vector<std::string> words = {"restore"}) {
        return test::run_on(host_, std::move(words));
    }

    kxsim::Host host_;
};

TEST_F(Restore, AppliesEverySavedSettingAndLeavesTheFileAlone) {
    const std::string saved =
        "eth2.mtu = 9000\neth2.rxchksum = 0\neth2.txchksum = 0\neth2.scattergather = 0\n"
        "eth2.tcpoffload = 0\neth2.gso = 0\neth2.ring_tx = 4\neth2.ring_rx = 1\n"
        "eth2.ring_rx_mini = 2\neth2.ring_rx_jumbo = 3\neth2.link_autoneg = 1\n"
        "eth2.speed = 1000\neth2.duplex = 1\neth2.advertise = -2147483616\n"
        "eth2.messageLevel = 6\neth2.pauseautoneg = 0\neth2.txpfsupport = 0\n"
        "eth2.rxpfsupport = 0\neth2.rxusecs = -1\n";
    host_.file(kConfFile, saved);
    const Json answer = test::json_on(host_, {"restore"});
    EXPECT_EQ(answer["settings"].size(), 19U);
    EXPECT_EQ(answer["changed"], true);
    for (const Json& line : answer["settings"]) {
        const bool follows = line["key"] == "speed" || line["key"] == "duplex";
        const bool is_so = line["key"] == "autoneg";
        EXPECT_EQ(line["result"], follows ? "skipped" : is_so ? "unchanged" : "applied") << line;
    }
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
    const kxsim::Nic nic = host_.nic("eth2");
    EXPECT_EQ(nic.rx_checksum + nic.tx_checksum + nic.scatter_gather + nic.tso + nic.gso, 0U);
    EXPECT_EQ(nic.rings.rx_pending, 1U);
    EXPECT_EQ(nic.rings.rx_mini_pending, 2U);
    EXPECT_EQ(nic.rings.rx_jumbo_pending, 3U);
    EXPECT_EQ(nic.rings.tx_pending, 4U);
    EXPECT_EQ(nic.link_settings.autoneg, 1U);
    EXPECT_EQ(nic.link_settings.advertising, 0x80000020U);
    EXPECT_EQ(nic.message_level, 6U);
    EXPECT_EQ(nic.pause.autoneg + nic.pause.rx_pause + nic.pause.tx_pause, 0U);
    EXPECT_EQ(nic.coalescing.rx_coalesce_usecs, 0xffffffffU);
    EXPECT_EQ(host_.read(kConfFile), saved);
}

TEST_F(Restore, AForcedLinkIsAppliedAsAWhole) {
    host_.file(kConfFile, "eth2.link_autoneg = 0\neth2.speed = 100\neth2.duplex = 0\n");
    EXPECT_EQ(restore().exit, 0);
    const kxsim::Nic nic = host_.nic("eth2");
    EXPECT_EQ(nic.link_settings.autoneg, 0U);
    EXPECT_EQ(nic.link_settings.speed, 100U);
    EXPECT_EQ(nic.link_settings.duplex, 0U);
}

// Lines are matched by substring when they are saved, so that saving eth2.mtu again would take the
// line of veth2 with it.
TEST_F(Restore, KeepsLinesThatSavingAgainWouldTake) {
    const std::string saved =
        "eth2.mtu = 9000\nveth2.mtu = 1400\neth2.ring_rx = 1\neth2.ring_rx_mini = 2\n";
    host_.interface({.name = "veth2"});
    host_.file(kConfFile, saved);
    for (int boot = 0; boot < 3; ++boot) {
        EXPECT_EQ(restore().exit, 0);
        EXPECT_EQ(host_.read(kConfFile), saved);
    }
    EXPECT_EQ(host_.mtu("veth2"), 1400U);
}

TEST_F(Restore, WhatItAppliesIsWhatPortSetSaved) {
    host_.module({.name = "zfab4", .loaded = true});
    host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth5"}}});
    const std::vector<std::string> settings = {
        "mtu=1234",     "rx_checksum=off",  "tx_checksum=off", "scatter_gather=off",
        "tso=off",      "gso=off",          "ring_rx=100",     "ring_rx_mini=101",
        "ring_tx=103",  "autoneg=off",      "speed=100",       "duplex=half",
        "rx_usecs=77",  "message_level=9",  "pause_autoneg=0", "tx_pause=off",
        "rx_pause=off", "ring_rx_jumbo=102"};
    std::vector<std::string> words = {"port", "set", "03:00.4", "1"};
    words.insert(words.end(), settings.begin(), settings.end());
    ASSERT_EQ(test::run_on(host_, words).exit, 0);
    host_.remove_interface("eth5");
    host_.port("03:00.4", {.name = "eth5"});  // as new
    EXPECT_EQ(host_.mtu("eth5"), 1500U);
    EXPECT_EQ(restore().exit, 0);
    words.emplace_back("--dry-run");
    const Json now = test::json_on(host_, words);
    for (const Json& line : now["settings"]) {
        EXPECT_EQ(line["before"], line["wanted"]) << line;
    }
}

TEST_F(Restore, ToldForPeople) {
    host_.file(
        kConfFile,
        "eth2.mtu = 9000\neth7.mtu = 1400\ngarbage\neth2.ring_rx = 99999\neth2.speed = 100\n"
        "eth2.colour = 1\neth2.gso = 300\neth2.mtu.x = 1\n");
    const test::Result result = restore();
    EXPECT_EQ(result.exit, 4);
    EXPECT_EQ(
        result.out,
        "INTERFACE  SETTING  VALUE  RESULT   REASON\n"
        "eth2       mtu       9000  applied  -\n"
        "eth2       ring_rx  99999  refused  ring_rx cannot be 99999: the driver's limit is 16384\n"
        "eth2       speed      100  skipped  saved without link_autoneg\n"
        "eth7       mtu       1400  skipped  no such interface\n"
        "1 applied, 0 unchanged, 0 differ, 2 skipped, 1 refused, 4 damaged\n");
    EXPECT_EQ(
        result.err,
        "kxctl: /etc/kestrix-plexo/kxportparams.conf:3: no \"=\"\n"
        "kxctl: /etc/kestrix-plexo/kxportparams.conf:6: unknown setting colour\n"
        "kxctl: /etc/kestrix-plexo/kxportparams.conf:7: gso cannot be 300\n"
        "kxctl: /etc/kestrix-plexo/kxportparams.conf:8: unknown setting x\n");
    EXPECT_EQ(host_.mtu("eth2"), 9000U) << "the rest is applied";
}

TEST_F(Restore, AnInterfaceThatIsGoneIsNoFailure) {
    host_.file(kConfFile, "eth7.mtu = 1400\n");
    const Json answer = test::json_on(host_, {"restore"});
    EXPECT_EQ(
        answer["settings"],
        Json::parse(R"([{"interface": "eth7", "key": "mtu", "value": 1400, "line": 1,
                         "before": null, "now": null, "result": "skipped", "reason": "no such interface"}])"));
}

TEST_F(Restore, EverySettingIsRefusedWithItsReason) {
    host_.file(
        kConfFile,
        "eth2.mtu = 5\neth2.rxchksum = 5\neth2.gso = 0\neth2.link_autoneg = 0\neth2.speed = 3\n"
        "eth2.duplex = 1\neth2.pauseautoneg = 7\neth2.rxusecs = 1\n");
    host_.refuse("eth2", ETHTOOL_SGSO, EOPNOTSUPP);
    host_.refuse("eth2", ETHTOOL_GCOALESCE, EOPNOTSUPP);
    const Json answer = test::json_on(host_, {"restore"}, 4);
    EXPECT_EQ(answer["changed"], false);
    std::vector<std::string> reasons;
    for (const Json& line : answer["settings"]) {
        EXPECT_EQ(line["result"], "refused");
        reasons.push_back(line["reason"].get<std::string>());
    }
    const std::string no_speed =
        "speed cannot be 3: speed of the link, 10, 100, 1000 or 10000 Mb/s, with autoneg off";
    EXPECT_THAT(
        reasons, ElementsAre(
                     "mtu cannot be 5: largest packet, 22 to 10222 bytes",
                     "rx_checksum cannot be 5: receive checksum offload, on or off",
                     "gso of eth2: Operation not supported", no_speed, no_speed, no_speed,
                     "pause_autoneg cannot be 7: auto-negotiation of pause frames, on or off",
                     "The driver of eth2 does not have rx_usecs"));
}

// Today's drivers without pause or coalescing read as 0 before and after.
TEST_F(Restore, WhatTheDriverLacksIsNotSupported) {
    host_.file(kConfFile, "eth2.pauseautoneg = 0\neth2.rxpfsupport = 0\neth2.rxusecs = 0\n");
    host_.refuse("eth2", ETHTOOL_GCOALESCE, EOPNOTSUPP);
    host_.refuse("eth2", ETHTOOL_GPAUSEPARAM, EOPNOTSUPP);
    const Json answer = test::json_on(host_, {"restore"}, 14);
    for (const Json& line : answer["settings"]) {
        EXPECT_EQ(line["result"], "refused") << line;
        EXPECT_EQ(line["before"], nullptr);
        EXPECT_EQ(line["now"], nullptr);
    }
}

TEST_F(Restore, TellsWhatReadsBackDifferently) {
    kxsim::Nic nic = host_.nic("eth2");
    nic.ring_multiple = 64;
    host_.nic("eth2", nic);
    host_.ignore("eth2", ETHTOOL_STSO);
    host_.file(kConfFile, "eth2.mtu = 1500\neth2.tcpoffload = 0\neth2.ring_rx = 100\n");
    const test::Result result = restore();
    EXPECT_EQ(result.exit, 4);
    EXPECT_EQ(
        result.out,
        "INTERFACE  SETTING  VALUE  RESULT     REASON\n"
        "eth2       mtu       1500  unchanged  -\n"
        "eth2       tso          0  differs    reads back as on\n"
        "eth2       ring_rx    100  differs    reads back as 128\n"
        "0 applied, 1 unchanged, 2 differ, 0 skipped, 0 refused, 0 damaged\n");
}

TEST_F(Restore, ASecondRunChangesNothing) {
    host_.file(kConfFile, "eth2.mtu = 9000\neth2.gso = 0\n");
    EXPECT_EQ(test::json_on(host_, {"restore"}).at("changed"), true);
    const Json again = test::json_on(host_, {"restore"});
    EXPECT_EQ(again.at("changed"), false);
    for (const Json& line : again.at("settings")) {
        EXPECT_EQ(line.at("result"), "unchanged");
    }
}

TEST_F(Restore, NothingSavedIsFine) {
    EXPECT_EQ(restore().exit, 0);
    EXPECT_EQ(restore().out, "No port setting is saved.\n");
    host_.file(kConfFile, "");
    EXPECT_EQ(restore().out, "No port setting is saved.\n");
    const Json answer = test::json_on(host_, {"restore"});
    EXPECT_THAT(answer["settings"], IsEmpty());
    EXPECT_EQ(answer["file"], kConfFile);
}

TEST_F(Restore, AFileThatCannotBeReadIsAFailure) {
    host_.directory(kConfFile);
    const test::Result result = restore();
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(result.err, "kxctl: /etc/kestrix-plexo/kxportparams.conf cannot be read\n");
    host_.remove(kConfFile);
    host_.file(kConfFile, "eth2.mtu = 1400\n");
    host_.fail({.call = "open", .times = 0, .error = EACCES, .object = kConfFile});
    host_.fail({.call = "fopen", .times = 0, .error = EACCES, .object = kConfFile});
    EXPECT_EQ(restore().err, "kxctl: /etc/kestrix-plexo/kxportparams.conf: Permission denied\n");
}

TEST_F(Restore, ReadsAnotherFileWhenItIsNamed) {
    host_.file("/etc/kestrix-plexo/other", "eth2.mtu = 1300\n");
    EXPECT_EQ(restore({"restore", "/etc/kestrix-plexo/other"}).exit, 0);
    EXPECT_EQ(host_.mtu("eth2"), 1300U);
}

TEST_F(Restore, OddFilesHarmNothing) {
    host_.file(
        kConfFile, std::string("eth2.mtu = 1\0 400\n", 18) + std::string(100000, '=') + "\n" +
                       "../../etc/passwd.mtu = 5\n" + "eth2.mtu = 1350");
    EXPECT_EQ(restore().exit, 4);
    EXPECT_EQ(host_.mtu("eth2"), 1350U);
}

}  // namespace
