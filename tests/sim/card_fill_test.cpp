// What a fill writes into cards that are already on the list.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <cstring>
#include <kxsim/host.hpp>
#include <string>

#include "support/output.hpp"
#include "support/records.hpp"

namespace {

using test::text;

struct HostWithDrivers : kxsim::Host {
    HostWithDrivers() {
        module({.name = "zfab3", .loaded = true});
        module({.name = "zfab4", .loaded = true});
    }
};

// The one card of a host after a fill.
CardInfo filled_card(const kxsim::Host&, uint32_t mask = 0) {
    CardList* list = nullptr;
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list, mask), 0U);
    const CardInfo card = *list->cards;
    Close_Kxcard(list);
    return card;
}

// The offload text of a Q3 card with one port, over a text of the offload driver's device list.
std::string q3_offload_text(const std::string& devices) {
    HostWithDrivers host;
    host.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth4"}}});
    host.file("/proc/net/zfab3/devices", devices);
    const auto attached = host.attach();
    return text(filled_card(host).offload_device);
}

TEST(OffloadText, OfQ4AndQ5RunsTwoBytesIntoTheClass) {
    for (const char* chip : {"Q4", "Q5"}) {
        HostWithDrivers host;
        host.adapter({.chip = chip, .location = "03:00.4"});
        const auto attached = host.attach();
        const CardInfo card = filled_card(host);
        EXPECT_EQ(std::memcmp(card.offload_device, "OffloadCar", 10), 0);
        unsigned char pci_class[4];
        std::memcpy(pci_class, &card.pci_class, 4);
        EXPECT_EQ(pci_class[0], 0x64);
        EXPECT_EQ(pci_class[1], 0);
    }
}

TEST(OffloadText, OfQ3IsTheFirstWordOfTheLineThatHoldsItsPort) {
    EXPECT_EQ(q3_offload_text("Device  Interfaces\ntoe0    eth4 eth5\n"), "toe0");
    EXPECT_EQ(q3_offload_text("Device\ntoe0 eth1\ntoe1 eth4\ntoe2 eth4\n"), "toe1");
    EXPECT_EQ(q3_offload_text("Device\n  toe3  eth4"), "toe3");
}

TEST(OffloadText, FirstLineOfTheListIsHeadings) {
    EXPECT_EQ(q3_offload_text("toe0 eth4\n"), "nic_dev");
    EXPECT_EQ(q3_offload_text(""), "nic_dev");
}

TEST(OffloadText, PortIsFoundAnywhereInTheLine) {
    EXPECT_EQ(q3_offload_text("Device\ntoe0 eth40\n"), "toe0");
    EXPECT_EQ(q3_offload_text("Device\ntoe0 veth4\n"), "toe0");
    EXPECT_EQ(q3_offload_text("Device\ntoe0 eth5\n"), "nic_dev");
}

TEST(OffloadText, TabBelongsToTheWord) {
    EXPECT_EQ(q3_offload_text("Device\ntoe0\teth4 x\n"), "toe0\teth4");
}

TEST(OffloadText, LongWordIsCutAtNineCharacters) {
    EXPECT_EQ(q3_offload_text("Device\ntoe0123456789 eth4\n"), "toe012345");
}

TEST(OffloadText, LongLinesAreReadInPieces) {
    EXPECT_EQ(q3_offload_text(std::string(1023, 'h') + "toe0 eth4\n"), "toe0")
        << "the rest of a long first line is a line of its own";
    EXPECT_EQ(q3_offload_text("Device\n" + std::string(3000, 'x') + " eth4\n"), "xxxxxxxxx");
}

TEST(OffloadText, OfQ3WithoutTheListIsANetworkCardOnly) {
    HostWithDrivers host;
    host.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth4"}}});
    const auto attached = host.attach();
    EXPECT_EQ(text(filled_card(host).offload_device), "nic_dev");
}

TEST(OffloadText, ListThatCannotBeOpenedLeavesTheTextEmptyAndTheCardOffloadCapable) {
    HostWithDrivers host;
    host.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth4"}}});
    host.file("/proc/net/zfab3/devices", "Device\ntoe0 eth4\n", 0);
    const auto attached = host.attach();
    const CardInfo card = filled_card(host);
    EXPECT_EQ(text(card.offload_device), "");
    EXPECT_EQ(card.params.state, 6) << "the block is kept";
}

TEST(OffloadText, CardWithoutPortIsLookedForAsNoPort) {
    HostWithDrivers host;
    host.adapter({.chip = "Q3", .location = "05:00.0"});
    host.file("/proc/net/zfab3/devices", "Device\ntoe0 eth4\ntoe1 noPort\n");
    const auto attached = host.attach();
    EXPECT_EQ(text(filled_card(host).offload_device), "toe1");
}

TEST(CardParameters, OfADiscoveredCardBeginWithSix) {
    HostWithDrivers host;
    host.adapter({.chip = "Q5", .location = "03:00.4"});
    const auto attached = host.attach();
    EXPECT_EQ(filled_card(host).params.state, 6);
}

