// The set entry points: finding the target, the order of the groups, the data written back, the
// reported failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/port_on_host.hpp"

namespace {

using test::put;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uint32_t kEveryBit = 0xffffffff;

class SetEntry : public testing::Test {
protected:
    SetEntry() {
        host_.module({.name = "zfab4", .loaded = true, .parameters = {{"tx_coal", "1"}}});
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {
                 {.name = "eth2", .mac = "00:07:43:00:00:01"},
                 {.name = "eth3", .mac = "00:07:43:00:00:02", .mtu = 9000}}});
        host_.directory("/etc/kestrix-plexo");
        std::memset(&record_, 0xEE, sizeof record_);
        record_.settings.change_mask = 0;
        std::strcpy(errStr, "what stood there before");
    }
    ~SetEntry() override { std::memset(errStr, 0, KX_DETAIL_SIZE); }

    uint32_t set_port(const char* location, int port) {
        const auto attached = host_.attach();
        std::string text = location;
        uint32_t status = 0;
        test::printed([&] {
            requests_ =
                host_.count([&] { status = SetPortParam(&record_, text.data(), port); }).requests();
        });
        return status;
    }

    uint32_t set_card(const char* location) {
        const auto attached = host_.attach();
        std::string text = location;
        return SetCardParam(&params_, text.data());
    }

    // The requests that change something.
    [[nodiscard]] std::vector<std::string> settings_sent() const {
        std::vector<std::string> lines;
        for (const std::string& line : requests_) {
            if (line.starts_with('S') || line.starts_with("NWAY")) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    // Valid values for every setting.
    void fill_settings() {
        PortSettings& settings = record_.settings;
        put(settings.mtu, "1400");
        put(settings.rx_checksum, "1");
        put(settings.tx_checksum, "0");
        put(settings.scatter_gather, "1");
        settings.tso = 0;
        settings.gso = 1;
        settings.rings = {1, 2, 3, 4};
        settings.autoneg = 1;
        settings.speed = 1000;
        settings.duplex = 1;
        settings.advertise = 0x20;
        settings.message_level = 6;
        settings.pause_autoneg = 0;
        put(settings.tx_pause, "0");
        put(settings.rx_pause, "1");
        settings.rx_usecs = 30;
        settings.change_mask = kEveryBit;
    }

    kxsim::Host host_;
    std::vector<std::string> requests_;  // of the last call
    PortInfo record_{};
    CardParams params_{};
};

TEST_F(SetEntry, EveryBitIsAppliedInTheFixedOrder) {
    fill_settings();
    EXPECT_EQ(set_port("03:00.4", 2), 0U);
    EXPECT_THAT(
        settings_sent(),
        ElementsAre(
            "SIOCSIFMTU eth3 1400", "SRXCSUM eth3 1", "STXCSUM eth3 0", "SSG eth3 1", "STSO eth3 0",
            "SGSO eth3 1", "SRINGPARAM eth3 rx 1 mini 2 jumbo 3 tx 4",
            "SSET eth3 autoneg 1 speed 10000 duplex 1 advertising 32 port 3", "SMSGLVL eth3 6",
            "SPAUSEPARAM eth3 autoneg 0 rx 1 tx 0",
            "SCOALESCE eth3 rx_usecs 30 rx_frames 8 tx_usecs 50 tx_frames 32", "NWAY_RST eth3"));
    EXPECT_EQ(
        host_.read(test::kConfFile),
        "eth3.mtu = 1400\neth3.rxchksum = 1\neth3.txchksum = 0\neth3.scattergather = 1\n"
        "eth3.tcpoffload = 0\neth3.gso = 1\neth3.ring_tx = 4\neth3.ring_rx = 1\n"
        "eth3.ring_rx_mini = 2\neth3.ring_rx_jumbo = 3\neth3.link_autoneg = 1\n"
        "eth3.speed = 1000\neth3.duplex = 1\neth3.advertise = 32\neth3.messageLevel = 6\n"
        "eth3.pauseautoneg = 0\neth3.txpfsupport = 0\neth3.rxpfsupport = 1\n"
        "eth3.rxusecs = 30\n");
    EXPECT_STREQ(GetErrStr(70), "");
}

TEST_F(SetEntry, EachGroupRunsForEachOfItsBitsAndNoOther) {
    struct Row {
        uint32_t bit;
        const char* first_request;  // after those that build the inventory
    };
    const Row rows[] = {
        {0x2, "GSET eth2"},
        {0x4, "SIOCSIFMTU eth2 1400"},
        {0x20, "GPAUSEPARAM eth2"},
        {0x40, "GPAUSEPARAM eth2"},
        {0x400, "STSO eth2 0"},
        {0x800, "STXCSUM eth2 0"},
        {0x1000, "SRXCSUM eth2 1"},
        {0x100000, "SSG eth2 1"},
        {0x200000, "SGSO eth2 1"},
        {0x400000, "GSET eth2"},
        {0x800000, "GCOALESCE eth2"},
        {0x1000000, "GPAUSEPARAM eth2"},
        {0x2000000, "GSET eth2"},
        {0x4000000, "GRINGPARAM eth2"},
        {0x8000000, "GRINGPARAM eth2"},
        {0x10000000, "GRINGPARAM eth2"},
        {0x20000000, "GRINGPARAM eth2"},
        {0x80000000, "NWAY_RST eth2"},
    };
    fill_settings();
    record_.settings.change_mask = 0;
    EXPECT_EQ(set_port("03:00.4", 1), 0U);
    const std::size_t of_inventory = requests_.size();
    uint32_t known = 0;
    for (const Row& row : rows) {
        known |= row.bit;
        record_.settings.change_mask = row.bit;
        EXPECT_EQ(set_port("03:00.4", 1), 0U) << row.first_request;
        ASSERT_GT(requests_.size(), of_inventory) << row.bit;
        EXPECT_EQ(requests_[of_inventory], row.first_request);
        EXPECT_LE(requests_.size(), of_inventory + 2) << "one group only";
    }
    record_.settings.change_mask = ~known;
    EXPECT_EQ(set_port("03:00.4", 1), 0U);
    EXPECT_EQ(requests_.size(), of_inventory) << "other bits ask for nothing";
}

TEST_F(SetEntry, EveryFailureIsToldAndNoneStopsTheOthers) {
    std::memset(&record_.settings, 0xEE, sizeof record_.settings);
    put(record_.settings.mtu, "5");
    record_.settings.change_mask = kEveryBit;
    for (const uint32_t command : {ETHTOOL_SCOALESCE, ETHTOOL_NWAY_RST}) {
        host_.refuse("eth2", command, EINVAL);
    }
    EXPECT_EQ(set_port("03:00.4", 1), 70U);
    EXPECT_STREQ(
        GetErrStr(70),
        "Set MTU for interface eth2failed: Invalid set value "
        "Set RxChecksumOffload for eth2 failed: Invalid set value; "
        "Set TxChecksumOffload for eth2 failed: Invalid set value; "
        "Set ScatterGather for eth2 failed: Invalid set value; "
        "Set TCPSegmentOffLoad for eth2 failed: Invalid set value; "
        "Set GSO for eth2 failed: Invalid set value; "
        "Set ring_rx failed for eth2: Invalid argument; "
        "Set ring_rx_mini failed for eth2: Invalid argument; "
        "Set ring_rx_jumbo failed for eth2: Invalid argument; "
        "Set ring_tx failed for eth2: Invalid argument; "
        "Set link_autoneg failed for eth2: Invalid argument; "
        "Set Message level failed: eth2 for Invalid Argument; "
        "Set pause_autonegotiation failed for eth2 :  Invalid argument; "
        "Set tx_pause failed for eth2: Invalid argument; "
        "Set rx_pause failed for eth2: Invalid argument; "
        "Set rx_usecs failed for eth2: Invalid argument; "
        "Reset auto-negotiation failed for eth2: Invalid argument; ");
    EXPECT_EQ(host_.read(test::kConfFile), "eth2.advertise = -286331154\n")
        << "the one value that is valid whatever it is";
}

TEST_F(SetEntry, TheMessageOfTheMtuStandsAlone) {
    host_.refuse("eth2", SIOCSIFMTU, EBUSY);
    put(record_.settings.mtu, "1500");
    record_.settings.change_mask = 4;
    EXPECT_EQ(set_port("03:00.4", 1), 70U);
    EXPECT_STREQ(GetErrStr(70), "Set MTU for interface eth2failed: Unknown Error ");
}

TEST_F(SetEntry, TheDetailNeverPassesItsEnd) {
    const auto attached = host_.attach();
    PortInfo port{};
    std::memset(port.interface_name, 'n', sizeof port.interface_name);  // fills its field
    std::memset(&port.settings, 0xEE, sizeof port.settings);
    put(port.settings.mtu, "5");
    port.settings.change_mask = kEveryBit;
    test::printed([&] { EXPECT_EQ(setPortParams(&port), 70U); });
    EXPECT_THAT(
        std::string(GetErrStr(70)),
        HasSubstr("Set MTU for interface " + std::string(64, 'n') + "failed: Invalid set value "));
    EXPECT_LE(std::strlen(errStr), 1023U);
}

TEST_F(SetEntry, AMaskOfNothingClearsTheDetailAndReturnsZero) {
    EXPECT_EQ(set_port("03:00.4", 1), 0U);
    for (const char byte : errStr) {
        ASSERT_EQ(byte, '\0');
    }
}

TEST_F(SetEntry, TheCallersRecordGetsNameAndMacAndNothingElse) {
    for (const uint32_t mask : {0U, 4U}) {
        std::memset(&record_, 0xEE, sizeof record_);
        record_.settings.change_mask = mask;
        put(record_.settings.mtu, "bad");
        PortInfo expected = record_;
        std::memset(expected.interface_name, 0, sizeof expected.interface_name);
        std::strcpy(expected.interface_name, "eth3");
        std::memset(expected.mac, 0, sizeof expected.mac);
        std::strcpy(expected.mac, "00:07:43:00:00:02");
        EXPECT_EQ(set_port("03:00.4", 2), mask == 0 ? 0U : 70U) << "also when the setting fails";
        EXPECT_EQ(std::memcmp(&record_, &expected, sizeof record_), 0);
    }
}

TEST_F(SetEntry, AnUnknownCardOrPortLeavesEverythingAlone) {
    const PortInfo before = record_;
    for (const char* location : {"03:00.5", "", "03:00.40", "3:00.4"}) {
        EXPECT_EQ(set_port(location, 1), 65U) << location;
    }
    for (const int port : {0, 3, -1, 257, 1 + 65536}) {
        EXPECT_EQ(set_port("03:00.4", port), 64U) << port;
    }
    EXPECT_EQ(set_card("03:00.5"), 65U);
    EXPECT_STREQ(errStr, "what stood there before");
    EXPECT_EQ(std::memcmp(&record_, &before, sizeof record_), 0);
    EXPECT_THAT(settings_sent(), IsEmpty());
}

TEST_F(SetEntry, NullArgumentsAreRefused) {
    const auto attached = host_.attach();
    std::string location = "03:00.4";
    EXPECT_EQ(SetPortParam(nullptr, location.data(), 1), 317U);
    EXPECT_EQ(SetPortParam(&record_, nullptr, 1), 65U);
    EXPECT_EQ(SetCardParam(nullptr, location.data()), 317U);
    EXPECT_EQ(SetCardParam(&params_, nullptr), 65U);
    EXPECT_NE(setPortParams(nullptr), 0U);
    EXPECT_NE(setCardParams(nullptr), 0U);
    EXPECT_EQ(lookupPortInfo(nullptr, location.data(), 1), nullptr);
    EXPECT_STREQ(errStr, "what stood there before");
}

TEST_F(SetEntry, AFailureOfTheInventoryIsReturnedAsItIs) {
    const std::string loaded = host_.read("/proc/modules");
    host_.file("/proc/modules", "");
    EXPECT_EQ(set_port("03:00.4", 1), 62U);
    EXPECT_EQ(set_card("03:00.4"), 62U);
    host_.file("/proc/modules", loaded);
    host_.fail({.call = "opendir", .times = 0, .error = EACCES, .object = "/sys/class/net"});
    EXPECT_EQ(set_port("03:00.4", 1), 1U);
    EXPECT_EQ(set_card("03:00.4"), 1U);
    EXPECT_STREQ(errStr, "what stood there before");
}

TEST_F(SetEntry, LookupFindsAPortOfACardByItsNumber) {
    const auto attached = host_.attach();
    CardList* list = nullptr;
    ASSERT_EQ(InitAndFillInfo_Kxcard(&list, 0), 0U);
    std::string location = "03:00.4";
    ASSERT_NE(lookupPortInfo(list, location.data(), 2), nullptr);
    EXPECT_STREQ(lookupPortInfo(list, location.data(), 2)->interface_name, "eth3");
    for (const uint32_t number : {0U, 3U, 258U, 0xffffffffU}) {
        EXPECT_EQ(lookupPortInfo(list, location.data(), number), nullptr) << number;
    }
    std::string unknown = "07:00.4";
    EXPECT_EQ(lookupPortInfo(list, unknown.data(), 1), nullptr);
    EXPECT_EQ(lookupPortInfo(list, nullptr, 1), nullptr);
    Close_Kxcard(list);
}

TEST_F(SetEntry, ACardMaskOfNothingTouchesNothing) {
    params_.tx_coal = 9;
    EXPECT_EQ(set_card("03:00.4"), 0U);
    EXPECT_STREQ(errStr, "");
    EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "1\n");
    EXPECT_FALSE(host_.exists("/etc/sysctl.conf"));
}

TEST_F(SetEntry, BitsOutsideTheOffloadOnesGoToTheDriverAlone) {
    params_.max_wr = 1;  // out of its range
    params_.tx_coal = 9;
    for (const uint32_t mask : {0x1U, 0x800000U, 0x2000000U, 0x80000000U, 0xfe800001U}) {
        params_.change_mask = mask;
        EXPECT_EQ(set_card("03:00.4"), 0U) << mask;
        EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "1\n") << mask;
    }
    params_.change_mask = 0x1000000;
    EXPECT_EQ(set_card("03:00.4"), 0U);
    EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "9\n");
}

}  // namespace
