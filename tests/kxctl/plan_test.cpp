// plan: what a state file would change, with every reason why it cannot.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "kxctl/on_host.hpp"
#include "support/scratch_directory.hpp"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

class PlanCommand : public testing::Test {
protected:
    PlanCommand() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.module({.name = "zfab3", .loaded = true});
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {
                 {.name = "eth2", .mac = "00:07:43:05:00:01", .ipv4 = {"192.0.2.12/24"}},
                 {.name = "eth3", .mac = "00:07:43:05:00:02"}}});
        host_.adapter(
            {.chip = "Q3",
             .location = "05:00.0",
             .ports = {{.name = "eth8", .mac = "00:07:43:03:00:01"}}});
    }

    test::Result plan(const std::string& text, std::vector<std::string> words = {}) {
        words.insert(words.begin(), {"plan", directory_.write("host.toml", text)});
        return test::run_on(host_, words);
    }

    // The errors of a file that cannot be, without the file's name.
    std::string errors(const std::string& text) {
        const test::Result result = plan(text);
        EXPECT_EQ(result.exit, 2) << result.out;
        EXPECT_EQ(result.out, "");
        const std::string name = directory_ / "host.toml";
        std::string all;
        for (std::size_t begin = 0; begin < result.err.size();) {
            const std::size_t end = result.err.find('\n', begin);
            std::string line = result.err.substr(begin, end - begin);
            const std::size_t at = line.find(name);
            all += (at == line.npos ? line : line.substr(at + name.size())) + "\n";
            begin = end + 1;
        }
        return all;
    }

    kxsim::Host host_;
    const test::ScratchDirectory directory_;
};

TEST_F(PlanCommand, OfWhatIsSavedIsEmpty) {
    kxsim::Nic nic = host_.nic("eth3");
    nic.link_settings.autoneg = AUTONEG_DISABLE;
    nic.link_settings.speed = 1000;
    host_.nic("eth3", nic);
    const std::string state = test::run_on(host_, {"state", "save"}).out;
    const test::Result result = plan(state);
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.out, "Nothing differs\n");
    EXPECT_EQ(plan("").out, "Nothing differs\n");
}

