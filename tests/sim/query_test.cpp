// The query entry points: what they find, copy and refuse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <array>
#include <cstring>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/records.hpp"

namespace {

using test::text;
using testing::ElementsAre;

// A dual-port Q5, a Q4 without ports and a Q3.
struct LabHost : kxsim::Host {
    LabHost() {
        module({.name = "zfab3", .loaded = true});
        module({.name = "zfab4", .version = "1", .loaded = true});
        adapter(
            {.chip = "Q3", .location = "05:00.0", .device_id = 0x31, .ports = {{.name = "eth4"}}});
        adapter({.chip = "Q4", .location = "04:00.4"});
        adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {{.name = "eth2", .ipv4 = {"192.0.2.1/24"}}, {.name = "eth3"}}});
    }
};

TEST(CardQuery, CopiesEveryCardWithoutItsNextPointer) {
    LabHost host;
    const auto attached = host.attach();
    const auto answer = test::card_info();
    EXPECT_EQ(answer.status, 0U);
    EXPECT_EQ(answer.length, 1665U);
    EXPECT_THAT(
        test::each(
            answer.records, [](const CardInfo& card) { return text(card.pci_bus_location); }),
        testing::UnorderedElementsAre("03:00.4", "04:00.4", "05:00.0"));
}

TEST(CardQuery, WritesNothingBehindTheLastRecord) {
    LabHost host;
    const auto attached = host.attach();
    std::vector<unsigned char> buffer(1665 + 16, 0xEE);
    uint32_t length = 0;
    ASSERT_EQ(GetCardInfo(buffer.data(), &length), 0U);
    EXPECT_THAT(
        std::vector<unsigned char>(buffer.begin() + 1665, buffer.end()), testing::Each(0xEE));
}

TEST(PortQuery, CopiesThePortsOfTheCard) {
    LabHost host;
    const auto attached = host.attach();
    const auto answer = test::port_info("03:00.4");
    EXPECT_EQ(answer.status, 0U);
    EXPECT_EQ(answer.length, 2U * 1385U);
    ASSERT_EQ(answer.records.size(), 2U);
    EXPECT_EQ(text(answer.records[0].interface_name), "eth2");
    EXPECT_EQ(text(answer.records[0].ipv4_address), "192.0.2.1");
    EXPECT_EQ(text(answer.records[1].interface_name), "eth3");
}

TEST(PortQuery, CardWithoutAPortIsRefused) {
    LabHost host;
    const auto attached = host.attach();
    const auto answer = test::port_info("04:00.4");
    EXPECT_EQ(answer.status, 72U);
    EXPECT_EQ(answer.length, 0U);
}

TEST(EveryCardQuery, UnknownLocationIsRefused) {
    LabHost host;
    const auto attached = host.attach();
    for (const char* location : {"3:0.4", "03:00.0", "", "03:00.4 ", "03:00.40", "0000:03:00.4"}) {
        EXPECT_EQ(test::port_info(location).status, 65U) << location;
        EXPECT_EQ(test::card_stats(location).status, 65U) << location;
        EXPECT_EQ(test::port_stat(location, 1).status, 65U) << location;
        EXPECT_EQ(test::port_info(location).length, 0U) << location;
    }
}

TEST(EveryCardQuery, NullLocationIsNoCard) {
    LabHost host;
    const auto attached = host.attach();
    std::vector<char> buffer(100000);
    uint32_t length = 9;
    EXPECT_EQ(GetPortInfo(nullptr, buffer.data(), &length), 65U);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(GetCardStats(nullptr, buffer.data(), &length), 65U);
    EXPECT_EQ(GetPortStat(nullptr, 1, buffer.data(), &length), 65U);
}

TEST(EveryQuery, SetsTheLengthBeforeAnythingCanFail) {
    kxsim::Host host;  // no driver
    const auto attached = host.attach();
    std::vector<char> buffer(1000);
    uint32_t length = 9;
    EXPECT_EQ(GetCardInfo(buffer.data(), &length), 62U);
    EXPECT_EQ(length, 0U);
    length = 9;
    EXPECT_EQ(GetCardStats("03:00.4", buffer.data(), &length), 62U);
    EXPECT_EQ(length, 0U);
    length = 9;
    EXPECT_EQ(GetPortInfo("03:00.4", buffer.data(), &length), 62U);
    EXPECT_EQ(length, 0U);
    length = 9;
    EXPECT_EQ(GetPortStat("03:00.4", 1, buffer.data(), &length), 62U);
    EXPECT_EQ(length, 0U);
    length = 9;
    EXPECT_EQ(GetDriverDetails(buffer.data(), &length), 62U);
    EXPECT_EQ(length, 0U);
}

