// The five offload switches of a port, one row each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "support/output.hpp"
#include "support/port_on_host.hpp"

namespace {

using test::Lines;
using test::put;
using testing::ElementsAre;
using testing::IsEmpty;

struct Row {
    uint32_t bit;
    uint32_t command;
    const char* request;
    const char* key;
    const char* name;
    bool is_text;
    void (*put)(PortSettings&, std::string_view);
    uint32_t kxsim::NicSettings::*state;
};

uint8_t byte_of(std::string_view text) {
    return static_cast<uint8_t>(std::stoi(std::string(text)));
}

const Row kRows[] = {
    {0x1000, 0x15, "SRXCSUM", "rxchksum", "RxChecksumOffload", true,
     [](PortSettings& s, std::string_view text) { put(s.rx_checksum, text); },
     &kxsim::Nic::rx_checksum},
    {0x800, 0x17, "STXCSUM", "txchksum", "TxChecksumOffload", true,
     [](PortSettings& s, std::string_view text) { put(s.tx_checksum, text); },
     &kxsim::Nic::tx_checksum},
    {0x100000, 0x19, "SSG", "scattergather", "ScatterGather", true,
     [](PortSettings& s, std::string_view text) { put(s.scatter_gather, text); },
     &kxsim::Nic::scatter_gather},
    {0x400, 0x1f, "STSO", "tcpoffload", "TCPSegmentOffLoad", false,
     [](PortSettings& s, std::string_view text) { s.tso = byte_of(text); }, &kxsim::Nic::tso},
    {0x200000, 0x24, "SGSO", "gso", "GSO", false,
     [](PortSettings& s, std::string_view text) { s.gso = byte_of(text); }, &kxsim::Nic::gso},
};

constexpr uint32_t kAll = 0x301c00;

class PortOffloads : public test::PortOnHost {
protected:
    void put_all(std::string_view text) {
        for (const Row& row : kRows) {
            row.put(settings_, text);
        }
    }
};

TEST_F(PortOffloads, EachIsSentSavedAndTaken) {
    for (const Row& row : kRows) {
        for (const char* value : {"0", "1"}) {
            clear();
            row.put(settings_, value);
            EXPECT_EQ(set(setOffloads, row.bit), 0) << row.name;
            EXPECT_THAT(requests(), ElementsAre(row.request + std::string(" eth2 ") + value));
            EXPECT_EQ(saved(), std::string("eth2.") + row.key + " = " + value + "\n");
            EXPECT_EQ(host_.nic("eth2").*row.state, value[0] == '1' ? 1U : 0U) << row.name;
            EXPECT_EQ(detail(), "");
        }
    }
}

TEST_F(PortOffloads, EachRefusesWhatIsNoSwitch) {
    for (const Row& row : kRows) {
        const Lines wrong = row.is_text ? Lines{"2", "", "11", "10", "01", "a", "1 ", " 1", "-"}
                                        : Lines{"2", "255"};
        for (const std::string& value : wrong) {
            clear();
            row.put(settings_, value);
            EXPECT_EQ(set(setOffloads, row.bit), static_cast<int>(row.bit)) << row.name;
            EXPECT_EQ(
                detail(), std::string("Set ") + row.name + " for eth2 failed: Invalid set value; ");
            EXPECT_THAT(requests(), IsEmpty()) << row.name;
            EXPECT_EQ(saved(), "");
        }
    }
}

TEST_F(PortOffloads, EachReportsARefusedRequest) {
    put_all("1");
    for (const Row& row : kRows) {
        clear();
        host_.refuse("eth2", row.command, EOPNOTSUPP);
        EXPECT_EQ(set(setOffloads, row.bit), static_cast<int>(row.bit)) << row.name;
        EXPECT_EQ(detail(), std::string("Set ") + row.name + " for eth2 failed: Unknown Error; ");
        EXPECT_EQ(saved(), "");
    }
}

TEST_F(PortOffloads, AllGoInTheirOrder) {
    put_all("1");
    EXPECT_EQ(set(setOffloads, kAll), 0);
    EXPECT_THAT(
        requests(),
        ElementsAre(
            "SRXCSUM eth2 1", "STXCSUM eth2 1", "SSG eth2 1", "STSO eth2 1", "SGSO eth2 1"));
    EXPECT_EQ(
        saved(),
        "eth2.rxchksum = 1\neth2.txchksum = 1\neth2.scattergather = 1\n"
        "eth2.tcpoffload = 1\neth2.gso = 1\n");
}

TEST_F(PortOffloads, AFailureStopsNoneBehindItAndBitsAreCollected) {
    put_all("1");
    put(settings_.rx_checksum, "x");
    host_.refuse("eth2", ETHTOOL_SSG, EINVAL);
    settings_.gso = 7;
    EXPECT_EQ(set(setOffloads, kAll), 0x1000 | 0x100000 | 0x200000);
    EXPECT_THAT(requests(), ElementsAre("STXCSUM eth2 1", "SSG eth2 1", "STSO eth2 1"));
    EXPECT_EQ(
        detail(),
        "Set RxChecksumOffload for eth2 failed: Invalid set value; "
        "Set ScatterGather for eth2 failed: Unknown Error; "
        "Set GSO for eth2 failed: Invalid set value; ");
    EXPECT_EQ(saved(), "eth2.txchksum = 1\neth2.tcpoffload = 1\n");
}

TEST_F(PortOffloads, TextsAreToldAsTheyAreRead) {
    put(settings_.rx_checksum, "1");
    set(setOffloads, 0x1000);
    EXPECT_TRUE(printed_.starts_with("str 1\nstrcmp 0\nstrcmp 1\nstr[0] 1 [1] "));
    settings_.tso = 1;
    set(setOffloads, 0x400);
    EXPECT_EQ(printed_.find("strcmp"), std::string::npos);
}

TEST_F(PortOffloads, ATextThatFillsItsFieldIsReadNoFurther) {
    put(settings_.tx_checksum, "11");
    put(settings_.rx_checksum, "0");
    set(setOffloads, 0x800);
    EXPECT_TRUE(printed_.starts_with("str 11\n"));
}

TEST_F(PortOffloads, NoSocketGivesOneAndNoMessage) {
    host_.fail({.call = "socket", .error = EMFILE});
    put_all("1");
    EXPECT_EQ(set(setOffloads, kAll), 1);
    EXPECT_EQ(detail(), "");
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(PortOffloads, OtherBitsAskForNothing) {
    EXPECT_EQ(set(setOffloads, ~kAll), 0);
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(PortOffloads, ALongInterfaceNameIsToldWholeAndSentWithFifteenCharacters) {
    const std::string name(63, 'n');
    settings_.tso = 1;
    EXPECT_EQ(set(setOffloads, 0x400, name.c_str()), 0x400);
    EXPECT_EQ(detail(), "Set TCPSegmentOffLoad for " + name + " failed: Unknown Error; ");
    EXPECT_THAT(requests(), ElementsAre("STSO " + std::string(15, 'n') + " 1"));
}

TEST_F(PortOffloads, AFailureToSaveIsNoFailure) {
    host_.remove("/etc/kestrix-plexo");
    settings_.tso = 0;
    const auto attached = host_.attach();
    EXPECT_EQ(
        test::printed([&] { EXPECT_EQ(setOffloads("eth2", &settings_, 0x400), 0); }),
        "not able to open conf file\n");
    EXPECT_EQ(host_.nic("eth2").tso, 0U);
    EXPECT_FALSE(host_.exists("/etc/kestrix-plexo"));
}

}  // namespace
