// The file of a desired state: what it can say, and every error with its place.
#include "change/state_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure/failure.hpp"
#include "settings/port_settings.hpp"

namespace {

using namespace kx::ctl;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> errors_of(const std::string& text) {
    const StateFile file = parse_state_file("host.toml", text);
    std::vector<std::string> lines;
    for (const FileError& error : file.errors) {
        lines.push_back(file.message(error.place, error.text));
    }
    EXPECT_EQ(lines.empty(), [&] {
        try {
            file.refuse_errors(true);
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), ExitCode::kUsage);
            return false;
        }
        return true;
    }());
    return lines;
}

std::string port_table(const std::string& lines) { return "[[port]]\n" + lines; }

TEST(StateFile, NamesPortsAndTheirSettings) {
    const StateFile file = parse_state_file(
        "host.toml",
        "# a host\n"
        "[[port]]\n"
        "interface = \"eth2\"\n"
        "mtu = 9000\n"
        "tso = false\n"
        "autoneg = false\n"
        "duplex = \"full\"\n"
        "[[port]]\n"
        "location = \"0000:03:00.4\"\n"
        "port = 2\n"
        "mac = \"00:07:43:AB:00:01\"\n"
        "[[port]]\n"
        "match = {chip = \"Q?\", interface = \"eth*\"}\n"
        "message_level = 0x7\n");
    ASSERT_EQ(file.ports.size(), 3U);
    const PortTable& first = file.ports[0];
    EXPECT_EQ(first.named.interface, "eth2");
    EXPECT_FALSE(first.patterns);
    EXPECT_EQ(first.place, (FilePlace{2, 1}));
    ASSERT_EQ(first.settings.size(), 4U);
    EXPECT_STREQ(first.settings[0].setting->key, "mtu");
    EXPECT_EQ(first.settings[0].value, 9000);
    EXPECT_EQ(first.settings[0].place, (FilePlace{4, 1}));
    EXPECT_EQ(first.settings[1].value, 0);
    EXPECT_EQ(first.settings[3].value, 1);
    EXPECT_EQ(first.subject(), "interface eth2");
    EXPECT_EQ(file.ports[1].named.instance, 2U);
    EXPECT_EQ(file.ports[1].subject(), "MAC 00:07:43:ab:00:01, 0000:03:00.4 port 2");
    ASSERT_TRUE(file.ports[2].patterns);
    EXPECT_EQ(file.ports[2].patterns->chip, "Q?");
    EXPECT_EQ(file.ports[2].patterns->model, "");
    EXPECT_EQ(file.ports[2].subject(), "chip Q?, interface eth*");
    EXPECT_EQ(file.ports[2].settings[0].value, 7);
    EXPECT_EQ(file.message({3, 1}, "text"), "host.toml:3:1: text");
}

TEST(StateFile, MayBeEmpty) { EXPECT_TRUE(parse_state_file("host.toml", "").ports.empty()); }

// The parser's own assertions fail on them.
TEST(StateFile, ManyBracketsAreAnError) {
    for (const char* const text : {"[[[[port]]\n", "[[[", "[[[\"\n"}) {
        EXPECT_EQ(parse_state_file("host.toml", text).errors.size(), 1U) << text;
    }
}

TEST(StateFile, EveryErrorIsToldWithItsPlace) {
    EXPECT_THAT(
        errors_of("[[port]]\n"
                  "interface = \"eth2\"\n"
                  "mtuu = 9000\n"
                  "  tso = 1\n"
                  "ring_rx = \"many\"\n"
                  "gso = \"on\"\n"
                  "[[ports]]\n"),
        ElementsAre(
            "host.toml:3:1: Unknown key mtuu; did you mean mtu?",
            "host.toml:4:9: tso is true or false: TCP segmentation offload, on or off",
            "host.toml:5:11: ring_rx is a number: receive ring, in descriptors, up to the driver's "
            "limit",
            "host.toml:6:7: gso is true or false: generic segmentation offload, on or off",
            "host.toml:7:3: Unknown table ports; did you mean port?"));
    EXPECT_THAT(
        errors_of("[[port]]\ninterface = \"eth2\"\nmtu = 1\nmtu = 2\n"),
        ElementsAre(HasSubstr("host.toml:4:")));
    EXPECT_THAT(errors_of("[port]\nmtu = 1\n"), ElementsAre(HasSubstr("below a line [[port]]")));
    EXPECT_THAT(errors_of("port = [1]\n"), ElementsAre(HasSubstr("host.toml:1:1: port is a list")));
    EXPECT_THAT(errors_of("[[port"), ElementsAre(HasSubstr("host.toml:1:")));
}

