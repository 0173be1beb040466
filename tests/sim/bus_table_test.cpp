// The table of adapters, and the list of virtual functions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <kxsim/host.hpp>
#include <memory>
#include <string>
#include <vector>

#include "support/output.hpp"

extern "C" {
#include <pci/pci.h>
}

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr unsigned kMaker = KESTRIX_PCI_VENDOR_ID;

class BusTable : public testing::Test {
protected:
    ~BusTable() override {
        g_adapter_count = 0;
        g_KestrixAdapters = nullptr;
        g_KestrixAdapterInfo = nullptr;
    }

    void function(const std::string& location, unsigned device_id, unsigned vendor_id = kMaker) {
        host_.pci_device(
            {.location = location,
             .vendor_id = vendor_id,
             .device_id = device_id,
             .bar0 = 0xFE000000});
    }

    uint8_t scan() {
        const auto attached = host_.attach();
        uint8_t count = 0;
        printed_ = test::printed([&] { count = scan_hbas(); });
        return count;
    }

    // Locations of the adapters in the table.
    static std::vector<std::string> table() {
        std::vector<std::string> locations;
        for (const pci_dev* const device : kestrix_hbas) {
            if (device != nullptr) {
                char text[16];
                std::snprintf(
                    text, sizeof text, "%02x:%02x.%x", device->bus, device->dev, device->func);
                locations.emplace_back(text);
            }
        }
        return locations;
    }

    struct VirtualFunctions {
        uint8_t status;
        uint32_t count = 0xEEEEEEEE;
        std::vector<std::array<int, 3>> records;
    };

    // The virtual functions, without the first records, which the scan does not write.
    VirtualFunctions scan_virtual(uint32_t skipped = 0) {
        const auto attached = host_.attach();
        VirtualFunctions found;
        uint8_t untouched = 0;
        uint8_t* records = &untouched;
        printed_ = test::printed([&] { found.status = scan_vfhbas(&found.count, &records); });
        if (records != &untouched) {
            const std::unique_ptr<uint8_t, decltype(&std::free)> owner(records, &std::free);
            for (uint32_t i = skipped; i < found.count; ++i) {
                const uint8_t* const record = records + std::size_t{i} * KX_VF_RECORD_SIZE;
                found.records.push_back({record[0], record[1], record[2]});
            }
            has_records_ = records != nullptr;
        }
        return found;
    }

    kxsim::Host host_;
    std::string printed_;
    bool has_records_ = false;
};

// --- Physical functions ---

TEST_F(BusTable, Q3AdaptersStandOnFunctionZero) {
    function("01:00.0", 1);
    function("01:00.1", 0x31);
    function("02:00.0", 0x31);
    function("03:00.0", 999);
    function("03:00.4", 999);
    EXPECT_EQ(scan(), 3);
    EXPECT_THAT(table(), ElementsAre("01:00.0", "02:00.0", "03:00.0"));
    EXPECT_EQ(printed_, "");
}

TEST_F(BusTable, AllOtherAdaptersStandOnFunctionFour) {
    function("01:00.4", 0x4410);
    function("02:00.0", 0x4410);
    function("03:00.4", 1000);
    function("04:00.0", 1000);
    function("05:00.4", 0);
    function("06:00.0", 0);
    function("07:00.4", 0x5410);
    function("08:00.5", 0x5410);
    EXPECT_EQ(scan(), 4);
    EXPECT_THAT(table(), ElementsAre("01:00.4", "03:00.4", "05:00.4", "07:00.4"));
}

TEST_F(BusTable, VirtualFunctionsAndOneIdAreNotListed) {
    function("01:00.4", 0x4810);
    function("02:00.4", 0x0800);
    function("03:00.4", 0xA007);
    function("04:00.4", 0xB007);
    function("05:00.4", 0xFFFF);
    EXPECT_EQ(scan(), 1);
    EXPECT_THAT(table(), ElementsAre("04:00.4"));
}

TEST_F(BusTable, OtherMakersAreNotListed) {
    function("01:00.4", 0x4410, kMaker + 1);
    function("02:00.0", 0x31, 0x8086);
    EXPECT_EQ(scan(), 0);
    EXPECT_THAT(table(), IsEmpty());
    EXPECT_EQ(printed_, "");
}