TEST(EveryQuery, RefusesANullBufferOrLength) {
    LabHost host;
    const auto attached = host.attach();
    std::vector<char> buffer(1000);
    uint32_t length = 9;
    EXPECT_EQ(GetCardInfo(nullptr, &length), 317U);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(GetCardInfo(buffer.data(), nullptr), 317U);
    EXPECT_EQ(GetCardStats("03:00.4", buffer.data(), nullptr), 317U);
    EXPECT_EQ(GetPortInfo("03:00.4", nullptr, &length), 317U);
    EXPECT_EQ(GetPortInfo("03:00.4", buffer.data(), nullptr), 317U);
    EXPECT_EQ(GetPortStat("03:00.4", 1, nullptr, &length), 317U);
    EXPECT_EQ(GetPortStat("03:00.4", 1, buffer.data(), nullptr), 317U);
    EXPECT_EQ(GetDriverDetails(nullptr, &length), 317U);
    EXPECT_EQ(GetDriverDetails(buffer.data(), nullptr), 317U);
}

// An agent without a buffer still gets the status of what is missing on the host.
TEST(EveryQuery, NeedsNoBufferWhenThereIsNothingToCopy) {
    uint32_t length = 9;
    {
        kxsim::Host host;  // no driver
        const auto attached = host.attach();
        EXPECT_EQ(GetCardInfo(nullptr, &length), 62U);
        EXPECT_EQ(length, 0U);
        EXPECT_EQ(GetDriverDetails(nullptr, &length), 62U);
    }
    LabHost host;
    const auto attached = host.attach();
    EXPECT_EQ(GetCardStats("3:0.4", nullptr, &length), 65U);
    EXPECT_EQ(GetCardStats("03:00.4", nullptr, &length), 71U);
    EXPECT_EQ(GetPortInfo("3:0.4", nullptr, &length), 65U);
    EXPECT_EQ(GetPortInfo("04:00.4", nullptr, &length), 72U);
    EXPECT_EQ(GetPortStat("3:0.4", 1, nullptr, &length), 65U);
    EXPECT_EQ(GetPortStat("03:00.4", 3, nullptr, &length), 64U);
    EXPECT_EQ(length, 0U);
}

TEST(EveryQuery, PassesTheFailureOfTheInventoryOn) {
    kxsim::Host host;
    host.module({.name = "zfab4", .loaded = true});
    const auto attached = host.attach();
    EXPECT_EQ(test::card_info().status, 60U);
    EXPECT_EQ(test::port_info("03:00.4").status, 60U);
    host.remove("/sys/class/net");
    EXPECT_EQ(test::card_info().status, 1U);
    EXPECT_EQ(test::card_stats("03:00.4").status, 1U);
}

TEST(StatisticsQuery, UnknownPortIsRefused) {
    LabHost host;
    const auto attached = host.attach();
    for (const uint32_t instance : {0U, 3U, 255U, 256U, 257U, 0x101U, 0xFFFFFF01U}) {
        EXPECT_EQ(test::port_stat("03:00.4", instance).status, 64U) << instance;
    }
    EXPECT_EQ(test::port_stat("04:00.4", 1).status, 64U);
    EXPECT_EQ(test::port_stat("03:00.4", 2).status, 0U);
}

// --- Lookups and flattening ----------------------------------------------------------------------

TEST(Lookup, FindsTheFirstCardAtALocation) {
    CardInfo second{};
    CardInfo first{};
    std::strcpy(first.pci_bus_location, "03:00.4");
    std::strcpy(second.pci_bus_location, "03:00.4");
    first.next = &second;
    CardList list{};
    list.cards = &first;
    EXPECT_EQ(lookupCardInfo(&list, "03:00.4"), &first);
    EXPECT_EQ(lookupCardInfo(&list, "03:00.5"), nullptr);
    EXPECT_EQ(lookupCardInfo(nullptr, "03:00.4"), nullptr);
    EXPECT_EQ(lookupCardInfo(&list, nullptr), nullptr);
}

