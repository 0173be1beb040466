// state show and state save: what is set on the ports of a host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "kxctl/on_host.hpp"
#include "support/scratch_directory.hpp"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Json = nlohmann::json;

std::string text_of(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class StateCommands : public testing::Test {
protected:
    StateCommands() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {
                 {.name = "eth2", .mac = "00:07:43:05:00:01"},
                 {.name = "eth3", .mac = "00:07:43:05:00:02"}}});
    }

    std::string shown() {
        const test::Result result = test::run_on(host_, {"state", "show"});
        EXPECT_EQ(result.exit, 0) << result.err;
        return result.out;
    }

    kxsim::Host host_;
};

TEST_F(StateCommands, ShowPrintsEverySettingThatIsAState) {
    kxsim::Nic nic = host_.nic("eth3");
    nic.link_settings.autoneg = AUTONEG_DISABLE;
    nic.link_settings.speed = 1000;
    nic.link_settings.duplex = DUPLEX_HALF;
    nic.tso = 0;
    host_.nic("eth3", nic);
    EXPECT_THAT(shown(), HasSubstr(R"(
[[port]]  # eth2 (03:00.4 port 1)
mac = "00:07:43:05:00:01"
mtu = 1500
rx_checksum = true
tx_checksum = true
scatter_gather = true
tso = true
gso = true
ring_tx = 2048
ring_rx = 1024
ring_rx_mini = 512
ring_rx_jumbo = 256
autoneg = true
message_level = 0x7
pause_autoneg = true
tx_pause = true
rx_pause = true
rx_usecs = 5

[[port]]  # eth3 (03:00.4 port 2)
mac = "00:07:43:05:00:02"
mtu = 1500
rx_checksum = true
tx_checksum = true
scatter_gather = true
tso = false
gso = true
ring_tx = 2048
ring_rx = 1024
ring_rx_mini = 512
ring_rx_jumbo = 256
autoneg = false
speed = 1000
duplex = "half"
message_level = 0x7
pause_autoneg = true
tx_pause = true
rx_pause = true
rx_usecs = 5
)"));
}

TEST_F(StateCommands, ShowAnswersInJson) {
    const Json answer = test::json_on(host_, {"state", "show"});
    ASSERT_EQ(answer["ports"].size(), 2U);
    const Json& port = answer["ports"][0];
    EXPECT_EQ(port["interface"], "eth2");
    EXPECT_EQ(port["mac"], "00:07:43:05:00:01");
    EXPECT_EQ(port["location"], "03:00.4");
    EXPECT_EQ(port["instance"], 1);
    EXPECT_EQ(port["settings"]["mtu"], 1500);
    EXPECT_EQ(port["settings"]["tso"], true);
    EXPECT_TRUE(port["settings"]["speed"].is_null()) << "it is negotiated";
}

TEST_F(StateCommands, PortsWithTheSameMacAreNamedByTheirInterface) {
    host_.port("03:00.4", {.name = "eth4", .mac = "00:07:43:05:00:01"});
    const std::string text = shown();
    EXPECT_THAT(text, HasSubstr("interface = \"eth2\""));
    EXPECT_THAT(text, HasSubstr("interface = \"eth4\""));
    EXPECT_THAT(text, HasSubstr("mac = \"00:07:43:05:00:02\""));
    EXPECT_THAT(text, Not(HasSubstr("mac = \"00:07:43:05:00:01\"")));
}

TEST_F(StateCommands, WhatADriverDoesNotHaveIsLeftOut) {
    host_.refuse("eth2", ETHTOOL_GRINGPARAM, EOPNOTSUPP);
    host_.refuse("eth3", ETHTOOL_GRINGPARAM, EOPNOTSUPP);
    const std::string text = shown();
    EXPECT_THAT(text, Not(HasSubstr("ring_")));
    EXPECT_THAT(text, HasSubstr("rx_usecs = 5"));
}

TEST_F(StateCommands, WhatCannotBeReadMakesTheStateIncomplete) {
    host_.refuse("eth2", ETHTOOL_GCOALESCE, EIO);
    const test::Result result = test::run_on(host_, {"state", "save", "-"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("eth2"));
    EXPECT_THAT(result.out, HasSubstr("mtu = 1500"));
}

TEST_F(StateCommands, APortThatDoesNotAnswerMakesTheStateIncomplete) {
    host_.refuse("eth3", ETHTOOL_GDRVINFO, EIO);
    const test::Result result = test::run_on(host_, {"state", "show"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("eth3"));
    EXPECT_THAT(result.out, Not(HasSubstr("port 1)"))) << "its number is not certain";
    EXPECT_THAT(result.out, HasSubstr("[[port]]  # eth2 (03:00.4)\n"));
}

TEST_F(StateCommands, SaveWritesTheFileAsAWhole) {
    const test::ScratchDirectory directory;
    const std::string file = directory / "host.toml";
    test::Result result = test::run_on(host_, {"state", "save", file});
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.out, file + " has the settings of 2 ports\n");
    EXPECT_EQ(text_of(file), shown());
    EXPECT_EQ(test::run_on(host_, {"state", "save"}).out, shown());
    EXPECT_EQ(test::json_on(host_, {"state", "save", file})["ports"], 2);
    EXPECT_EQ(test::run_on(host_, {"state", "save", "-", "--json"}).exit, 2);
    EXPECT_EQ(test::run_on(host_, {"state", "save", "no-such/host.toml"}).exit, 3);
    EXPECT_THAT(text_of(file), StartsWith("# Port settings"));
}

// The cost of a state grows with the ports, not with the pairs of ports.
class OnePass : public StateCommands, public testing::WithParamInterface<const char*> {};

TEST_P(OnePass, ReadsTheHost) {
    const auto calls_of = [this] {
        kxsim::FaultRule all =
            host_.fail({.call = GetParam(), .nth = UINT32_MAX, .error = EIO, .program = "kxctl"});
        static_cast<void>(shown());
        const unsigned seen = all.seen();
        all.remove();
        return seen;
    };
    const unsigned two = calls_of();
    for (int i = 10; i < 18; ++i) {
        host_.port("03:00.4", {.name = "eth" + std::to_string(i)});
    }
    const unsigned ten = calls_of();
    for (int i = 20; i < 28; ++i) {
        host_.port("03:00.4", {.name = "eth" + std::to_string(i)});
    }
    EXPECT_EQ(calls_of() - ten, ten - two);
    EXPECT_GT(two, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    EveryCall, OnePass, testing::Values("socket", "ioctl", "open", "getifaddrs"),
    [](const auto& row) { return row.param; });

}  // namespace