TEST_F(BusTable, EntriesAreReadyForTheirUsers) {
    function("0001:81:02.4", 0x4410);
    ASSERT_EQ(scan(), 1);
    const pci_dev* const device = kestrix_hbas[0];
    EXPECT_EQ(device->domain_16, 1);
    EXPECT_EQ(device->vendor_id, kMaker);
    EXPECT_EQ(device->device_id, 0x4410);
    EXPECT_EQ(device->base_addr[0] & 0xFFFFFFF0, 0xFE000000U);
}

TEST_F(BusTable, TwentyFirstAdapterEndsTheScan) {
    std::vector<std::string> first;
    for (unsigned bus = 1; bus <= 25; ++bus) {
        char location[16];
        std::snprintf(location, sizeof location, "%02x:00.4", bus);
        function(location, 0x5410);
        if (bus <= 20) {
            first.emplace_back(location);
        }
    }
    EXPECT_EQ(scan(), 20);
    EXPECT_THAT(table(), ElementsAreArray(first));
}

TEST_F(BusTable, EmptyBusIsToldOf) {
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(printed_, "NO PCI devices\n");
    EXPECT_NE(pci_access_p, nullptr);
}

TEST_F(BusTable, BusThatCannotBeReadIsEmpty) {
    function("01:00.4", 0x4410);
    host_.remove("/sys/bus/pci/devices");
    EXPECT_EQ(scan(), 0);
    EXPECT_EQ(printed_, "NO PCI devices\n");
}

TEST_F(BusTable, NextScanForgetsTheOneBefore) {
    function("01:00.4", 0x4410);
    function("02:00.4", 0x4410);
    EXPECT_EQ(scan(), 2);
    host_.remove("/sys/bus/pci/devices/0000:01:00.4");
    EXPECT_EQ(scan(), 1);
    EXPECT_THAT(table(), ElementsAre("02:00.4"));
}

TEST_F(BusTable, ScanLeavesTheCountToItsCaller) {
    function("01:00.4", 0x4410);
    g_adapter_count = 7;
    EXPECT_EQ(scan(), 1);
    EXPECT_EQ(g_adapter_count, 7);
}

TEST_F(BusTable, ChipRevisionIsTheFirstDigitOfTheId) {
    const std::pair<unsigned, int> rows[] = {{0x31, 3},   {0x3FF, 3}, {0x4410, 4}, {0x4000, 4},
                                             {0x5410, 5}, {0x5FF, 3}, {0x6401, 6}, {0xF401, 15},
                                             {0x3401, 3}, {0x0401, 3}};
    unsigned bus = 0;
    for (const auto& [id, revision] : rows) {
        char location[16];
        std::snprintf(location, sizeof location, "%02x:00.%c", ++bus, id < 1000 ? '0' : '4');
        function(location, id);
    }
    // 0x5FF and 0x0401 are above 999 with their function 4; 0x3FF is 1023.
    const uint8_t count = scan();
    ASSERT_EQ(count, std::size(rows));
    for (uint8_t i = 0; i < count; ++i) {
        EXPECT_EQ(get_chip_revision(i), rows[i].second) << std::hex << rows[i].first;
    }
    for (const int index : {10, 19, 20, 255}) {
        EXPECT_EQ(get_chip_revision(static_cast<uint8_t>(index)), KX_ADAPTER_INVALID);
    }
}

// --- Virtual functions ---

TEST_F(BusTable, VirtualFunctionsAreAllButQ3IdsOnOtherSlotsThanZero) {
    function("01:00.4", 0x4410);
    function("01:01.0", 0x4810);
    function("01:01.1", 0x4410);
    function("01:02.7", 0);
    function("02:03.0", 0x31);
    function("02:04.0", 0x5810, kMaker + 1);
    function("81:1f.3", 1000);
    const VirtualFunctions found = scan_virtual();
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.count, 4U);
    EXPECT_THAT(
        found.records, ElementsAre(
                           std::array{1, 1, 0}, std::array{1, 1, 1}, std::array{1, 2, 7},
                           std::array{0x81, 0x1F, 3}));
    EXPECT_EQ(printed_, "");
}

