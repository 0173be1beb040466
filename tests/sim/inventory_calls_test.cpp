// The queries call exported functions in a fixed order, and an agent may replace each of these
// functions. Also: the order in which the records of an inventory are freed.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/iwarp.h>
#include <kxlinhw/kxlinhw.h>

#include <array>
#include <cstdlib>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"

namespace {

using testing::ElementsAre;

struct Agent {
    std::vector<std::string> calls;
    std::optional<uint32_t> fill_status;  // returned instead of the status of the fill
};

Agent& agent() {
    static Agent state;
    return state;
}

// Record a call, and call the library's function.
template <class Function, class... Arguments>
auto call(const char* name, Arguments... arguments) {
    agent().calls.emplace_back(name);
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name))(arguments...);
}

// The blocks that were freed while recording was on.
struct Freed {
    bool watched = false;
    std::size_t count = 0;
    std::array<const void*, 64> blocks{};
} freed;

}  // namespace

extern "C" {

KX_EXPORT uint32_t isZfab3Loaded(void) { return call<decltype(isZfab3Loaded)>("isZfab3Loaded"); }
KX_EXPORT uint32_t isZfab4Loaded(void) { return call<decltype(isZfab4Loaded)>("isZfab4Loaded"); }
KX_EXPORT uint32_t getDriverInfo(KxDriverEntryPtr* slot) {
    return call<decltype(getDriverInfo)>("getDriverInfo", slot);
}
KX_EXPORT void freelist(DriverEntry* first) { call<decltype(freelist)>("freelist", first); }
KX_EXPORT uint32_t InitAndFillInfo_Kxcard(CardList** list, uint32_t mask) {
    return call<decltype(InitAndFillInfo_Kxcard)>("InitAndFillInfo_Kxcard", list, mask);
}
KX_EXPORT uint32_t FillInfo_Kxcard(CardList** list, uint32_t mask) {
    const uint32_t status = call<decltype(FillInfo_Kxcard)>("FillInfo_Kxcard", list, mask);
    return agent().fill_status.value_or(status);
}
KX_EXPORT uint32_t Close_Kxcard(CardList* list) {
    return call<decltype(Close_Kxcard)>("Close_Kxcard", list);
}
KX_EXPORT uint32_t getAddress(const char* interface_name, PortInfo* port) {
    return call<decltype(getAddress)>("getAddress", interface_name, port);
}
KX_EXPORT uint32_t getPortParameters(const char* interface_name, PortInfo* port) {
    return call<decltype(getPortParameters)>("getPortParameters", interface_name, port);
}
KX_EXPORT uint32_t getTxRxStats(const char* interface_name, PortInfo* port) {
    return call<decltype(getTxRxStats)>("getTxRxStats", interface_name, port);
}
KX_EXPORT uint32_t getQ4CardStats(CardInfo* card) {
    return call<decltype(getQ4CardStats)>("getQ4CardStats", card);
}
KX_EXPORT uint32_t getDriverParams(CardParams* block, const char* module) {
    return call<decltype(getDriverParams)>("getDriverParams", block, module);
}
KX_EXPORT uint32_t getTOEparams(CardInfo* card) {
    return call<decltype(getTOEparams)>("getTOEparams", card);
}
KX_EXPORT uint32_t getTOEDeviceIndex(const char* interface_name, int* index) {
    return call<decltype(getTOEDeviceIndex)>("getTOEDeviceIndex", interface_name, index);
}
KX_EXPORT CardInfo* lookupCardInfo(CardList* list, const char* location) {
    return call<decltype(lookupCardInfo)>("lookupCardInfo", list, location);
}
KX_EXPORT PortInfo* lookupPortInCard(CardInfo* card, uint32_t instance) {
    return call<decltype(lookupPortInCard)>("lookupPortInCard", card, instance);
}
KX_EXPORT uint32_t ConstructBuffer(void* destination, uint32_t size, const void* first) {
    return call<decltype(ConstructBuffer)>("ConstructBuffer", destination, size, first);
}

// The real ones: of the sanitizer where there is one.
void __libc_free(void* block);
__attribute__((weak)) void __interceptor_free(void* block);

__attribute__((no_sanitize("address", "undefined"))) KX_EXPORT void free(void* block) {
    if (freed.watched && block != nullptr && freed.count < freed.blocks.size()) {
        freed.blocks[freed.count++] = block;
    }
    __interceptor_free != nullptr ? __interceptor_free(block) : __libc_free(block);
}

}  // extern "C"

namespace {

// A Q4 with one port, and its driver with a module file.
class InventoryCalls : public testing::Test {
protected:
    InventoryCalls() {
        agent() = {};
        host_.module({.name = "zfab4", .version = "1", .loaded = true});
        host_.adapter({.chip = "Q4", .location = "03:00.4", .ports = {{.name = "eth2"}}});
        attached_.emplace(host_.attach());
    }

