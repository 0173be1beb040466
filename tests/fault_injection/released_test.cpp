// Functions called again and again: memory, descriptors and mappings do not grow, except for what
// stays by contract, which is exactly that.
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <malloc.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fault_injection/entry_points.hpp"

namespace {

struct Unmapped {
    unsigned at_zero = 0;
    unsigned elsewhere = 0;
} unmapped;

}  // namespace

// In front of the C library's.
extern "C" KX_EXPORT int munmap(void* place, size_t size) noexcept {
    ++(place == nullptr ? unmapped.at_zero : unmapped.elsewhere);
    return static_cast<int>(syscall(SYS_munmap, place, size));
}

namespace {

using Clock = std::chrono::steady_clock;
using test::EntryPoint;

constexpr int kCalls = test::kSanitized ? 2 : 10000;
constexpr int kFewest = test::kSanitized ? 2 : 30;  // however long they take

// For the others; longer with KX_THOROUGH set (tests/fault_injection/faults.sh).
std::chrono::milliseconds patience() {
    return std::chrono::milliseconds(std::getenv("KX_THOROUGH") != nullptr ? 30000 : 50);
}

// Bytes that the process has allocated.
std::size_t allocated_bytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Calls the function many times or until the time is over; returns the number of calls.
int call_often(void (*call)(), std::chrono::milliseconds patience) {
    const auto end = Clock::now() + patience;
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

    Growth grown(const EntryPoint& entry, std::chrono::milliseconds patience) {
        const test::Held before = test::held(lab_.host());
        const std::size_t bytes = allocated_bytes();
        const int calls = call_often(entry.call, patience);
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
    grown(entry, {});  // memory that is allocated once stays by design
    Growth growth = grown(entry, patience());
    for (int again = 0; again < 2 && growth.bytes >= growth.leaking(); ++again) {
        growth = grown(
            entry, patience());  // a buffer that found its size late; what leaks grows every time
    }
    EXPECT_EQ(growth.descriptors, 0);
    if (entry.stays.empty()) {
        EXPECT_EQ(growth.mappings, 0);
    }
    if (!test::kSanitized) {
        EXPECT_LT(growth.bytes, growth.leaking()) << growth.calls << " calls";
    }
    total_ += growth.calls;
}

INSTANTIATE_TEST_SUITE_P(
    Flat, ReleasedTest, testing::ValuesIn(test::entry_points().begin(), test::entry_points().end()),
    [](const auto& entry) { return std::string(entry.param.name); });

// --- What stays by contract ---

uint8_t first_q4() {
    uint8_t adapter = 0;
    while (get_chip_revision(adapter) != 4) {
        ++adapter;
    }
    return adapter;
}

// Bytes that each of several calls leaves allocated.
std::size_t kept_by(void (*call)()) {
    constexpr std::size_t kTimes = 200;
    const test::Silence silence;
    call();  // what is made once stays
    const std::size_t before = allocated_bytes();
    for (std::size_t k = 0; k < kTimes; ++k) {
        call();
    }
    return (allocated_bytes() - before) / kTimes;
}

TEST(WhatStaysByContract, FindingAnAddressKeepsItsInventoryAndNothingElse) {
    if (test::kSanitized) {
        GTEST_SKIP() << "a sanitizer's allocator cannot be asked how much is allocated";
    }
    const test::Lab lab;
    const std::size_t kept = kept_by([] {
        char mac[32] = {};
        findMac("04:00.4", mac);
    });
    constexpr uint32_t kEveryGroup = 254;
    const std::size_t inventory = kept_by([] {
        CardList* list = nullptr;
        InitAndFillInfo_Kxcard(&list, 0);
        FillInfo_Kxcard(&list, kEveryGroup);
    });
    EXPECT_GT(inventory, 0U);
    EXPECT_NEAR(static_cast<double>(kept), static_cast<double>(inventory), 31)
        << "no block of the allocator is smaller than 32 bytes";
}

// --- The register window ---

// The library unmaps address 0, where nothing is mapped, so agents keep the window.
TEST(WhatStaysByContract, EachConnectionKeepsItsMappingAndNothingElse) {
    test::Lab lab;
    const test::Silence silence;
    const uint8_t q4 = first_q4();
    constexpr unsigned kTimes = 20;
    unmapped = {};
    const kxsim::Calls calls = lab.host().count([q4] {
        for (unsigned k = 0; k < kTimes; ++k) {
            connect_to_hba_Q4(q4);
            disconnect_from_hba(q4);
        }
    });
    EXPECT_EQ(calls.on("mmap", "/dev/mem"), kTimes);
    EXPECT_EQ(calls["mmap"], kTimes);
    EXPECT_EQ(unmapped.at_zero, kTimes);
    EXPECT_EQ(unmapped.elsewhere, 0U);
}

TEST(WhatStaysByContract, AConnectionThatWasClosedKeepsNoDescriptor) {
    test::Lab lab;
    const test::Silence silence;
    const uint8_t q4 = first_q4();
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
    const uint8_t q4 = first_q4();
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
