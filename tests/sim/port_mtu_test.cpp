// The setter groups that make one request: MTU, coalescing, restart of auto-negotiation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>

#include <cerrno>

#include "support/port_on_host.hpp"

namespace {

using test::Lines;
using test::put;
using testing::ElementsAre;
using testing::IsEmpty;

class PortMtu : public test::PortOnHost {
protected:
    int set_mtu(std::string_view text) {
        clear();
        put(settings_.mtu, text);
        return set(setMTU, 4);
    }
};

TEST_F(PortMtu, ANumberInItsRangeIsSentAndSaved) {
    struct Row {
        const char* text;
        int bytes;
    };
    for (const auto& [text, bytes] :
         {Row{"22", 22}, Row{"10222", 10222}, Row{"1500", 1500}, Row{"0x5dc", 1500},
          Row{"0X5DC", 1500}, Row{"0100", 64}, Row{" 1500", 1500}, Row{"\t1500", 1500},
          Row{"+1500", 1500}, Row{"1500x", 1500}, Row{"1500 9", 1500}, Row{"1500.9", 1500},
          Row{"064", 52}}) {
        EXPECT_EQ(set_mtu(text), 0) << text;
        const std::string number = std::to_string(bytes);
        EXPECT_THAT(requests(), ElementsAre("SIOCSIFMTU eth2 " + number)) << text;
        EXPECT_EQ(saved(), "eth2.mtu = " + number + "\n") << text;
        EXPECT_EQ(host_.mtu("eth2"), static_cast<unsigned>(bytes)) << text;
        EXPECT_EQ(detail(), "");
    }
}

TEST_F(PortMtu, AnythingElseIsRefusedWithoutARequest) {
    for (const char* text :
         {"21", "10223", "", " ", "abc", "x1500", "-1500", "--5", "0x", "0x10", "09000", "9999999",
          "0x7fffff", "1e4", "0"}) {
        EXPECT_EQ(set_mtu(text), 61) << text;
        EXPECT_THAT(requests(), IsEmpty()) << text;
        EXPECT_EQ(saved(), "") << text;
        EXPECT_EQ(detail(), "") << "the caller reports the MTU";
    }
}

TEST_F(PortMtu, ATextThatFillsItsFieldIsReadNoFurther) {
    put(settings_.tx_checksum, "1");
    EXPECT_EQ(set_mtu("    1500"), 0);
    EXPECT_THAT(requests(), ElementsAre("SIOCSIFMTU eth2 1500"));
    put(settings_.tx_checksum, "00");
    EXPECT_EQ(set_mtu("00000144"), 0);
    EXPECT_THAT(requests(), ElementsAre("SIOCSIFMTU eth2 100"));
}

TEST_F(PortMtu, ARefusedRequestGivesOneAndIsNotSaved) {
    host_.refuse("eth2", SIOCSIFMTU, EINVAL);
    EXPECT_EQ(set_mtu("1500"), 1);
    EXPECT_EQ(saved(), "");
}

TEST_F(PortMtu, NoSocketGivesOneWhateverTheValue) {
    host_.fail({.call = "socket", .times = 0, .error = EMFILE});
    EXPECT_EQ(set_mtu("1500"), 1);
    EXPECT_EQ(set_mtu("99999"), 1);
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(PortMtu, LooksAtNoBitOfTheMask) {
    put(settings_.mtu, "1400");
    EXPECT_EQ(set(setMTU, 0), 0);
    EXPECT_EQ(host_.mtu("eth2"), 1400U);
}

TEST_F(PortMtu, NamesAreSentWithSixteenCharactersAtMost) {
    put(settings_.mtu, "1500");
    const std::string name15 = "abcdefghijklmno";
    host_.interface({.name = name15});
    EXPECT_EQ(set(setMTU, 4, name15.c_str()), 0);
    EXPECT_EQ(set(setMTU, 4, (name15 + "p").c_str()), 0) << "the kernel reads fifteen";
    EXPECT_EQ(set(setMTU, 4, std::string(63, 'z').c_str()), 1);
    EXPECT_THAT(
        requests(), ElementsAre(
                        "SIOCSIFMTU " + name15 + " 1500", "SIOCSIFMTU " + name15 + "p 1500",
                        "SIOCSIFMTU " + std::string(16, 'z') + " 1500"));
}

class PortCoalescing : public test::PortOnHost {};

TEST_F(PortCoalescing, OnlyTheReceiveDelayIsChangedAndSaved) {
    settings_.rx_usecs = 77;
    settings_.port_instance = 3;
    EXPECT_EQ(set(setCoalesce, 0x800000), 0);
    EXPECT_THAT(
        requests(),
        ElementsAre(
            "GCOALESCE eth2", "SCOALESCE eth2 rx_usecs 77 rx_frames 8 tx_usecs 50 tx_frames 32"));
    EXPECT_EQ(saved(), "eth2.rxusecs = 77\n");
    EXPECT_EQ(printed_, "rxusecs interface eth2 , ,port->PortInstance 3 ,port->rx_usecs 77\n");
    EXPECT_EQ(detail(), "");
}

TEST_F(PortCoalescing, TheNewLineIsPrintedBeforeTheDelay) {
    host_.file(test::kConfFile, "eth2.rxusecs = 1\n");
    settings_.rx_usecs = 77;
    EXPECT_EQ(set(setCoalesce, 0x800000), 0);
    EXPECT_EQ(
        printed_,
        "new_line eth2.rxusecs = 77\n\n"
        "rxusecs interface eth2 , ,port->PortInstance 0 ,port->rx_usecs 77\n");
}

TEST_F(PortCoalescing, TheLargestDelayIsSavedAsASignedNumber) {
    settings_.rx_usecs = 0xffffffff;
    EXPECT_EQ(set(setCoalesce, 0x800000), 0);
    EXPECT_EQ(host_.nic("eth2").coalescing.rx_coalesce_usecs, 0xffffffffU);
    EXPECT_EQ(saved(), "eth2.rxusecs = -1\n");
}

TEST_F(PortCoalescing, WithoutItsBitWhatWasReadIsWrittenBackAndNothingSaved) {
    settings_.rx_usecs = 77;
    EXPECT_EQ(set(setCoalesce, 0), 0);
    EXPECT_THAT(
        requests(),
        ElementsAre(
            "GCOALESCE eth2", "SCOALESCE eth2 rx_usecs 5 rx_frames 8 tx_usecs 50 tx_frames 32"));
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(printed_, "");
}

TEST_F(PortCoalescing, ADriverThatGivesNoneGivesOneWithoutAMessage) {
    host_.refuse("eth2", ETHTOOL_GCOALESCE, EOPNOTSUPP);
    EXPECT_EQ(set(setCoalesce, 0x800000), 1);
    EXPECT_THAT(requests(), ElementsAre("GCOALESCE eth2"));
    EXPECT_EQ(detail(), "");
}

TEST_F(PortCoalescing, ARefusedSettingGivesTheSystemsReason) {
    host_.refuse("eth2", ETHTOOL_SCOALESCE, EINVAL);
    EXPECT_EQ(set(setCoalesce, 0x800000), -1);
    EXPECT_EQ(detail(), "Set rx_usecs failed for eth2: Invalid argument; ");
    EXPECT_EQ(saved(), "");
    EXPECT_EQ(printed_, "");
}

TEST_F(PortCoalescing, NoSocketGivesOne) {
    host_.fail({.call = "socket", .error = EMFILE});
    EXPECT_EQ(set(setCoalesce, 0x800000), 1);
    EXPECT_THAT(requests(), IsEmpty());
}

class PortNegotiation : public test::PortOnHost {};

TEST_F(PortNegotiation, IsStartedAgain) {
    EXPECT_EQ(set(resetAutoneg, 0x80000000), 0);
    EXPECT_THAT(requests(), ElementsAre("NWAY_RST eth2"));
    EXPECT_EQ(host_.nic("eth2").negotiations, 1U);
    EXPECT_EQ(saved(), "");
}

TEST_F(PortNegotiation, ARefusalGivesTheSystemsReason) {
    host_.refuse("eth2", ETHTOOL_NWAY_RST, EOPNOTSUPP);
    EXPECT_EQ(set(resetAutoneg, 0x80000000), -1);
    EXPECT_EQ(detail(), "Reset auto-negotiation failed for eth2: Operation not supported; ");
}

TEST_F(PortNegotiation, NoSocketGivesOne) {
    host_.fail({.call = "socket", .error = EMFILE});
    EXPECT_EQ(set(resetAutoneg, 0x80000000), 1);
    EXPECT_EQ(detail(), "");
}

TEST_F(PortNegotiation, NullArgumentsAreRefusedByEveryGroup) {
    for (const auto setter :
         {setMTU, setOffloads, setRingParams, setLinkSettings, setPauseParams, setCoalesce}) {
        EXPECT_NE(setter(nullptr, &settings_, 0xffffffff), 0);
        EXPECT_NE(setter("eth2", nullptr, 0xffffffff), 0);
    }
    EXPECT_NE(resetAutoneg(nullptr, &settings_, 0xffffffff), 0);
}

}  // namespace