TEST_F(BusTable, VirtualFunctionsAreCountedFromTheOldAdapterCount) {
    function("01:00.4", 0x4410);
    function("01:01.0", 0x4810);
    ASSERT_EQ(scan(), 1);
    g_adapter_count = 3;
    AdapterRecord adapter{};
    AdapterInfoRecord info{};
    g_KestrixAdapters = &adapter;
    g_KestrixAdapterInfo = &info;
    const VirtualFunctions found = scan_virtual(3);
    EXPECT_EQ(found.count, 4U);
    EXPECT_THAT(found.records, ElementsAre(std::array{1, 1, 0}));
    EXPECT_EQ(g_adapter_count, 0);
    EXPECT_EQ(g_KestrixAdapters, nullptr);
    EXPECT_EQ(g_KestrixAdapterInfo, nullptr);
    EXPECT_THAT(table(), IsEmpty());
}

TEST_F(BusTable, HostWithoutVirtualFunctionsHasNoArray) {
    function("01:00.4", 0x4410);
    g_adapter_count = 5;
    const VirtualFunctions found = scan_virtual();
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.count, 0U);
    EXPECT_FALSE(has_records_);
}

TEST_F(BusTable, VirtualFunctionsEndAtSixtyFour) {
    for (unsigned i = 0; i < 100; ++i) {
        char location[16];
        std::snprintf(location, sizeof location, "01:%02x.%x", 1 + i / 8, i % 8);
        function(location, 0x4810);
    }
    EXPECT_EQ(scan_virtual().count, 64U);
    g_adapter_count = 60;
    const VirtualFunctions found = scan_virtual(60);
    EXPECT_EQ(found.count, 64U);
    EXPECT_THAT(
        found.records,
        ElementsAre(
            std::array{1, 1, 0}, std::array{1, 1, 1}, std::array{1, 1, 2}, std::array{1, 1, 3}));
}

TEST_F(BusTable, EmptyBusFailsTheVirtualFunctionScan) {
    g_adapter_count = 2;
    const VirtualFunctions found = scan_virtual();
    EXPECT_EQ(found.status, 1);
    EXPECT_EQ(found.count, 0xEEEEEEEE);
    EXPECT_EQ(printed_, "NO PCI devices\n");
    EXPECT_EQ(g_adapter_count, 0);
}

TEST_F(BusTable, VirtualFunctionScanRefusesNull) {
    uint32_t count = 0;
    uint8_t* records = nullptr;
    EXPECT_EQ(scan_vfhbas(nullptr, &records), 1);
    EXPECT_EQ(scan_vfhbas(&count, nullptr), 1);
}

TEST_F(BusTable, VirtualFunctionScanTellsThatMemoryRanOut) {
    function("01:01.0", 0x4810);
    function("01:01.1", 0x4810);
    const auto attached = host_.attach();
    host_.fail({.call = "realloc", .nth = 2, .error = ENOMEM, .from = "libkxlinhw"});
    uint32_t count = 7;
    uint8_t untouched = 0;
    uint8_t* records = &untouched;
    uint8_t status = 0;
    host_.count([&] { status = scan_vfhbas(&count, &records); });
    EXPECT_EQ(status, 99);
    EXPECT_EQ(count, 7U);
    EXPECT_EQ(records, &untouched);
}

// libpci leaves the directory open that it was reading; the leak checker does not report it.
class LibpciLeftInItsWalk {
public:
#if defined(__SANITIZE_ADDRESS__)
    LibpciLeftInItsWalk() { __lsan_disable(); }
    ~LibpciLeftInItsWalk() { __lsan_enable(); }
#else
    LibpciLeftInItsWalk() {}
#endif
    LibpciLeftInItsWalk(const LibpciLeftInItsWalk&) = delete;
    LibpciLeftInItsWalk& operator=(const LibpciLeftInItsWalk&) = delete;
};

TEST_F(BusTable, BusThatCannotBeReadToItsEndIsEmpty) {
    function("01:00.0", 0x35);
    EXPECT_EQ(scan(), 1);
    host_.directory("/sys/bus/pci/devices/no-address");
    host_.order("/sys/bus/pci/devices", {"0000:01:00.0", "no-address"});
    const LibpciLeftInItsWalk left;
    EXPECT_EQ(scan(), 0) << "what was found before the mistake is no bus to rely on";
    EXPECT_THAT(table(), IsEmpty());
}

}  // namespace