TEST(Lookup, ComparesLocationsOverSixteenCharacters) {
    CardInfo card{};
    std::memset(card.pci_bus_location, 'x', sizeof card.pci_bus_location);
    CardList list{};
    list.cards = &card;
    const std::string sixteen(16, 'x');
    EXPECT_EQ(lookupCardInfo(&list, sixteen.c_str()), &card);
    EXPECT_EQ(lookupCardInfo(&list, (sixteen + "and more").c_str()), &card);
    EXPECT_EQ(lookupCardInfo(&list, std::string(15, 'x').c_str()), nullptr);
}

TEST(Lookup, FindsTheFirstPortOfAnInstance) {
    std::array<PortInfo, 3> ports{};
    ports[0].instance = 1;
    ports[0].next = &ports[1];
    ports[1].instance = 2;
    ports[1].next = &ports[2];
    ports[2].instance = 2;
    CardInfo card{};
    card.ports = ports.data();
    EXPECT_EQ(lookupPortInCard(&card, 2), &ports[1]);
    EXPECT_EQ(lookupPortInCard(&card, 258), nullptr) << "not cut to a byte";
    EXPECT_EQ(lookupPortInCard(&card, 0), nullptr);
    EXPECT_EQ(lookupPortInCard(nullptr, 1), nullptr);
}

TEST(Flattening, CopiesEachRecordUpToItsNextPointer) {
    std::array<StatEntry, 3> chain{};
    for (std::size_t k = 0; k < chain.size(); ++k) {
        chain[k].value = 10 + k;
        chain[k].next = k + 1 < chain.size() ? &chain[k + 1] : nullptr;
    }
    std::array<unsigned char, 3 * KX_STAT_COPY + 1> buffer;
    buffer.fill(0xEE);
    EXPECT_EQ(ConstructBuffer(buffer.data(), KX_STAT_COPY, chain.data()), 117U);
    for (std::size_t k = 0; k < chain.size(); ++k) {
        EXPECT_EQ(std::memcmp(buffer.data() + k * KX_STAT_COPY, &chain[k], KX_STAT_COPY), 0) << k;
    }
    EXPECT_EQ(buffer.back(), 0xEE);
}

TEST(Flattening, OfNothingIsNothing) {
    char byte = 'x';
    EXPECT_EQ(ConstructBuffer(&byte, 39, nullptr), 0U);
    StatEntry entry{};
    EXPECT_EQ(ConstructBuffer(nullptr, 39, &entry), 0U);
    EXPECT_EQ(byte, 'x');
}

// --- The driver's private request ----------------------------------------------------------------

TEST(DeviceUp, FailsForAnInterfaceThatIsNotThere) {
    kxsim::Host host;
    const auto attached = host.attach();
    EXPECT_EQ(zfabtool_devup("eth9"), 1U);
}

TEST(DeviceUp, AsksTheDriverOnce) {
    LabHost host;
    const auto attached = host.attach();
    const auto calls = host.count([] { EXPECT_EQ(zfabtool_devup("eth2"), 0U); });
    ASSERT_EQ(calls["ioctl"], 1U);
    for (const kxsim::LoggedCall& call : calls.log()) {
        if (call.call == "ioctl") {
            EXPECT_EQ(call.object, "eth2");
            EXPECT_EQ(call.command, 0x89F0U);
        }
    }
    EXPECT_EQ(calls["socket"], 1U);
}

TEST(DeviceUp, RefusalAndLackOfASocketAreFailures) {
    LabHost host;
    const auto attached = host.attach();
    host.refuse("eth2", 0x89F0, EOPNOTSUPP);
    EXPECT_EQ(zfabtool_devup("eth2"), 1U);
    host.refuse("eth2", 0x89F0, 0);
    host.fail({.call = "socket", .error = EMFILE});
    EXPECT_EQ(zfabtool_devup("eth2"), 1U);
    EXPECT_EQ(zfabtool_devup("eth2"), 0U);
    EXPECT_EQ(zfabtool_devup(nullptr), 317U);
}

// --- Memory
// ---------------------------------------------------------------------------------------

TEST(Tool, RunsWithoutAManagementBufferWhenMemoryIsShort) {
    kxsim::Host host;
    const auto attached = host.attach();
    host.fail({.call = "malloc", .error = ENOMEM, .from = "libkxlinhw"});
    std::array<char, 100> block{};
    char* output = nullptr;
    uint32_t length = 9;
    uint32_t status = 9;
    EXPECT_EQ(
        test::printed(
            [&] { host.count([&] { status = run_cmd_zfab(block.data(), &output, &length); }); }),
        "MX Data buffer allocation failed\n");
    EXPECT_EQ(status, 0U);
    EXPECT_EQ(length, 0U);
    std::free(output);
}

}  // namespace
