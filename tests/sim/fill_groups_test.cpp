// Which groups of an inventory a mask fills, and what the query functions return of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <linux/ethtool.h>

#include <cerrno>
#include <cstring>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/stat_entries.hpp"

namespace {

using test::Entry;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char kQ3Snmp[] = "/proc/net/zfab3/toe0/snmp";
constexpr char kQ5Tcp[] = "/proc/driver/zfab4/0000:03:00.4/tcp_stats";

// A Q5 at 03:00.4, a Q3 with offload at 05:00.0, a Q3 without at 06:00.0.
class FillGroups : public testing::Test {
protected:
    FillGroups() {
        host_.module({.name = "zfab3", .loaded = true});
        host_.module({.name = "zfab4", .loaded = true, .parameters = {{"tx_coal", "1"}}});
        kxsim::Nic counting;
        counting.counters = {{"rx_bytes", 7}};
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {{.name = "eth2", .nic = counting}, {.name = "eth3"}}});
        host_.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth5"}}});
        host_.adapter({.chip = "Q3", .location = "06:00.0", .ports = {{.name = "eth6"}}});
        host_.toe_device({.index = 0, .interfaces = {"eth5"}, .of_zfab3 = true});
        host_.toe_device({.index = 1, .interfaces = {"eth2"}, .parameters = {{"mss", "1400"}}});
        host_.file(kQ3Snmp, "SnmpIn: 3\n");
        host_.file(kQ5Tcp, "head\nTcpIn: 5\n");
        attached_.emplace(host_.attach());
    }
    ~FillGroups() override { Close_Kxcard(list_); }

    uint32_t build(uint32_t mask) {
        uint32_t status = 0;
        output_ = test::printed([&] { status = InitAndFillInfo_Kxcard(&list_, mask); });
        return status;
    }

    uint32_t fill(uint32_t mask) {
        uint32_t status = 0;
        output_ = test::printed([&] { status = FillInfo_Kxcard(&list_, mask); });
        return status;
    }

    [[nodiscard]] CardInfo& q5() const { return *lookupCardInfo(list_, "03:00.4"); }
    [[nodiscard]] CardInfo& q3() const { return *lookupCardInfo(list_, "05:00.0"); }
    [[nodiscard]] CardInfo& q3_nic() const { return *lookupCardInfo(list_, "06:00.0"); }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
    CardList* list_ = nullptr;
    std::string output_;
};

bool has_parameters(const PortInfo& port) { return port.connector[0] != '\0'; }

TEST_F(FillGroups, EmptyMaskFillsNoGroup) {
    ASSERT_EQ(build(0), 0U);
    EXPECT_EQ(output_, "");
    for (const CardInfo* card = list_->cards; card != nullptr; card = card->next) {
        EXPECT_TRUE(card->stats == nullptr);
        EXPECT_FALSE(has_parameters(*card->ports));
        EXPECT_TRUE(card->ports->stats == nullptr);
    }
    EXPECT_EQ(q5().params.state, 6);
    EXPECT_EQ(+q5().params.mss, 0);
    EXPECT_EQ(q3().params.state, 6);
}

TEST_F(FillGroups, CardWithoutOffloadLosesItsParametersAndStatisticsWhateverTheMask) {
    for (const uint32_t mask : {0U, 4U, 8U, 24U, 255U}) {
        ASSERT_EQ(build(mask), 0U);
        const CardParams zero{};
        EXPECT_EQ(std::memcmp(&q3_nic().params, &zero, sizeof zero), 0) << mask;
        EXPECT_TRUE(q3_nic().stats == nullptr);
        Close_Kxcard(std::exchange(list_, nullptr));
    }
}

TEST_F(FillGroups, ParametersComeFromTheCardsOffloadDevice) {
    ASSERT_EQ(build(4), 0U);
    EXPECT_EQ(+q5().params.mss, 1400);
    EXPECT_EQ(q5().params.state, 6);
    EXPECT_EQ(+q3().params.mss, 16384);
}

TEST_F(FillGroups, ParametersThatCannotBeReadDoNotFailTheFill) {
    host_.remove("/proc/sys/toe/toe0_tom");
    ASSERT_EQ(build(4), 0U);
    EXPECT_EQ(q3().params.state, 2);
    EXPECT_EQ(+q5().params.mss, 1400);
    Close_Kxcard(std::exchange(list_, nullptr));
    host_.remove("/proc/net/offload/devices");
    ASSERT_EQ(build(4), 0U);
    EXPECT_EQ(q5().params.state, 6);
    EXPECT_EQ(+q5().params.mss, 0);
}

