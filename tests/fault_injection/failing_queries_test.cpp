// Every call that a query makes fails once: either the agent's buffer has complete records of the
// returned length, or it is unchanged and the status is one of those in the header.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "fault_injection/entry_points.hpp"
#include "fault_injection/failure.hpp"
#include "fault_injection/fired_kinds.hpp"

namespace {

using test::Failure;

constexpr char kLocation[] = "04:00.4";
constexpr std::size_t kRoom = 1 << 20;
constexpr char kBefore = 0x5A;  // in every byte of the buffer

struct Query {
    const char* name;
    uint32_t (*ask)(void* buffer, uint32_t* length);
    std::size_t record;  // bytes
    std::set<uint32_t> failures;
};

const Query kQueries[] = {
    {"GetCardInfo", GetCardInfo, KX_CARD_COPY, {1, 60, 62, 66}},
    {"GetCardStats",
     [](void* buffer, uint32_t* length) { return GetCardStats(kLocation, buffer, length); },
     KX_STAT_COPY,
     {1, 60, 62, 65, 66, 71}},
    {"GetPortInfo",
     [](void* buffer, uint32_t* length) { return GetPortInfo(kLocation, buffer, length); },
     KX_PORT_COPY,
     {1, 60, 62, 65, 66, 72}},
    {"GetPortStat",
     [](void* buffer, uint32_t* length) { return GetPortStat(kLocation, 1, buffer, length); },
     KX_STAT_COPY,
     {1, 60, 62, 64, 65, 66}},
    {"GetDriverDetails", GetDriverDetails, KX_DRIVER_COPY, {62, 66}},
};

constexpr Failure kFailures[] = {
    {"access", EACCES},  {"calloc", ENOMEM, "libkxlinhw"},
    {"fopen", EMFILE},   {"getifaddrs", ENOMEM},
    {"ioctl", EIO},      {"malloc", ENOMEM, "libstdc++"},
    {"mmap", ENOMEM},    {"open", EACCES},
    {"opendir", EACCES}, {"read", EIO},
    {"readdir", EIO},    {"socket", EMFILE},
    {"stat", EACCES},
};

// First one by one, then at growing distances; with a sanitizer each kind once.
constexpr unsigned kOneByOne = 20;
unsigned next_position(unsigned nth) {
    return test::kSanitized ? UINT32_MAX : nth < kOneByOne ? nth + 1 : nth + nth / 4;
}

class FailingQuery : public testing::TestWithParam<Query> {
protected:
    // Call the query with one failure; false when no call matched the failure.
    bool ask(const Failure& failure, unsigned nth) {
        test::Lab::prepare();
        kxsim::FaultRule rule = lab_.host().fail(test::fault_of(failure, nth));
        std::fill(buffer_.begin(), buffer_.end(), kBefore);
        uint32_t length = 1;
        uint32_t status = 0;
        {
            const test::Silence silence;
            lab_.host().count([&] { status = GetParam().ask(buffer_.data(), &length); });
        }
        const bool fired = rule.fired() > 0;
        const testing::ScopedTrace trace(
            __FILE__, __LINE__, test::describe(failure, nth) + " " + rule.struck());
        rule.remove();
        judge(status, length);
        return fired;
    }

    void judge(uint32_t status, uint32_t length) {
        if (status != 0) {
            EXPECT_THAT(GetParam().failures, testing::Contains(status));
            EXPECT_EQ(length, 0U);
            ++refused_;
        }
        EXPECT_EQ(length % GetParam().record, 0U);
        EXPECT_TRUE(std::all_of(
            buffer_.begin() + length, buffer_.end(), [](char byte) { return byte == kBefore; }))
            << "something behind " << length << " bytes";
    }

    static void TearDownTestSuite() { fired_.expect_all(kFailures); }

    unsigned refused_ = 0;
    static inline test::FiredKinds fired_;

private:
    std::vector<char> buffer_ = std::vector<char>(kRoom);
    test::Lab lab_;
};

TEST_P(FailingQuery, TellsWhyAndLeavesTheBufferAlone) {
    for (const Failure& failure : kFailures) {
        for (unsigned nth = 1; nth != UINT32_MAX && ask(failure, nth) && !HasFailure();
             nth = next_position(nth)) {
            fired_.add(failure);
        }
    }
    EXPECT_GT(refused_, 0U);
}

INSTANTIATE_TEST_SUITE_P(All, FailingQuery, testing::ValuesIn(kQueries), [](const auto& query) {
    return std::string(query.param.name);
});

}  // namespace