TEST(CardParameters, OfACardWithoutOffloadAreZero) {
    HostWithDrivers host;
    host.adapter({.chip = "Q3", .location = "05:00.0"});
    const auto attached = host.attach();
    const CardInfo card = filled_card(host);
    EXPECT_THAT(
        std::vector<unsigned char>(
            reinterpret_cast<const unsigned char*>(&card.params),
            reinterpret_cast<const unsigned char*>(&card.params) + sizeof card.params),
        testing::Each(0));
}

TEST(CardParameters, HoldTheEthernetDriversParameterBesideTheOffloadEnginesOwn) {
    for (const char* chip : {"Q3", "Q5"}) {
        HostWithDrivers host;
        host.adapter({.chip = chip, .location = "03:00.4", .ports = {{.name = "eth2"}}});
        host.file("/sys/module/zfab4/parameters/tx_coal", "2\n");
        host.toe_device(
            {.interfaces = {"eth2"}, .parameters = {{"mss", "9000"}}, .of_zfab3 = true});
        const auto attached = host.attach();
        const CardInfo card = filled_card(host, KX_FILL_CARD_PARAMS);
        EXPECT_EQ(card.params.tx_coal, 2) << chip;
        EXPECT_EQ(+card.params.mss, 9000) << chip;
    }
}

TEST(CardParameters, OfACardWithoutOffloadControlFilesAreZeroBehindTheirState) {
    HostWithDrivers host;
    host.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
    host.file("/sys/module/zfab4/parameters/tx_coal", "2\n");
    host.toe_device({.interfaces = {"eth2"}, .control_files = false});
    const auto attached = host.attach();
    const CardInfo card = filled_card(host, KX_FILL_CARD_PARAMS);
    EXPECT_EQ(card.params.state, 2);
    EXPECT_EQ(card.params.tx_coal, 0);
}

TEST(CardParameters, AreReadOnlyWhenAskedFor) {
    HostWithDrivers host;
    host.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
    host.file("/sys/module/zfab4/parameters/tx_coal", "2\n");
    const auto attached = host.attach();
    EXPECT_EQ(filled_card(host, KX_FILL_CARD_STATS).params.tx_coal, 0);
}

TEST(Fill, WithoutAnEthernetDriverSaysSo) {
    HostWithDrivers host;
    host.adapter({.chip = "Q5", .location = "03:00.4"});
    const auto attached = host.attach();
    CardList* list = nullptr;
    ASSERT_EQ(InitAndFillInfo_Kxcard(&list, 0), 0U);
    host.file("/proc/modules", "");
    EXPECT_EQ(
        test::printed([&] { EXPECT_EQ(FillInfo_Kxcard(&list, 0), 62U); }),
        "FillInfo_Kxcard: No zfab3 or zfab4 Driver loaded\n");
    Close_Kxcard(list);
}

TEST(Fill, WritesAddressesOnlyWhenAskedFor) {
    HostWithDrivers host;
    host.adapter(
        {.chip = "Q5",
         .location = "03:00.4",
         .ports = {{.name = "eth2", .mac = "00:07:43:00:00:01", .ipv4 = {"192.0.2.1/24"}}}});
    const auto attached = host.attach();
    CardList* list = nullptr;
    ASSERT_EQ(InitAndFillInfo_Kxcard(&list, 1), 0U);
    EXPECT_EQ(text(list->cards->ports->mac), "");
    ASSERT_EQ(FillInfo_Kxcard(&list, KX_FILL_ADDRESSES), 0U);
    EXPECT_EQ(text(list->cards->ports->mac), "00:07:43:00:00:01");
    EXPECT_EQ(text(list->cards->ports->ipv4_address), "192.0.2.1");
    Close_Kxcard(list);
}

TEST(Fill, UnreadableAddressesAreNoFailure) {
    HostWithDrivers host;
    host.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
    const auto attached = host.attach();
    host.fail({.call = "getifaddrs", .error = ENOBUFS});
    CardList* list = nullptr;
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list, KX_FILL_ADDRESSES), 0U);
    Close_Kxcard(list);
}

TEST(Fill, ReadsTheModuleListAndTheOffloadListOnce) {
    HostWithDrivers host;
    for (const char* location : {"05:00.0", "06:00.0", "07:00.0"}) {
        host.adapter({.chip = "Q3", .location = location});
    }
    host.file("/proc/net/zfab3/devices", "Device\n");
    const auto attached = host.attach();
    CardList* list = nullptr;
    const auto calls = host.count([&] { InitAndFillInfo_Kxcard(&list, 0); });
    EXPECT_EQ(calls.on("open", "/proc/modules"), 0U) << "the driver's directory is there";
    EXPECT_EQ(calls.on("open", "/proc/net/zfab3/devices"), 1U);
    Close_Kxcard(list);
}

TEST(Fill, TakesOneReadingOfTheModuleListWithoutTheDriversDirectory) {
    kxsim::Host host;
    host.module({.name = "zfab4", .loaded = true});
    host.adapter({.chip = "Q5", .location = "03:00.4"});
    const auto attached = host.attach();
    CardList* list = nullptr;
    const auto calls = host.count([&] { InitAndFillInfo_Kxcard(&list, 0); });
    EXPECT_EQ(calls.on("open", "/proc/modules"), 1U);
    Close_Kxcard(list);
}

}  // namespace