TEST_F(FillGroups, CardStatisticsComeWithEitherBit) {
    for (const uint32_t mask : {8U, 16U, 24U}) {
        SCOPED_TRACE(mask);
        ASSERT_EQ(build(mask), 0U);
        EXPECT_THAT(test::entries_of(q5().stats), ElementsAre(Entry{2, "TcpIn", 5}));
        EXPECT_THAT(test::entries_of(q3().stats), ElementsAre(Entry{1, "SnmpIn", 3}));
        EXPECT_EQ(
            output_,
            "Card of type: Q5\ncardInfo->PCIBusLocation: 03:00.4\nTcpIn\t5\n"
            "Card of type: Q3\nIn getCardStats\n");
        Close_Kxcard(std::exchange(list_, nullptr));
    }
}

TEST_F(FillGroups, ParametersSilenceCardStatistics) {
    for (const uint32_t mask : {12U, 20U, 28U}) {
        ASSERT_EQ(build(mask), 0U);
        EXPECT_EQ(output_, "");
        EXPECT_TRUE(q5().stats == nullptr);
        EXPECT_TRUE(q3().stats == nullptr);
        Close_Kxcard(std::exchange(list_, nullptr));
    }
}

TEST_F(FillGroups, Q3StatisticsThatCannotBeReadFailTheBuild) {
    host_.remove(kQ3Snmp);
    EXPECT_EQ(build(8), 1U);
    EXPECT_TRUE(list_ == nullptr);
    EXPECT_THAT(output_, HasSubstr("Card of type: Q3\nIn getCardStats\n"));
}

TEST_F(FillGroups, Q3FailureDoesNotStopTheFill) {
    ASSERT_EQ(build(0), 0U);
    host_.remove(kQ3Snmp);
    EXPECT_EQ(fill(8 | 64), 1U);
    EXPECT_THAT(test::entries_of(q5().stats), SizeIs(1));
    EXPECT_TRUE(has_parameters(*q3().ports));
    EXPECT_TRUE(has_parameters(*q3_nic().ports));
}

TEST_F(FillGroups, LastQ3CardDecidesTheResult) {
    host_.adapter({.chip = "Q3", .location = "07:00.0", .ports = {{.name = "eth7"}}});
    host_.toe_device({.index = 2, .interfaces = {"eth7"}, .of_zfab3 = true});
    host_.remove(kQ3Snmp);
    host_.file("/proc/net/zfab3/toe2/snmp", "SnmpIn: 9\n");
    ASSERT_EQ(build(8), 0U);
    EXPECT_TRUE(q3().stats == nullptr);
    Close_Kxcard(std::exchange(list_, nullptr));
    host_.file(kQ3Snmp, "SnmpIn: 3\n");
    host_.remove("/proc/net/zfab3/toe2/snmp");
    EXPECT_EQ(build(8), 1U);
}

TEST_F(FillGroups, Q5BehindAFailingQ3DoesNotMendTheResult) {
    host_.adapter({.chip = "Q4", .location = "08:00.4"});
    host_.remove(kQ3Snmp);
    EXPECT_EQ(build(8), 1U);
    EXPECT_THAT(output_, HasSubstr("Card of type: Q4\n"));
}

TEST_F(FillGroups, Q5StatisticsThatCannotBeReadAreIgnored) {
    host_.remove("/proc/driver/zfab4");
    ASSERT_EQ(build(8), 0U);
    EXPECT_TRUE(q5().stats == nullptr);
    char buffer[64];
    uint32_t length = 0;
    EXPECT_EQ(GetCardStats("03:00.4", buffer, &length), 71U);
    EXPECT_EQ(length, 0U);
}

TEST_F(FillGroups, CardOfAnotherTypeHasNoStatistics) {
    ASSERT_EQ(build(0), 0U);
    std::strcpy(q5().chip_type, "Q9");
    StatEntry entry{};
    q5().stats = &entry;
    // The text of the chip type decides: a card that is neither Q4 nor Q5 is looked up as a Q3.
    host_.append("/proc/net/zfab3/devices", "toe1 eth2\n");
    EXPECT_EQ(fill(8), 0U);
    EXPECT_TRUE(q5().stats == nullptr);
    EXPECT_THAT(output_, Not(HasSubstr("Q9")));
}

TEST_F(FillGroups, SecondFillOverwritesTheChains) {
    ASSERT_EQ(build(8 | 128), 0U);
    const StatEntry* const card_stats = q5().stats;
    const StatEntry* const port_stats = q5().ports->stats;
    host_.file(kQ5Tcp, "head\nTcpIn: 6\nTcpOut: 7\n");
    ASSERT_EQ(fill(8 | 128), 0U);
    EXPECT_TRUE(q5().stats == card_stats);
    EXPECT_TRUE(q5().ports->stats == port_stats);
    EXPECT_THAT(test::entries_of(q5().stats), ElementsAre(Entry{2, "TcpIn", 6}));
}

TEST_F(FillGroups, OffloadTextStaysWhenASecondFillCannotOpenTheList) {
    ASSERT_EQ(build(0), 0U);
    ASSERT_STREQ(q3().offload_device, "toe0");
    host_.fail({.call = "open", .times = 0, .error = EACCES, .object = "/proc/net/zfab3/devices"});
    ASSERT_EQ(fill(0), 0U);
    EXPECT_STREQ(q3().offload_device, "toe0");
    EXPECT_STREQ(q3_nic().offload_device, "nic_dev");
}