    template <class Query>
    std::vector<std::string> calls_of(uint32_t expected, Query query) {
        std::vector<char> buffer(10000);
        uint32_t length = 0;
        test::told(
            [&] { test::printed([&] { EXPECT_EQ(query(buffer.data(), &length), expected); }); });
        return std::exchange(agent().calls, {});
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
};

TEST_F(InventoryCalls, OfTheCardQuery) {
    EXPECT_THAT(
        calls_of(0, GetCardInfo),
        ElementsAre(
            "InitAndFillInfo_Kxcard", "isZfab3Loaded", "isZfab4Loaded", "FillInfo_Kxcard",
            "isZfab3Loaded", "isZfab4Loaded", "getDriverParams", "getTOEparams",
            "getTOEDeviceIndex", "ConstructBuffer", "Close_Kxcard", "freelist"));
}

TEST_F(InventoryCalls, OfThePortQuery) {
    EXPECT_THAT(
        calls_of(
            0,
            [](void* buffer, uint32_t* length) { return GetPortInfo("03:00.4", buffer, length); }),
        ElementsAre(
            "InitAndFillInfo_Kxcard", "isZfab3Loaded", "isZfab4Loaded", "FillInfo_Kxcard",
            "isZfab3Loaded", "isZfab4Loaded", "getAddress", "getPortParameters", "lookupCardInfo",
            "ConstructBuffer", "Close_Kxcard", "freelist"));
}

TEST_F(InventoryCalls, OfThePortStatisticsQuery) {
    EXPECT_THAT(
        calls_of(
            64, [](void* buffer,
                   uint32_t* length) { return GetPortStat("03:00.4", 2, buffer, length); }),
        ElementsAre(
            "InitAndFillInfo_Kxcard", "isZfab3Loaded", "isZfab4Loaded", "FillInfo_Kxcard",
            "isZfab3Loaded", "isZfab4Loaded", "getTxRxStats", "lookupCardInfo", "lookupPortInCard",
            "Close_Kxcard", "freelist"));
}

TEST_F(InventoryCalls, OfTheCardStatisticsQuery) {
    EXPECT_THAT(
        calls_of(
            71,
            [](void* buffer, uint32_t* length) { return GetCardStats("03:00.4", buffer, length); }),
        ElementsAre(
            "InitAndFillInfo_Kxcard", "isZfab3Loaded", "isZfab4Loaded", "FillInfo_Kxcard",
            "isZfab3Loaded", "isZfab4Loaded", "getQ4CardStats", "lookupCardInfo", "Close_Kxcard",
            "freelist"));
}

TEST_F(InventoryCalls, OfTheDriverQueryFreeNothingThatIsNotThere) {
    EXPECT_THAT(
        calls_of(0, GetDriverDetails),
        ElementsAre(
            "getDriverInfo", "isZfab4Loaded", "ConstructBuffer", "Close_Kxcard", "freelist"));
}

TEST_F(InventoryCalls, OfASecondDriverInventoryFreeTheFirst) {
    DriverEntry* first = nullptr;
    ASSERT_EQ(getDriverInfo(&first), 0U);
    EXPECT_THAT(agent().calls, ElementsAre("getDriverInfo", "isZfab4Loaded"));
    agent().calls.clear();
    ASSERT_EQ(getDriverInfo(&first), 0U);
    EXPECT_THAT(agent().calls, ElementsAre("getDriverInfo", "freelist", "isZfab4Loaded"));
    freelist(first);
}

// Statuses of a build pass through one byte.
TEST_F(InventoryCalls, StatusOfAReplacedFillIsCutToAByte) {
    const std::pair<uint32_t, uint32_t> rows[] = {{66, 66}, {317, 61}, {0xFFFFFFFF, 255}};
    for (const auto& [given, passed] : rows) {
        agent().fill_status = given;
        CardList* list = reinterpret_cast<CardList*>(1);
        EXPECT_EQ(InitAndFillInfo_Kxcard(&list, 0), passed) << given;
        EXPECT_TRUE(list == nullptr) << given;
    }
    agent().fill_status = 256;
    CardList* list = nullptr;
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list, 0), 0U);
    ASSERT_TRUE(list != nullptr);
    Close_Kxcard(list);
}

// --- Freeing -------------------------------------------------------------------------------------

template <class Record>
Record* make() {
    return static_cast<Record*>(std::calloc(1, sizeof(Record)));
}

StatEntry* make_stats() {
    auto* const first = make<StatEntry>();
    first->next = make<StatEntry>();
    return first;
}

TEST(Closing, FreesEachRecordRightBehindWhatHangsInIt) {
    auto* const list = make<CardList>();
    std::vector<const void*> expected;
    const auto expect_stats = [&](const StatEntry* first) {
        expected.push_back(first);
        expected.push_back(first->next);
    };
    const auto make_card = [&](std::size_t ports) {
        auto* const card = make<CardInfo>();
        for (std::size_t k = 0; k < ports; ++k) {
            auto* const port = make<PortInfo>();
            port->stats = make_stats();
            port->next = card->ports;
            card->ports = port;
        }
        for (const PortInfo* port = card->ports; port != nullptr; port = port->next) {
            expect_stats(port->stats);
            expected.push_back(port);
        }
        card->stats = make_stats();
        expect_stats(card->stats);
        expected.push_back(card);
        return card;
    };
    list->cards = make_card(2);
    list->cards->next = make_card(1);
    list->drivers = make<DriverEntry>();
    expected.push_back(list->drivers);
    expected.push_back(list);

    freed = {.watched = true};
    Close_Kxcard(list);
    freed.watched = false;
    std::vector<const void*> blocks(freed.blocks.begin(), freed.blocks.begin() + freed.count);
    std::erase_if(blocks, [&](const void* block) {
        return std::find(expected.begin(), expected.end(), block) == expected.end();
    });  // freed by the test's own list of calls
    EXPECT_EQ(blocks, expected);
}

}  // namespace
