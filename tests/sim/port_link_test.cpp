// The link settings of a port: auto-negotiation or a forced speed, advertised modes, message level.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>
#include <initializer_list>

#include "support/port_on_host.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kLink = 0x2;
constexpr uint32_t kAdvertise = 0x2000000;
constexpr uint32_t kMessageLevel = 0x400000;
constexpr uint32_t kAll = kLink | kAdvertise | kMessageLevel;

class PortLink : public test::PortOnHost {
protected:
    PortLink() { start(1); }

    void start(uint8_t autoneg) {
        clear();
        kxsim::Nic nic;
        nic.link_settings = {};
        nic.link_settings.supported = 0x1234;
        nic.link_settings.advertising = 0x1030;
        nic.link_settings.speed = 2500;
        nic.link_settings.duplex = 1;
        nic.link_settings.port = 5;
        nic.link_settings.autoneg = autoneg;
        nic.message_level = 7;
        host_.nic("eth2", nic);
    }
};

TEST_F(PortLink, ModesAreAdvertisedOnlyWithNegotiationThatIsExactlyOne) {
    for (const uint8_t autoneg : std::initializer_list<uint8_t>{0, 2, 255}) {
        start(autoneg);
        settings_.advertise = 0x20;
        EXPECT_EQ(set(setLinkSettings, kAdvertise), 61) << +autoneg;
        EXPECT_THAT(requests(), ElementsAre("GSET eth2"));
        EXPECT_EQ(detail(), "Set advertise failed: eth2 for link_autoneg is off; ");
        EXPECT_EQ(saved(), "");
    }
}

TEST_F(PortLink, NegotiationOnAdvertisesWhatIsSupported) {
    start(0);
    settings_.autoneg = 1;
    settings_.speed = 77;
    settings_.duplex = 9;
    EXPECT_EQ(set(setLinkSettings, kLink), 0);
    EXPECT_THAT(
        requests(), ElementsAre(
                        "GSET eth2", "SSET eth2 autoneg 1 speed 2500 duplex 1 advertising " +
                                         std::to_string(0x1234) + " port 5"));
    EXPECT_EQ(saved(), "eth2.link_autoneg = 1\neth2.speed = 77\neth2.duplex = 9\n")
        << "saved as given, although not sent";
    EXPECT_EQ(detail(), "");
}

TEST_F(PortLink, NegotiationOffForcesSpeedAndDuplex) {
    for (const uint16_t speed : std::initializer_list<uint16_t>{10, 100, 1000, 10000}) {
        for (const uint8_t duplex : std::initializer_list<uint8_t>{0, 1, 200}) {
            start(1);
            settings_.autoneg = 0;
            settings_.speed = speed;
            settings_.duplex = duplex;
            EXPECT_EQ(set(setLinkSettings, kLink), 0) << speed;
            const std::string number = std::to_string(speed);
            EXPECT_EQ(
                requests().back(), "SSET eth2 autoneg 0 speed " + number + " duplex " +
                                       (duplex == 0 ? "0" : "1") + " advertising 4144 port 5");
            EXPECT_EQ(
                saved(), "eth2.link_autoneg = 0\neth2.speed = " + number +
                             "\neth2.duplex = " + std::to_string(duplex) + "\n");
        }
    }
}

TEST_F(PortLink, OtherSpeedsAreRefusedWithoutARequest) {
    for (const uint16_t speed : std::initializer_list<uint16_t>{
             0, 1, 11, 99, 101, 999, 1001, 2500, 5000, 9999, 10001, 65535}) {
        start(1);
        settings_.autoneg = 0;
        settings_.speed = speed;
        EXPECT_EQ(set(setLinkSettings, kLink), 61) << speed;
        EXPECT_THAT(requests(), ElementsAre("GSET eth2")) << speed;
        EXPECT_EQ(detail(), "Set link speed failed for eth2: Invalid argument; ");
        EXPECT_EQ(saved(), "");
    }
}

TEST_F(PortLink, AnotherNegotiationIsRefused) {
    for (const uint8_t autoneg : std::initializer_list<uint8_t>{2, 255}) {
        start(1);
        settings_.autoneg = autoneg;
        settings_.speed = 1000;
        EXPECT_EQ(set(setLinkSettings, kLink), 61);
        EXPECT_THAT(requests(), ElementsAre("GSET eth2"));
        EXPECT_EQ(detail(), "Set link_autoneg failed for eth2: Invalid argument; ");
    }
}

TEST_F(PortLink, ModesAreAdvertisedWithNegotiationOnAsRead) {
    settings_.advertise = 0xffffffff;
    EXPECT_EQ(set(setLinkSettings, kAdvertise), 0);
    EXPECT_EQ(
        requests().back(), "SSET eth2 autoneg 1 speed 2500 duplex 1 advertising 4294967295 port 5");
    EXPECT_EQ(saved(), "eth2.advertise = -1\n");
}

TEST_F(PortLink, ModesAreAdvertisedWithNegotiationJustTurnedOn) {
    start(0);
    settings_.autoneg = 1;
    settings_.advertise = 0x20;
    EXPECT_EQ(set(setLinkSettings, kLink | kAdvertise), 0);
    EXPECT_EQ(requests().back(), "SSET eth2 autoneg 1 speed 2500 duplex 1 advertising 32 port 5");
    EXPECT_EQ(
        saved(), "eth2.link_autoneg = 1\neth2.speed = 0\neth2.duplex = 0\neth2.advertise = 32\n");
}

