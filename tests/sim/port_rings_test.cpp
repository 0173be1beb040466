// The ring sizes of a port, one row each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "support/port_on_host.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Row {
    uint32_t bit;
    const char* name;
    uint32_t limit;
    void (*put)(PortSettings&, uint32_t);
    uint32_t ethtool_ringparam::*pending;
};

const Row kRows[] = {
    {0x4000000, "ring_rx", 4096, [](PortSettings& s, uint32_t v) { s.rings.rx = v; },
     &ethtool_ringparam::rx_pending},
    {0x8000000, "ring_rx_mini", 16384, [](PortSettings& s, uint32_t v) { s.rings.rx_mini = v; },
     &ethtool_ringparam::rx_mini_pending},
    {0x10000000, "ring_rx_jumbo", 1024, [](PortSettings& s, uint32_t v) { s.rings.rx_jumbo = v; },
     &ethtool_ringparam::rx_jumbo_pending},
    {0x20000000, "ring_tx", 2048, [](PortSettings& s, uint32_t v) { s.rings.tx = v; },
     &ethtool_ringparam::tx_pending},
};

constexpr uint32_t kAll = 0x3c000000;
constexpr char kUnchanged[] = "SRINGPARAM eth2 rx 11 mini 12 jumbo 13 tx 14";

class PortRings : public test::PortOnHost {
protected:
    PortRings() {
        kxsim::Nic nic;
        nic.rings.rx_max_pending = 4096;
        nic.rings.rx_mini_max_pending = 60000;  // not the limit that counts
        nic.rings.rx_jumbo_max_pending = 1024;
        nic.rings.tx_max_pending = 2048;
        nic.rings.rx_pending = 11;
        nic.rings.rx_mini_pending = 12;
        nic.rings.rx_jumbo_pending = 13;
        nic.rings.tx_pending = 14;
        nic_ = nic;
        host_.nic("eth2", nic_);
    }
    void start_over() {
        clear();
        host_.nic("eth2", nic_);
    }

    kxsim::Nic nic_;
};

TEST_F(PortRings, EachIsSentBesideWhatTheOthersWere) {
    for (const Row& row : kRows) {
        for (const uint32_t size : {0U, 21U, row.limit}) {
            start_over();
            row.put(settings_, size);
            EXPECT_EQ(set(setRingParams, row.bit), 0) << row.name << size;
            ethtool_ringparam expected = nic_.rings;
            expected.*row.pending = size;
            const ethtool_ringparam rings = host_.nic("eth2").rings;
            EXPECT_EQ(rings.rx_pending, expected.rx_pending) << row.name;
            EXPECT_EQ(rings.rx_mini_pending, expected.rx_mini_pending) << row.name;
            EXPECT_EQ(rings.rx_jumbo_pending, expected.rx_jumbo_pending) << row.name;
            EXPECT_EQ(rings.tx_pending, expected.tx_pending) << row.name;
            EXPECT_EQ(
                saved(), std::string("eth2.") + row.name + " = " + std::to_string(size) + "\n");
            EXPECT_EQ(detail(), "");
        }
    }
}

TEST_F(PortRings, EachRefusesMoreThanItsLimitAndStillWritesWhatWasRead) {
    for (const Row& row : kRows) {
        for (const uint32_t size : {row.limit + 1, 0xffffffffU}) {
            start_over();
            row.put(settings_, size);
            EXPECT_EQ(set(setRingParams, row.bit), 61) << row.name;
            EXPECT_THAT(requests(), ElementsAre("GRINGPARAM eth2", kUnchanged)) << row.name;
            EXPECT_EQ(
                detail(), std::string("Set ") + row.name + " failed for eth2: Invalid argument; ");
            EXPECT_EQ(saved(), "");
        }
    }
}

TEST_F(PortRings, TheMiniRingsLimitIsItsOwnWhateverTheDriverSays) {
    nic_.rings.rx_mini_max_pending = 0;
    host_.nic("eth2", nic_);
    settings_.rings.rx_mini = 16384;
    EXPECT_EQ(set(setRingParams, 0x8000000), 61) << "the driver's refusal";
    EXPECT_EQ(requests().back(), "SRINGPARAM eth2 rx 11 mini 16384 jumbo 13 tx 14");
    EXPECT_EQ(detail(), "Set Ethtool ring parameter failed for eth2: Invalid argument; ");
}

TEST_F(PortRings, AllAreSavedTheTransmitRingFirst) {
    settings_.rings = {1, 2, 3, 4};
    EXPECT_EQ(set(setRingParams, kAll), 0);
    EXPECT_THAT(
        requests(), ElementsAre("GRINGPARAM eth2", "SRINGPARAM eth2 rx 1 mini 2 jumbo 3 tx 4"));
    EXPECT_EQ(
        saved(),
        "eth2.ring_tx = 4\neth2.ring_rx = 1\neth2.ring_rx_mini = 2\neth2.ring_rx_jumbo = 3\n");
}

TEST_F(PortRings, SavingTheReceiveRingAgainTakesTheLinesOfTheOthersToo) {
    settings_.rings = {1, 2, 3, 4};
    set(setRingParams, kAll);
    settings_.rings.rx = 5;
    EXPECT_EQ(set(setRingParams, 0x4000000), 0);
    EXPECT_EQ(saved(), "eth2.ring_tx = 4\neth2.ring_rx = 5\neth2.ring_rx = 5\neth2.ring_rx = 5\n");
}

TEST_F(PortRings, RefusedOnesStopNoOthers) {
    settings_.rings = {4097, 2, 1025, 4};
    EXPECT_EQ(set(setRingParams, kAll), 61);
    EXPECT_EQ(requests().back(), "SRINGPARAM eth2 rx 11 mini 2 jumbo 13 tx 4");
    EXPECT_EQ(
        detail(),
        "Set ring_rx failed for eth2: Invalid argument; "
        "Set ring_rx_jumbo failed for eth2: Invalid argument; ");
    EXPECT_EQ(saved(), "eth2.ring_tx = 4\neth2.ring_rx_mini = 2\n");
}

TEST_F(PortRings, ARefusedRequestIsToldAsAnInvalidValueAndNothingIsSaved) {
    host_.refuse("eth2", ETHTOOL_SRINGPARAM, EBUSY);
    settings_.rings = {1, 2, 3, 9999};
    EXPECT_EQ(set(setRingParams, kAll), 61);
    EXPECT_EQ(
        detail(),
        "Set ring_tx failed for eth2: Invalid argument; "
        "Set Ethtool ring parameter failed for eth2: Device or resource busy; ");
    EXPECT_EQ(saved(), "");
}

TEST_F(PortRings, ADriverThatGivesNoneGivesOneWithoutAMessage) {
    host_.refuse("eth2", ETHTOOL_GRINGPARAM, EOPNOTSUPP);
    EXPECT_EQ(set(setRingParams, kAll), 1);
    EXPECT_THAT(requests(), ElementsAre("GRINGPARAM eth2"));
    EXPECT_EQ(detail(), "");
}

TEST_F(PortRings, NoSocketGivesOne) {
    host_.fail({.call = "socket", .error = EMFILE});
    EXPECT_EQ(set(setRingParams, kAll), 1);
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(PortRings, WithoutABitWhatWasReadIsWrittenBack) {
    settings_.rings = {1, 2, 3, 4};
    EXPECT_EQ(set(setRingParams, ~kAll), 0);
    EXPECT_THAT(requests(), ElementsAre("GRINGPARAM eth2", kUnchanged));
    EXPECT_EQ(saved(), "");
}

}  // namespace
