// Functions called over and over: memory, descriptors and mappings do not grow, but for what stays
// by contract, which is exactly that.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <malloc.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "trust/entry_points.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using test::EntryPoint;

constexpr int kCalls = 10000;
constexpr int kFewest = 100;  // however long they take

// For the others; longer with KX_THOROUGH set (tests/trust/faults.sh).
std::chrono::milliseconds patience() {
    return std::chrono::milliseconds(std::getenv("KX_THOROUGH") != nullptr ? 2000 : 50);
}

// Bytes that the process has allocated: the sanitizer's count where its allocator stands in front.
std::size_t allocated_bytes() {
    using Count = std::size_t (*)();
    static const auto count =
        reinterpret_cast<Count>(dlsym(RTLD_DEFAULT, "__sanitizer_get_current_allocated_bytes"));
    if (count != nullptr) {
        return count();
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Calls until they are many or patience ends; how many there were.
int call_often(void (*call)()) {
    const auto end = Clock::now() + patience();
    int calls = 0;
    const test::Silence silence;
    while (calls < kCalls && (calls < kFewest || Clock::now() < end)) {
        call();
        ++calls;
    }
    return calls;
}

std::ptrdiff_t difference(std::size_t after, std::size_t before) {
    return static_cast<std::ptrdiff_t>(after) - static_cast<std::ptrdiff_t>(before);
}

class ReleasedTest : public testing::TestWithParam<EntryPoint> {
protected:
    static void TearDownTestSuite() {
        std::printf("%d calls, %zu functions\n", total_, test::entry_points().size());
    }

    // What a round of calls left behind.
    struct Growth {
        std::ptrdiff_t bytes;
        std::ptrdiff_t descriptors;
        std::ptrdiff_t mappings;
        int calls;

        // A leak with every call is at least this: no block is smaller.
        std::ptrdiff_t leaking() const { return std::ptrdiff_t{16} * calls; }
    };

    Growth grown(const EntryPoint& entry) {
        const test::Held before = test::held(lab_.host());
        const std::size_t bytes = allocated_bytes();
        const int calls = call_often(entry.call);
        test::Lab::prepare();  // libpci keeps the last function's file open until then
        const std::size_t bytes_after = allocated_bytes();
        const test::Held after = test::held(lab_.host());
        return {
            .bytes = difference(bytes_after, bytes),
            .descriptors = difference(after.descriptors, before.descriptors),
            .mappings = difference(after.mappings, before.mappings),
            .calls = calls};
    }

    static inline int total_ = 0;
    test::Lab lab_;
};

TEST_P(ReleasedTest, NothingGrows) {
    const EntryPoint& entry = GetParam();
    if (entry.stays == "the inventory that it builds") {
        SUCCEED() << "measured by WhatStaysByContract";
        return;
    }
    grown(entry);  // what is made once stays, as it should
    Growth growth = grown(entry);
    for (int again = 0; again < 2 && growth.bytes >= growth.leaking(); ++again) {
        growth = grown(entry);  // a buffer that found its size late; what leaks grows every time
    }
    EXPECT_EQ(growth.descriptors, 0);
    if (entry.stays.empty()) {
        EXPECT_EQ(growth.mappings, 0);
    }
    EXPECT_LT(growth.bytes, growth.leaking()) << growth.calls << " calls";
    total_ += growth.calls;
}

INSTANTIATE_TEST_SUITE_P(
    Flat, ReleasedTest, testing::ValuesIn(test::entry_points().begin(), test::entry_points().end()),
    [](const auto& entry) { return std::string(entry.param.name); });

// --- What stays by contract ---

TEST(WhatStaysByContract, FindingAnAddressKeepsItsInventoryAndNothingElse) {
    test::Lab lab;
    char location[] = "04:00.4";
    char mac[32] = {};
    const test::Silence silence;
    findMac(location, mac);
    CardList* warm = nullptr;
    InitAndFillInfo_Kxcard(&warm, 0);
    Close_Kxcard(warm);

    const std::size_t start = allocated_bytes();
    CardList* list = nullptr;
    InitAndFillInfo_Kxcard(&list, KX_FILL_ADDRESSES);
    const std::size_t inventory = allocated_bytes() - start;
    Close_Kxcard(list);

    const std::size_t before = allocated_bytes();
    constexpr std::size_t kTimes = 20;
    for (std::size_t k = 0; k < kTimes; ++k) {
        findMac(location, mac);
    }
    const std::size_t each = (allocated_bytes() - before) / kTimes;
    EXPECT_GT(each, 0U);
    EXPECT_LE(each, 2 * inventory) << "one inventory, and one filled with addresses at most";
}

TEST(WhatStaysByContract, AConnectionThatWasClosedKeepsNoDescriptor) {
    test::Lab lab;
    const test::Silence silence;
    uint8_t q4 = 0;
    while (get_chip_revision(q4) != 4) {
        ++q4;
    }
    const test::Held before = test::held(lab.host());
    constexpr std::size_t kTimes = 20;
    for (std::size_t k = 0; k < kTimes; ++k) {
        ASSERT_EQ(connect_to_hba_Q4(q4), 0);
        disconnect_from_hba(q4);
    }
    EXPECT_EQ(test::held(lab.host()).descriptors, before.descriptors);
}

TEST(WhatStaysByContract, ASecondConnectionLeavesTheFirstDescriptorOpen) {
    test::Lab lab;
    const test::Silence silence;
    uint8_t q4 = 0;
    while (get_chip_revision(q4) != 4) {
        ++q4;
    }
    const test::Held before = test::held(lab.host());
    ASSERT_EQ(connect_to_hba_Q4(q4), 0);
    ASSERT_EQ(connect_to_hba_Q4(q4), 0);
    disconnect_from_hba(q4);
    EXPECT_EQ(test::held(lab.host()).descriptors, before.descriptors + 1);
}

TEST(WhatStaysByContract, ManagementBuffersReplacedAreTheCallersToFree) {
    ASSERT_EQ(InitMXBuffer(), 0U);
    char* const first = g_MXdataBuffer;
    ASSERT_EQ(InitMXBuffer(), 0U);
    EXPECT_NE(g_MXdataBuffer, first) << "the first block is still there";
    std::free(first);
    ReleaseMXBuffer();
    g_MXdataBuffer = nullptr;
}

}  // namespace
