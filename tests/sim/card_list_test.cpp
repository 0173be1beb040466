// Which PCI functions become cards, and what their records hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <malloc.h>

#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/records.hpp"

namespace {

using testing::ElementsAre;

struct HostWithDrivers : kxsim::Host {
    HostWithDrivers() {
        module({.name = "zfab3", .loaded = true});
        module({.name = "zfab4", .loaded = true});
    }
};

kxsim::PciDevice function(const std::string& location, unsigned device_id) {
    return {.location = location, .vendor_id = KESTRIX_PCI_VENDOR_ID, .device_id = device_id};
}

// Locations and chip types of the cards that these functions make, as "03:00.4 Q5".
std::vector<std::string> cards_of(const std::vector<kxsim::PciDevice>& functions) {
    HostWithDrivers host;
    for (const kxsim::PciDevice& one : functions) {
        host.pci_device(one);
    }
    const auto attached = host.attach();
    return test::each(test::card_info().records, [](const CardInfo& card) {
        return test::text(card.pci_bus_location) + " " + test::text(card.chip_type);
    });
}

uint32_t status_of(const std::vector<kxsim::PciDevice>& functions) {
    HostWithDrivers host;
    for (const kxsim::PciDevice& one : functions) {
        host.pci_device(one);
    }
    const auto attached = host.attach();
    return test::card_info().status;
}

TEST(Cards, OfOtherMakersAreNotListed) {
    EXPECT_THAT(
        cards_of(
            {{.location = "01:00.0", .vendor_id = 0x8086, .device_id = 0x5410},
             function("03:00.4", 0x5410)}),
        ElementsAre("03:00.4 Q5"));
}

TEST(Cards, OfAGenerationAreToldByTheFirstDigitOfTheDeviceId) {
    EXPECT_THAT(
        cards_of(
            {function("03:00.4", 0x5410), function("04:00.4", 0x4410), function("05:00.0", 0x0030),
             function("06:00.4", 0x0044), function("07:00.4", 0x0005)}),
        ElementsAre("03:00.4 Q5", "04:00.4 Q4", "05:00.0 Q3", "06:00.4 Q4", "07:00.4 Q5"));
}

TEST(Cards, OfQ4AndQ5AreTheirFunctionFourOnly) {
    EXPECT_THAT(
        cards_of(
            {function("03:00.0", 0x4410), function("03:00.3", 0x4410), function("03:00.4", 0x4410),
             function("03:00.5", 0x4410), function("04:00.0", 0x4410),
             function("04:00.4", 0x4410)}),
        ElementsAre("03:00.4 Q4", "04:00.4 Q4"));
}

TEST(Cards, WithOtherIdsAreQ3OnAnyFunctionWhateverElseTheIdHolds) {
    EXPECT_THAT(
        cards_of(
            {function("03:00.1", 0x2800), function("04:00.4", 0xA007), function("05:00.2", 0xB007),
             function("06:00.0", 0x6401), function("07:00.0", 0x0831)}),
        ElementsAre("03:00.1 Q3", "04:00.4 Q3", "05:00.2 Q3", "06:00.0 Q3", "07:00.0 Q3"));
}

TEST(Cards, WithDeviceIdZeroAreQ3OnFunctionFourOnly) {
    EXPECT_THAT(
        cards_of({function("03:00.0", 0), function("04:00.4", 0)}), ElementsAre("04:00.4 Q3"));
}

TEST(Cards, CountOnceADevice) {
    EXPECT_THAT(
        cards_of(
            {function("03:00.0", 0x0030), function("03:00.1", 0x0030), function("03:01.0", 0x0030),
             function("04:01.0", 0x0030)}),
        ElementsAre("03:00.0 Q3", "03:01.0 Q3", "04:01.0 Q3"));
}

TEST(Cards, SkippedFunctionsDoNotCountAsTheDeviceBefore) {
    EXPECT_THAT(
        cards_of(
            {function("03:00.0", 0x4410), function("03:00.4", 0x4410), function("03:01.0", 0x4810),
             function("03:00.5", 0x0030)}),
        ElementsAre("03:00.4 Q4"));
}

TEST(Cards, LocationIsBusDeviceAndFunctionInHexadecimal) {
    EXPECT_THAT(
        cards_of({function("0a:1f.4", 0x4410), function("ff:00.4", 0x5410)}),
        ElementsAre("0a:1f.4 Q4", "ff:00.4 Q5"));
}

TEST(Cards, VirtualFunctionsBesideAPhysicalOneAreNotListed) {
    EXPECT_THAT(
        cards_of(
            {function("02:01.0", 0x4810), function("03:00.4", 0x4410), function("03:01.0", 0x4810),
             function("03:01.4", 0x5810)}),
        ElementsAre("03:00.4 Q4"));
}

TEST(Cards, GuestThatSeesVirtualFunctionsOnlyHasNoCard) {
    EXPECT_EQ(status_of({function("03:01.0", 0x4810), function("03:01.1", 0x5810)}), 60U);
}

TEST(Cards, EmptyBusHasNoCard) { EXPECT_EQ(status_of({}), 60U); }

TEST(Cards, UnreadableBusHasNoCard) {
    HostWithDrivers host;
    host.pci_device(function("03:00.4", 0x5410));
    host.remove("/sys/bus/pci");
    const auto attached = host.attach();
    CardList* list = reinterpret_cast<CardList*>(1);
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list, 0), 60U);
    EXPECT_EQ(list, nullptr);
}