TEST_F(PortLink, ModesAreAdvertisedAfterARefusedSpeedWhenNegotiationIsOnAsRead) {
    settings_.autoneg = 0;
    settings_.speed = 2500;
    settings_.advertise = 0x20;
    EXPECT_EQ(set(setLinkSettings, kLink | kAdvertise), 61);
    EXPECT_EQ(requests().back(), "SSET eth2 autoneg 1 speed 2500 duplex 1 advertising 32 port 5");
    EXPECT_EQ(detail(), "Set link speed failed for eth2: Invalid argument; ");
    EXPECT_EQ(saved(), "eth2.advertise = 32\n");
}

TEST_F(PortLink, NoModesAreAdvertisedWithNegotiationOff) {
    start(0);
    settings_.advertise = 0x20;
    EXPECT_EQ(set(setLinkSettings, kAdvertise), 61);
    EXPECT_THAT(requests(), ElementsAre("GSET eth2"));
    EXPECT_EQ(detail(), "Set advertise failed: eth2 for link_autoneg is off; ");
    EXPECT_EQ(saved(), "");
}

TEST_F(PortLink, NoModesAreAdvertisedWithNegotiationJustTurnedOffButTheSpeedIsSet) {
    settings_.autoneg = 0;
    settings_.speed = 100;
    settings_.duplex = 0;
    settings_.advertise = 0x20;
    EXPECT_EQ(set(setLinkSettings, kLink | kAdvertise), 61);
    EXPECT_EQ(requests().back(), "SSET eth2 autoneg 0 speed 100 duplex 0 advertising 4144 port 5");
    EXPECT_EQ(detail(), "Set advertise failed: eth2 for link_autoneg is off; ");
    EXPECT_EQ(saved(), "eth2.link_autoneg = 0\neth2.speed = 100\neth2.duplex = 0\n");
}

TEST_F(PortLink, ARefusedSettingGivesTheSystemsReason) {
    host_.refuse("eth2", ETHTOOL_SSET, EPERM);
    settings_.autoneg = 1;
    EXPECT_EQ(set(setLinkSettings, kLink | kAdvertise), -1);
    EXPECT_EQ(detail(), "Set ethtool settings failed: eth2 for Operation not permitted; ");
    EXPECT_EQ(saved(), "");
}

TEST_F(PortLink, TheMessageLevelIsSentAndSaved) {
    for (const uint32_t level : {0U, 1U, 0x7fffU, 0x7fffffffU}) {
        start(1);
        settings_.message_level = level;
        EXPECT_EQ(set(setLinkSettings, kMessageLevel), 0);
        const std::string number = std::to_string(level);
        EXPECT_THAT(requests(), ElementsAre("GSET eth2", "SMSGLVL eth2 " + number));
        EXPECT_EQ(saved(), "eth2.messageLevel = " + number + "\n");
        EXPECT_EQ(host_.nic("eth2").message_level, level);
    }
}

TEST_F(PortLink, ANegativeMessageLevelIsRefused) {
    for (const uint32_t level : {0x80000000U, 0xffffffffU}) {
        start(1);
        settings_.message_level = level;
        EXPECT_EQ(set(setLinkSettings, kMessageLevel), 61);
        EXPECT_THAT(requests(), ElementsAre("GSET eth2"));
        EXPECT_EQ(detail(), "Set Message level failed: eth2 for Invalid Argument; ");
        EXPECT_EQ(saved(), "");
    }
}

TEST_F(PortLink, ARefusedMessageLevelGivesTheSystemsReason) {
    host_.refuse("eth2", ETHTOOL_SMSGLVL, EOPNOTSUPP);
    EXPECT_EQ(set(setLinkSettings, kMessageLevel), -1);
    EXPECT_EQ(detail(), "Set Message level failed: eth2 for Operation not supported; ");
    EXPECT_EQ(saved(), "");
}

TEST_F(PortLink, WithoutLinkSettingsOnlyTheMessageLevelIsSet) {
    host_.refuse("eth2", ETHTOOL_GSET, EOPNOTSUPP);
    settings_.autoneg = 1;
    settings_.message_level = 3;
    EXPECT_EQ(set(setLinkSettings, kAll), 1);
    EXPECT_THAT(requests(), ElementsAre("GSET eth2", "SMSGLVL eth2 3"));
    EXPECT_EQ(detail(), "");
    EXPECT_EQ(saved(), "eth2.messageLevel = 3\n");
}

TEST_F(PortLink, TheStatusIsThatOfTheLastFailure) {
    host_.refuse("eth2", ETHTOOL_GSET, EOPNOTSUPP);
    settings_.message_level = 0x80000000;
    EXPECT_EQ(set(setLinkSettings, kAll), 61);
    host_.refuse("eth2", ETHTOOL_GSET, 0);
    host_.refuse("eth2", ETHTOOL_SSET, EIO);
    settings_.autoneg = 1;
    settings_.message_level = 3;
    EXPECT_EQ(set(setLinkSettings, kAll), -1) << "a success behind it does not hide it";
}

TEST_F(PortLink, WithoutABitNothingIsWritten) {
    EXPECT_EQ(set(setLinkSettings, ~kAll), 0);
    EXPECT_THAT(requests(), ElementsAre("GSET eth2"));
}

TEST_F(PortLink, NoSocketGivesOne) {
    host_.fail({.call = "socket", .error = EMFILE});
    EXPECT_EQ(set(setLinkSettings, kAll), 1);
    EXPECT_THAT(requests(), IsEmpty());
}

}  // namespace