TEST_F(FillGroups, FillWithoutTheStatisticsBitsNullsThem) {
    ASSERT_EQ(build(0), 0U);
    StatEntry agents_card_entry{};
    StatEntry agents_port_entry{};
    q5().stats = &agents_card_entry;
    q5().ports->stats = &agents_port_entry;
    ASSERT_EQ(fill(0), 0U);
    EXPECT_TRUE(q5().stats == nullptr);
    EXPECT_TRUE(q5().ports->stats == nullptr);
}

TEST_F(FillGroups, PortParametersComeWithTheirBitForEveryPort) {
    ASSERT_EQ(build(64), 0U);
    for (const CardInfo* card = list_->cards; card != nullptr; card = card->next) {
        for (const PortInfo* port = card->ports; port != nullptr; port = port->next) {
            EXPECT_TRUE(has_parameters(*port)) << port->interface_name;
            EXPECT_STREQ(port->mac, "");
            EXPECT_TRUE(port->stats == nullptr);
        }
    }
}

TEST_F(FillGroups, PortStatisticsComeWithTheirBitForEveryPort) {
    ASSERT_EQ(build(128), 0U);
    EXPECT_THAT(test::entries_of(q5().ports->stats), ElementsAre(Entry{0, "rx_bytes", 7}));
    EXPECT_FALSE(has_parameters(*q5().ports));
    EXPECT_THAT(test::entries_of(q3().ports->stats), Not(IsEmpty()));
}

TEST_F(FillGroups, PortThatCannotBeAskedDoesNotFailTheFill) {
    host_.refuse("eth2", ETHTOOL_GSTATS, EIO);
    ASSERT_EQ(build(64 | 128), 0U);
    EXPECT_TRUE(q5().ports->stats == nullptr);
    EXPECT_THAT(test::entries_of(q3().ports->stats), Not(IsEmpty()));
}

TEST_F(FillGroups, GetCardStatsCopiesTheChain) {
    char buffer[2 * KX_STAT_COPY];
    uint32_t length = 0;
    EXPECT_EQ(GetCardStats("03:00.4", buffer, &length), 0U);
    ASSERT_EQ(length, uint32_t{KX_STAT_COPY});
    EXPECT_EQ(buffer[0], 2);
    EXPECT_STREQ(buffer + 1, "TcpIn");
    uint64_t value = 0;
    std::memcpy(&value, buffer + 31, sizeof value);
    EXPECT_EQ(value, 5U);
}

TEST_F(FillGroups, GetCardStatsFailsForEveryCardWhenTheLastQ3Does) {
    host_.remove(kQ3Snmp);
    char buffer[64];
    uint32_t length = 0xEE;
    EXPECT_EQ(GetCardStats("03:00.4", buffer, &length), 1U);
    EXPECT_EQ(length, 0U);
}

TEST_F(FillGroups, GetPortStatOfAPortWithoutCountersGives0AndLength0) {
    kxsim::Nic silent;
    silent.counters.clear();
    host_.nic("eth2", silent);
    char buffer[64];
    uint32_t length = 0xEE;
    EXPECT_EQ(GetPortStat("03:00.4", 1, buffer, &length), 0U);
    EXPECT_EQ(length, 0U);
    length = 0xEE;
    EXPECT_EQ(GetPortStat("03:00.4", 1, nullptr, &length), 0U) << "nothing needs a buffer";
    EXPECT_EQ(length, 0U);
}

TEST_F(FillGroups, GetPortInfoCarriesParametersAndAddresses) {
    std::vector<char> buffer(2 * KX_PORT_COPY);
    uint32_t length = 0;
    ASSERT_EQ(GetPortInfo("03:00.4", buffer.data(), &length), 0U);
    ASSERT_EQ(length, buffer.size());
    EXPECT_STREQ(buffer.data() + 513, "FIBRE");
    EXPECT_EQ(std::string(buffer.data() + 2).size(), 17U);
}

TEST_F(FillGroups, GetCardInfoCarriesOffloadParameters) {
    std::vector<char> buffer(3 * KX_CARD_COPY);
    uint32_t length = 0;
    ASSERT_EQ(GetCardInfo(buffer.data(), &length), 0U);
    ASSERT_EQ(length, buffer.size());
    int32_t mss = 0;
    std::memcpy(&mss, buffer.data() + 308 + 96, sizeof mss);
    EXPECT_EQ(mss, 1400);
}

TEST_F(FillGroups, EveryPortCostsOneSocketForItsParameters) {
    ASSERT_EQ(build(0), 0U);
    const kxsim::Calls calls = host_.count([&] { FillInfo_Kxcard(&list_, 64); });
    EXPECT_EQ(calls["socket"], 4U);
    EXPECT_EQ(calls["ioctl"], 4U * 13U);
}

}  // namespace