TEST(Cards, CarryIdsClassAndInterruptLine) {
    HostWithDrivers host;
    host.pci_device(
        {.location = "05:00.0",
         .vendor_id = KESTRIX_PCI_VENDOR_ID,
         .device_id = 0x31,
         .pci_class = 0x028000,
         .irq = 43});
    const auto attached = host.attach();
    const auto cards = test::card_info().records;
    ASSERT_EQ(cards.size(), 1U);
    EXPECT_EQ(+cards[0].vendor_id, uint32_t{KESTRIX_PCI_VENDOR_ID});
    EXPECT_EQ(+cards[0].device_id, 0x31U);
    EXPECT_EQ(+cards[0].pci_class, 0x0280U);
    EXPECT_EQ(+cards[0].irq, 43U);
    EXPECT_EQ(+cards[0].port_count, 0);
}

TEST(Cards, ReservedBytesAreZero) {
    HostWithDrivers host;
    host.pci_device(function("05:00.0", 0x30));
    const auto attached = host.attach();
    const auto cards = test::card_info().records;
    ASSERT_EQ(cards.size(), 1U);
    EXPECT_THAT(cards[0].reserved127, testing::Each(0));
    EXPECT_THAT(cards[0].reserved178, testing::Each(0));
}

TEST(Cards, OfQ3CarryTheModelOfTheirDeviceId) {
    std::vector<std::string> models;
    for (const unsigned id :
         {0x20, 0x21, 0x24, 0x22, 0x26, 0x25, 0x23, 0x30, 0x31, 0x32, 0x33, 0x36, 0x37}) {
        HostWithDrivers host;
        host.pci_device(function("05:00.0", id));
        const auto attached = host.attach();
        models.push_back(test::text(test::card_info().records.at(0).model));
        EXPECT_THAT(models.back(), testing::StartsWith("Kestrix Q3")) << id;
        EXPECT_LE(models.back().size(), 63U) << id;
    }
    std::sort(models.begin(), models.end());
    EXPECT_EQ(std::unique(models.begin(), models.end()), models.end()) << "a model stands twice";
}

TEST(Cards, WithoutARowInTheModelTableHaveNoModel) {
    for (const unsigned id : {0x27, 0x38, 0x4410, 0x5410, 0x0}) {
        HostWithDrivers host;
        host.pci_device(function("05:00.4", id));
        const auto attached = host.attach();
        EXPECT_EQ(test::text(test::card_info().records.at(0).model), "") << id;
    }
}

TEST(Cards, StandInTheBusOrderOfLibpci) {
    const auto cards = cards_of(
        {function("05:00.0", 0x30), function("04:00.4", 0x4410), function("03:00.4", 0x5410)});
    EXPECT_THAT(cards, testing::SizeIs(3));
}

TEST(Cards, CountByteStopsAtTwoHundredAndFiftyFive) {
    HostWithDrivers host;
    for (int bus = 1; bus <= 10; ++bus) {
        for (int device = 0; device < 26; ++device) {
            char location[16];
            std::snprintf(location, sizeof location, "%02x:%02x.4", bus, device);
            host.pci_device(function(location, 0x4410));
        }
    }
    const auto attached = host.attach();
    CardList* list = nullptr;
    ASSERT_EQ(InitAndFillInfo_Kxcard(&list, 0), 0U);
    EXPECT_EQ(list->card_count, 255);
    Close_Kxcard(list);
}

// --- The list's life -------------------------------------------------------------------------

