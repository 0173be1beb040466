// The pause settings of a port.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>
#include <initializer_list>

#include "support/port_on_host.hpp"

namespace {

using test::put;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Not;

constexpr uint32_t kReceive = 0x20;
constexpr uint32_t kTransmit = 0x40;
constexpr uint32_t kNegotiation = 0x1000000;
constexpr uint32_t kAll = kReceive | kTransmit | kNegotiation;

class PortPause : public test::PortOnHost {
protected:
    PortPause() { start(1, 1, 1); }

    void start(uint32_t autoneg, uint32_t rx, uint32_t tx) {
        clear();
        kxsim::Nic nic;
        nic.pause = {0, autoneg, rx, tx};
        host_.nic("eth2", nic);
    }
};

TEST_F(PortPause, EachDirectionIsSentBesideWhatTheOthersWere) {
    put(settings_.tx_pause, "0");
    EXPECT_EQ(set(setPauseParams, kTransmit), 0);
    EXPECT_THAT(
        requests(), ElementsAre("GPAUSEPARAM eth2", "SPAUSEPARAM eth2 autoneg 1 rx 1 tx 0"));
    EXPECT_EQ(saved(), "eth2.txpfsupport = 0\n");

    start(0, 0, 1);
    put(settings_.rx_pause, "1");
    EXPECT_EQ(set(setPauseParams, kReceive), 0);
    EXPECT_EQ(requests().back(), "SPAUSEPARAM eth2 autoneg 0 rx 1 tx 1");
    EXPECT_EQ(saved(), "eth2.rxpfsupport = 1\n");

    start(1, 0, 1);
    settings_.pause_autoneg = 0;
    EXPECT_EQ(set(setPauseParams, kNegotiation), 0);
    EXPECT_EQ(requests().back(), "SPAUSEPARAM eth2 autoneg 0 rx 0 tx 1");
    EXPECT_EQ(saved(), "eth2.pauseautoneg = 0\n");
    EXPECT_EQ(detail(), "");
}

TEST_F(PortPause, AllAreSavedInTheirOrder) {
    start(1, 0, 1);
    settings_.pause_autoneg = 0;
    put(settings_.tx_pause, "0");
    put(settings_.rx_pause, "1");
    EXPECT_EQ(set(setPauseParams, kAll), 0);
    EXPECT_EQ(requests().back(), "SPAUSEPARAM eth2 autoneg 0 rx 1 tx 0");
    EXPECT_EQ(saved(), "eth2.pauseautoneg = 0\neth2.txpfsupport = 0\neth2.rxpfsupport = 1\n");
    EXPECT_THAT(printed_, Not(testing::HasSubstr("err ")));
}

TEST_F(PortPause, AnotherNegotiationGivesOneAndItsOwnMessage) {
    for (const uint8_t autoneg : std::initializer_list<uint8_t>{2, 255}) {
        start(1, 1, 1);
        settings_.pause_autoneg = autoneg;
        EXPECT_EQ(set(setPauseParams, kNegotiation), 1);
        EXPECT_EQ(detail(), "Set pause_autonegotiation failed for eth2 :  Invalid argument; ");
        EXPECT_EQ(requests().back(), "SPAUSEPARAM eth2 autoneg 1 rx 1 tx 1");
        EXPECT_EQ(saved(), "");
    }
}

TEST_F(PortPause, AnotherTransmitTextIsRefused) {
    for (const char* text : {"2", "", "11", "x"}) {
        start(1, 1, 1);
        put(settings_.tx_pause, text);
        EXPECT_EQ(set(setPauseParams, kTransmit), 61) << text;
        EXPECT_EQ(detail(), "Set tx_pause failed for eth2: Invalid argument; ");
        EXPECT_EQ(requests().back(), "SPAUSEPARAM eth2 autoneg 1 rx 1 tx 1");
        EXPECT_EQ(saved(), "");
        EXPECT_THAT(printed_, Not(testing::HasSubstr("err ")));
    }
}

TEST_F(PortPause, AnotherReceiveTextIsRefusedAndPrinted) {
    for (const char* text : {"2", "", "11", "x"}) {
        start(1, 1, 1);
        put(settings_.rx_pause, text);
        EXPECT_EQ(set(setPauseParams, kReceive), 61) << text;
        EXPECT_EQ(detail(), "Set rx_pause failed for eth2: Invalid argument; ");
        EXPECT_EQ(saved(), "");
        EXPECT_THAT(printed_, EndsWith("err Set rx_pause failed for eth2: Invalid argument; \n"));
    }
}

TEST_F(PortPause, TheStatusIsThatOfTheLastFailure) {
    settings_.pause_autoneg = 2;
    put(settings_.tx_pause, "x");
    put(settings_.rx_pause, "0");
    EXPECT_EQ(set(setPauseParams, kAll), 61);
    EXPECT_EQ(
        detail(),
        "Set pause_autonegotiation failed for eth2 :  Invalid argument; "
        "Set tx_pause failed for eth2: Invalid argument; ");
    EXPECT_EQ(requests().back(), "SPAUSEPARAM eth2 autoneg 1 rx 0 tx 1");
    EXPECT_EQ(saved(), "eth2.rxpfsupport = 0\n");
}

TEST_F(PortPause, ARefusedRequestGivesOneAndNothingIsSaved) {
    host_.refuse("eth2", ETHTOOL_SPAUSEPARAM, EINVAL);
    settings_.pause_autoneg = 1;
    put(settings_.tx_pause, "x");
    EXPECT_EQ(set(setPauseParams, kTransmit | kNegotiation), 1);
    EXPECT_EQ(
        detail(),
        "Set tx_pause failed for eth2: Invalid argument; "
        "Set Pause parameter failed for eth2: Invalid argument; ");
    EXPECT_EQ(saved(), "");
}

TEST_F(PortPause, ADriverThatGivesNoneIsSilentlyLeftAlone) {
    host_.refuse("eth2", ETHTOOL_GPAUSEPARAM, EOPNOTSUPP);
    settings_.pause_autoneg = 2;
    put(settings_.tx_pause, "x");
    EXPECT_EQ(set(setPauseParams, kAll), 0);
    EXPECT_THAT(requests(), ElementsAre("GPAUSEPARAM eth2"));
    EXPECT_EQ(detail(), "");
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(saved(), "");
}

TEST_F(PortPause, WithoutABitWhatWasReadIsWrittenBack) {
    start(0, 1, 0);
    EXPECT_EQ(set(setPauseParams, ~kAll), 0);
    EXPECT_EQ(requests().back(), "SPAUSEPARAM eth2 autoneg 0 rx 1 tx 0");
    EXPECT_EQ(saved(), "");
}

TEST_F(PortPause, NoSocketGivesOne) {
    host_.fail({.call = "socket", .error = EMFILE});
    EXPECT_EQ(set(setPauseParams, kAll), 1);
    EXPECT_THAT(requests(), IsEmpty());
}

}  // namespace
