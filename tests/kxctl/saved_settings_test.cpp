// Reading the file of saved port settings.
#include "settings/saved_settings.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kx::ctl::DamagedLine;
using kx::ctl::parse_saved_settings;
using kx::ctl::SavedInterface;
using kx::ctl::SavedSettings;
using testing::ElementsAre;
using testing::IsEmpty;

// "eth0.mtu=1500@1": interface, key, value, line.
std::vector<std::string> values_of(const SavedSettings& saved) {
    std::vector<std::string> values;
    for (const SavedInterface& interface : saved.interfaces) {
        for (const auto& [key, value] : interface.values) {
            values.push_back(
                interface.name + "." + key + "=" + std::to_string(value.value) + "@" +
                std::to_string(value.line));
        }
    }
    return values;
}

std::vector<std::string> damage_of(const SavedSettings& saved) {
    std::vector<std::string> lines;
    for (const DamagedLine& line : saved.damaged) {
        lines.push_back(std::to_string(line.line) + ": " + line.reason);
    }
    return lines;
}

TEST(SavedSettings, HoldWhatTheLibraryWrote) {
    const SavedSettings saved = parse_saved_settings(
        "eth0.mtu = 1500\neth1.gso = 0\neth0.advertise = -1\neth0.100.mtu = 1400\n");
    EXPECT_THAT(
        values_of(saved),
        ElementsAre(
            "eth0.advertise=-1@3", "eth0.mtu=1500@1", "eth1.gso=0@2", "eth0.100.mtu=1400@4"));
    EXPECT_THAT(damage_of(saved), IsEmpty());
}

TEST(SavedSettings, TakeWhatPeopleWriteToo) {
    const SavedSettings saved = parse_saved_settings(
        "# comment\n; another\n\n   \n\teth0.mtu=1500\r\n  eth0.gso  =  1  \nlast.gso = 2");
    EXPECT_THAT(values_of(saved), ElementsAre("eth0.gso=1@6", "eth0.mtu=1500@5", "last.gso=2@7"));
    EXPECT_THAT(damage_of(saved), IsEmpty());
}

TEST(SavedSettings, TheLastOfSeveralLinesCounts) {
    EXPECT_THAT(
        values_of(parse_saved_settings("e.ring_rx = 1\ne.ring_rx = 2\ne.ring_rx = 3\n")),
        ElementsAre("e.ring_rx=3@3"));
}

TEST(SavedSettings, ADamagedLineIsNumberedAndTakesNothingWithIt) {
    const SavedSettings saved = parse_saved_settings(
        "eth0.mtu = 1\n"
        "garbage\n"
        "eth0.mtu\n"
        "mtu = 5\n"
        ".mtu = 5\n"
        "eth0. = 5\n"
        "eth0.gso = \n"
        "eth0.gso = x\n"
        "eth0.gso = 5x\n"
        "eth0.gso = 5 6\n"
        "eth0.gso = 99999999999999999999\n"
        "../../tmp/x.gso = 1\n"
        "...gso = 1\n"
        "abcdefghijklmnop.gso = 1\n"
        "et h.gso = 1\n"
        "= 5\n"
        "=\n"
        "eth0.gso = 7\n");
    EXPECT_THAT(values_of(saved), ElementsAre("eth0.gso=7@18", "eth0.mtu=1@1"));
    EXPECT_THAT(
        damage_of(saved),
        ElementsAre(
            "2: no \"=\"", "3: no \"=\"", "4: no INTERFACE.KEY before the \"=\"",
            "5: no interface's name", "6: no INTERFACE.KEY before the \"=\"",
            "7: no number behind the \"=\"", "8: no number behind the \"=\"",
            "9: no number behind the \"=\"", "10: no number behind the \"=\"",
            "11: no number behind the \"=\"", "12: no interface's name", "13: no interface's name",
            "14: no interface's name", "15: no interface's name",
            "16: no INTERFACE.KEY before the \"=\"", "17: no INTERFACE.KEY before the \"=\""));
}

TEST(SavedSettings, NulBytesAndLongLinesAreDamageOnly) {
    const std::string text =
        std::string("eth0\0x.mtu = 1\n", 15) + std::string(5000, 'x') + "\neth0.mtu = 3\n";
    const SavedSettings saved = parse_saved_settings(text);
    EXPECT_THAT(values_of(saved), ElementsAre("eth0.mtu=3@3"));
    EXPECT_THAT(damage_of(saved), ElementsAre("1: no interface's name", "2: no \"=\""));
}

TEST(SavedSettings, AnEmptyFileHoldsNothing) {
    for (const char* text : {"", "\n", "\n\n", " "}) {
        const SavedSettings saved = parse_saved_settings(text);
        EXPECT_THAT(values_of(saved), IsEmpty());
        EXPECT_THAT(damage_of(saved), IsEmpty());
    }
}

}  // namespace