TEST(CardList, WithoutAnEthernetDriverIsNotBuiltAndThePointerStays) {
    kxsim::Host host;
    host.pci_device(function("03:00.4", 0x5410));
    host.module({.name = "ext4", .loaded = true});
    const auto attached = host.attach();
    auto* const before = reinterpret_cast<CardList*>(1);
    CardList* list = before;
    EXPECT_EQ(
        test::printed([&] { EXPECT_EQ(InitAndFillInfo_Kxcard(&list, 0), 62U); }),
        "InitAndFillInfo_Kxcard: No zfab3 or zfab4 Driver loaded\n");
    EXPECT_EQ(list, before);
}

TEST(CardList, NeedsOneOfTheTwoEthernetDrivers) {
    for (const char* driver : {"zfab3", "zfab4"}) {
        kxsim::Host host;
        host.pci_device(function("03:00.4", 0x5410));
        host.module({.name = driver, .loaded = true});
        const auto attached = host.attach();
        EXPECT_EQ(test::card_info().status, 0U) << driver;
    }
}

TEST(CardList, UnreadableModuleListCountsAsLoaded) {
    kxsim::Host host;
    host.pci_device(function("03:00.4", 0x5410));
    host.remove("/proc/modules");
    const auto attached = host.attach();
    EXPECT_EQ(test::card_info().status, 0U);
}

TEST(CardList, UnreadableInterfaceDirectoryIsNoticedBeforeAnEmptyBus) {
    HostWithDrivers host;
    host.remove("/sys/class/net");
    const auto attached = host.attach();
    CardList* list = reinterpret_cast<CardList*>(1);
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list, 0), 1U);
    EXPECT_EQ(list, nullptr);
}

TEST(CardList, EveryRecordMayLackMemory) {
    HostWithDrivers host;
    host.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
    host.pci_device(function("05:00.0", 0x30));
    const auto attached = host.attach();
    const unsigned failures = kxsim::sweep(
        host, {.call = "calloc", .error = ENOMEM, .from = "libkxlinhw"}, [](unsigned nth) {
            CardList* list = reinterpret_cast<CardList*>(1);
            const uint32_t status = InitAndFillInfo_Kxcard(&list, 0);
            if (nth <= 4) {
                EXPECT_EQ(status, 66U) << nth;
                EXPECT_EQ(list, nullptr) << nth;
            } else {
                EXPECT_EQ(status, 0U) << nth;
                Close_Kxcard(list);
            }
        });
    EXPECT_EQ(failures, 4U) << "the list, two cards, a port";
}

TEST(CardList, NoShortageOfMemoryLeavesTheLibraryAsAnException) {
    HostWithDrivers host;
    host.adapter(
        {.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2", .ipv4 = {"192.0.2.1"}}}});
    const auto attached = host.attach();
    const unsigned failures = kxsim::sweep(
        host, {.call = "malloc", .error = ENOMEM, .from = "libstdc++"}, [](unsigned nth) {
            CardList* list = nullptr;
            const uint32_t status = InitAndFillInfo_Kxcard(&list, KX_FILL_ADDRESSES);
            EXPECT_EQ(status == 0, list != nullptr) << nth;
            Close_Kxcard(list);
        });
    EXPECT_GT(failures, 4U);
}

// A sanitized program has no such count; its leaks are found when it ends.
TEST(CardList, ClosingGivesBackEveryRecord) {
    constexpr std::size_t kTimes = 50;
    HostWithDrivers host;
    host.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
    host.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth4"}}});
    const auto attached = host.attach();
    const auto open_and_close = [] {
        CardList* list = nullptr;
        EXPECT_EQ(InitAndFillInfo_Kxcard(&list, KX_FILL_PORT_STATS), 0U);
        Close_Kxcard(list);
    };
    open_and_close();
    const std::size_t before = mallinfo2().uordblks;
    for (std::size_t k = 0; k < kTimes; ++k) {
        open_and_close();
    }
    EXPECT_LT(mallinfo2().uordblks, before + kTimes * sizeof(CardInfo));
}

TEST(CardList, ClosingNothingIsFine) { EXPECT_EQ(Close_Kxcard(nullptr), 0U); }

TEST(CardList, NullPointersAreRefused) {
    EXPECT_EQ(InitAndFillInfo_Kxcard(nullptr, 0), 317U);
    EXPECT_EQ(FillInfo_Kxcard(nullptr, 0), 317U);
    CardList* none = nullptr;
    EXPECT_EQ(FillInfo_Kxcard(&none, 0), 317U);
}

}  // namespace