TEST_F(PlanCommand, ShowsExactlyWhatDiffersInTheOrderOfTheLibrary) {
    const std::string text =
        "[[port]]\ninterface = \"eth3\"\nrx_usecs = 9\nmtu = 9000\ngso = true\n"
        "[[port]]\nmac = \"00:07:43:05:00:01\"\ntso = false\n";
    const test::Result result = plan(text);
    EXPECT_EQ(result.exit, 4) << result.err;
    EXPECT_EQ(
        result.out,
        "PORT  SETTING    NOW   NEW\n"
        "eth2  tso         on   off\n"
        "eth3  mtu       1500  9000\n"
        "eth3  rx_usecs     5     9\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(host_.mtu("eth3"), 1500U);
    EXPECT_EQ(host_.nic("eth2").tso, 1U);
    EXPECT_FALSE(host_.exists("/etc/kestrix-plexo/.kxctl.lock"));
    const test::Result json = plan(text, {"--json"});
    EXPECT_EQ(json.exit, 4);
    const Json answer = Json::parse(json.out);
    EXPECT_EQ(answer["differs"], true);
    EXPECT_EQ(answer["steps"][1], Json::parse(R"({"interface": "eth3",
        "mac": "00:07:43:05:00:02", "location": "03:00.4", "key": "mtu", "before": 1500,
        "wanted": 9000, "line": 4})"));
}

TEST_F(PlanCommand, PatternsMeetManyPortsAndALaterTableWins) {
    const test::Result result = plan(
        "[[port]]\nmatch = {chip = \"Q?\"}\nmtu = 9000\n"
        "[[port]]\nmatch = {location = \"0000:03:*\"}\nmtu = 4000\n"
        "[[port]]\ninterface = \"eth3\"\nmtu = 1500\n"
        "[[port]]\nmatch = {chip = \"Q9\"}\nmtu = 2000\n");
    EXPECT_EQ(
        result.out,
        "PORT  SETTING   NOW   NEW\n"
        "eth2  mtu      1500  4000\n"
        "eth8  mtu      1500  9000\n");
    EXPECT_THAT(result.err, HasSubstr("host.toml:10:1: No port has chip Q9\n"));
}

TEST_F(PlanCommand, ThePortThatCarriesTheSessionIsTheLastOne) {
    const std::string text = "[[port]]\nmatch = {location = \"03:00.4\"}\nmtu = 9000\n";
    test::Setup setup;
    setup.environment = {"SSH_CONNECTION=192.0.2.1 50000 192.0.2.12 22"};
    const auto attached = host_.attach();
    const test::Result result = test::run({"plan", directory_.write("host.toml", text)}, setup);
    EXPECT_EQ(result.err, "kxctl: eth2 (03:00.4 port 1) carries your session\n");
    EXPECT_LT(result.out.find("eth3"), result.out.find("eth2"));
}

TEST_F(PlanCommand, TellsEveryErrorAtOnce) {
    EXPECT_EQ(
        errors("[[port]]\n"
               "interface = \"eth2\"\n"
               "ring_rx = 99999\n"
               "mtu = 21\n"
               "colour = 3\n"
               "[[port]]\n"
               "interface = \"eth9\"\n"
               "[[port]]\n"
               "location = \"03:00.4\"\n"
               "port = 3\n"
               "[[port]]\n"
               "mac = \"00:07:43:05:00:02\"\n"
               "speed = 1000\n"),
        ":3:1: eth2: ring_rx cannot be 99999: the driver's limit is 16384\n"
        ":4:1: eth2: mtu cannot be 21: largest packet, 22 to 10222 bytes\n"
        ":5:1: Unknown key colour\n"
        ":6:1: No port has interface eth9; did you mean eth2?\n"
        ":8:1: No port has 03:00.4 port 3\n"
        ":13:1: eth3: speed needs autoneg = false\n");
    EXPECT_EQ(plan("[[port]]\ninterface = \"eth9\"\n", {"--json"}).exit, 2);
}

TEST_F(PlanCommand, WhatADriverDoesNotHaveCannotBe) {
    host_.refuse("eth2", ETHTOOL_GRINGPARAM, EOPNOTSUPP);
    EXPECT_EQ(
        errors("[[port]]\ninterface = \"eth2\"\nring_rx = 512\n"),
        ":3:1: The driver of eth2 does not have ring_rx\n");
    host_.refuse("eth2", ETHTOOL_GRINGPARAM, EIO);
    EXPECT_EQ(
        errors("[[port]]\ninterface = \"eth2\"\nring_rx = 1024\n"),
        ":3:1: ring_rx of eth2 cannot be read: Input/output error\n");
}

TEST_F(PlanCommand, APortThatDoesNotAnswerCannotBeNamed) {
    host_.refuse("eth3", ETHTOOL_GDRVINFO, EIO);
    EXPECT_EQ(
        errors("[[port]]\ninterface = \"eth3\"\nmtu = 9000\n"
               "[[port]]\nlocation = \"03:00.4\"\nport = 1\nmtu = 9000\n"),
        ":1:1: The driver of eth3 does not answer\n"
        ":4:1: The ports of 03:00.4 cannot be numbered: name an interface or a MAC\n");
    EXPECT_EQ(
        errors("[[port]]\nmatch = {chip = \"Q5\"}\nmtu = 9000\n"),
        ":1:1: The driver of eth3 does not answer\n");
    EXPECT_EQ(plan("[[port]]\nmatch = {interface = \"eth2\"}\nmtu = 9000\n").exit, 4);
}

TEST_F(PlanCommand, ALaterTableTurnsNegotiationOnAgain) {
    EXPECT_EQ(
        plan("[[port]]\nmatch = {chip = \"Q5\"}\nautoneg = false\nspeed = 1000\n"
             "[[port]]\ninterface = \"eth3\"\nautoneg = true\n")
            .out,
        "PORT  SETTING  NOW   NEW\n"
        "eth2  autoneg   on   off\n"
        "eth2  speed      -  1000\n");
    EXPECT_EQ(
        errors("[[port]]\nmatch = {chip = \"Q5\"}\nautoneg = true\n"
               "[[port]]\ninterface = \"eth3\"\nspeed = 1000\n"),
        ":6:1: eth3: speed needs autoneg = false\n");
}

TEST_F(PlanCommand, TheSameMacTwiceNamesNoPort) {
    host_.port("03:00.4", {.name = "eth4", .mac = "00:07:43:05:00:01"});
    EXPECT_EQ(
        errors("[[port]]\nmac = \"00:07:43:05:00:01\"\nmtu = 9000\n"),
        ":1:1: 2 ports have MAC 00:07:43:05:00:01\n");
}

TEST_F(PlanCommand, FollowsAPortToItsNewName) {
    host_.remove_interface("eth3");
    host_.port("03:00.4", {.name = "lan0", .mac = "00:07:43:05:00:02"});
    EXPECT_THAT(
        plan("[[port]]\nmac = \"00:07:43:05:00:02\"\nmtu = 9000\n").out,
        HasSubstr("lan0  mtu      1500  9000\n"));
    EXPECT_EQ(
        errors("[[port]]\nmac = \"00:07:43:05:00:02\"\ninterface = \"eth3\"\nmtu = 9000\n"),
        ":1:1: No port has interface eth3, MAC 00:07:43:05:00:02; did you mean eth2?\n");
}

TEST_F(PlanCommand, AFileThatIsMissingIsNotFound) {
    EXPECT_EQ(test::run_on(host_, {"plan", "no-such.toml"}).exit, 3);
    EXPECT_THAT(errors("[[port"), HasSubstr(":1:"));
}

}  // namespace