TEST(StateFile, ATableNamesPortsInOneWay) {
    EXPECT_THAT(errors_of(port_table("mtu = 9000\n")), ElementsAre(HasSubstr(":1:1: No port is")));
    EXPECT_THAT(
        errors_of(port_table("interface = \"eth2\"\nmatch = {chip = \"Q5\"}\n")),
        ElementsAre(HasSubstr("exclude each other")));
    EXPECT_THAT(
        errors_of(port_table("location = \"03:00.4\"\n")),
        ElementsAre(HasSubstr("location and port name a port together")));
    EXPECT_THAT(
        errors_of(port_table("interface = \"eth2\"\nport = 1\n")),
        ElementsAre(HasSubstr("location and port name a port together")));
    EXPECT_THAT(
        errors_of(port_table("location = \"slot 3\"\nport = 0\nmac = \"00:07\"\ninterface = 2\n")),
        ElementsAre(
            "host.toml:2:12: location is a text such as \"03:00.4\"",
            "host.toml:3:8: port is a number from 1, as \"kxctl port list\" shows it",
            "host.toml:4:7: mac is a text such as \"00:07:43:05:00:01\"",
            "host.toml:5:13: interface is a text such as \"eth2\""));
    EXPECT_THAT(
        errors_of(port_table("match = {chips = \"Q5\", model = 5}\n")),
        ElementsAre(
            "host.toml:2:10: match has no chips; did you mean chip?",
            HasSubstr("model of match is a text")));
    EXPECT_THAT(errors_of(port_table("match = {}\n")), ElementsAre(HasSubstr("match is a table")));
}

TEST(StateFile, ATableThatContradictsItselfIsAnError) {
    EXPECT_THAT(
        errors_of(port_table("interface = \"eth2\"\nautoneg = true\nspeed = 1000\n")),
        ElementsAre("host.toml:4:1: speed needs autoneg = false"));
    EXPECT_THAT(
        errors_of(port_table("interface = \"eth2\"\nautoneg = false\nspeed = 1000\n")),
        ElementsAre());
}

TEST(StateFile, TakesNoActionAndNothingThatCannotBeReadBack) {
    EXPECT_THAT(
        errors_of(port_table("interface = \"eth2\"\nrestart_autoneg = true\nadvertise = 1\n")),
        ElementsAre(
            "host.toml:3:1: restart_autoneg is no state: it is an action; \"kxctl port set\" has "
            "it",
            "host.toml:4:1: advertise is no state: it cannot be read back; \"kxctl port set\" has "
            "it"));
}

class EverySettingInAFile : public testing::TestWithParam<const Setting*> {};

TEST_P(EverySettingInAFile, HoldsWhatTheFieldHoldsAndNoMore) {
    const Setting& setting = *GetParam();
    const auto line = [&](const std::string& value) {
        return port_table("interface = \"e\"\n" + std::string(setting.key) + " = " + value + "\n");
    };
    const bool number = setting.words.zero == nullptr;
    EXPECT_EQ(errors_of(line("1")).empty(), number && is_state(setting));
    for (const char* wrong :
         {"99999999999999999", "1.5", "\"maybe\"", "[1]", "{a = 1}", "07:00:00"}) {
        const bool fits = number && is_state(setting) && setting.holds(99999999999999999) &&
                          std::string_view(wrong) == "99999999999999999";
        EXPECT_EQ(errors_of(line(wrong)).size(), fits ? 0U : 1U) << setting.key << wrong;
    }
}

std::vector<const Setting*> all_settings() {
    std::vector<const Setting*> all;
    for (const Setting& setting : port_settings()) {
        all.push_back(&setting);
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(
    EverySetting, EverySettingInAFile, testing::ValuesIn(all_settings()),
    [](const auto& row) { return row.param->key; });

}  // namespace
