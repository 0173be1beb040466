// The table of the offload engine's parameters, as a table.
#include "support/offload_table.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace kx;

struct ExpectedRow {
    uint32_t change_bit;
    const char* name;
    int offset;
    int width;
    int64_t min;
    int64_t max;
};

constexpr int64_t kMin32 = -2147483648;
constexpr int64_t kMax32 = 2147483647;

constexpr ExpectedRow kExpected[] = {
    {0x2, "activated", 191, 1, 0, 1},
    {0x4, "max_host_sndbuf", 69, 8, 0, kMax32},
    {0x8, "tx_hold_thres", 77, 8, 0, kMax32},
    {0x10, "max_wr", 85, 2, 3, kMax32},
    {0x800000, "max_wr_credits", 85, 2, 3, kMax32},
    {0x20, "rx_credit_thres", 87, 8, 1, kMax32},
    {0x40, "failover_alg", 95, 1, -1, 3},
    {0x80, "mss", 96, 4, 1, 1048576},
    {0x100, "delayed_ack", 100, 1, 0, 3},
    {0x200, "max_conn", 101, 8, -1, kMax32},
    {0x400, "soft_backlog_limit", 109, 1, 0, 1},
    {0x800, "ddp", 110, 1, 0, 1},
    {0x1000, "ddp_thres", 119, 8, kMin32, kMax32},
    {0x2000, "recvmsg_spin_us", 193, 1, kMin32, kMax32},
    {0x4000, "ddp_push_wait", 135, 8, kMin32, kMax32},
    {0x8000, "ddp_rcvcoalesce", 143, 8, kMin32, kMax32},
    {0x10000, "zcopy_sendmsg_partial_thres", 151, 8, kMin32, kMax32},
    {0x20000, "zcopy_sendmsg_partial_copy", 159, 8, kMin32, kMax32},
    {0x40000, "zcopy_sendmsg_thres", 167, 8, kMin32, kMax32},
    {0x80000, "zcopy_sendmsg_copy", 175, 8, kMin32, kMax32},
    {0x100000, "zcopy_sendmsg_ret_pending_dma", 183, 8, kMin32, kMax32},
    {0x200000, "kseg_ddp", 111, 8, kMin32, kMax32},
    {0x400000, "cop_managed_offloading", 192, 1, 0, 1},
};

TEST(OffloadTable, HoldsEveryRowInTheOrderOfSetting) {
    ASSERT_EQ(kOffloadParameters.size(), std::size(kExpected));
    for (std::size_t k = 0; k < std::size(kExpected); ++k) {
        const OffloadParameter& row = kOffloadParameters[k];
        const ExpectedRow& expected = kExpected[k];
        EXPECT_STREQ(row.name, expected.name) << k;
        EXPECT_EQ(row.change_bit, expected.change_bit) << row.name;
        EXPECT_EQ(row.offset, expected.offset) << row.name;
        EXPECT_EQ(row.width, expected.width) << row.name;
        EXPECT_EQ(row.min, expected.min) << row.name;
        EXPECT_EQ(row.max, expected.max) << row.name;
    }
}

TEST(OffloadTable, ActivationStandsApartFromTheSettings) {
    EXPECT_STREQ(kOffloadActivation.name, "activated");
    EXPECT_EQ(kOffloadSettings.size(), kOffloadParameters.size() - 1);
    EXPECT_STREQ(kOffloadSettings.front().name, "max_host_sndbuf");
}

TEST(OffloadTable, ReadsInTheDriversOrderWithoutTheCredits) {
    const std::vector<std::string> expected{
        "max_host_sndbuf",
        "tx_hold_thres",
        "max_wr",
        "rx_credit_thres",
        "failover_alg",
        "mss",
        "delayed_ack",
        "max_conn",
        "soft_backlog_limit",
        "ddp",
        "kseg_ddp",
        "ddp_thres",
        "ddp_push_wait",
        "ddp_rcvcoalesce",
        "zcopy_sendmsg_partial_thres",
        "zcopy_sendmsg_partial_copy",
        "zcopy_sendmsg_thres",
        "zcopy_sendmsg_copy",
        "zcopy_sendmsg_ret_pending_dma",
        "activated",
        "recvmsg_spin_us",
        "cop_managed_offloading"};
    std::vector<std::string> names;
    for (const OffloadParameter& row : kOffloadReadings) {
        names.emplace_back(row.name);
    }
    EXPECT_EQ(names, expected);
}

TEST(OffloadTable, NamesAndChangeBitsAreUniqueAndTheBitsFillTheMask) {
    std::set<std::string> names;
    uint32_t bits = 0;
    for (const OffloadParameter& row : kOffloadParameters) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_EQ(bits & row.change_bit, 0U) << row.name;
        bits |= row.change_bit;
    }
    EXPECT_EQ(bits, 0x7FFFFEU | 0x800000U);
}

TEST(OffloadTable, FieldsLieInsideTheBlockAndOnlyMaxWrIsShared) {
    std::map<int, std::string> owner;
    for (const OffloadParameter& row : kOffloadReadings) {
        for (int byte = row.offset; byte < row.offset + row.width; ++byte) {
            EXPECT_TRUE(byte >= 69 && byte < 194) << row.name;
            EXPECT_TRUE(owner.emplace(byte, row.name).second) << row.name << ", " << owner[byte];
        }
    }
}

TEST(OffloadTable, RangesAreNotEmpty) {
    for (const OffloadParameter& row : kOffloadParameters) {
        EXPECT_LT(row.min, row.max) << row.name;
    }
}

TEST(OffloadValue, ReadsBackSignExtendedWhatFitsTheField) {
    for (const OffloadParameter& row : kOffloadParameters) {
        for (const int64_t value : {0, 1, 127, -1, -128}) {
            CardParams params{};
            set_offload_value(params, row, value);
            EXPECT_EQ(offload_value(params, row), value) << row.name;
        }
    }
}

TEST(OffloadValue, KeepsTheLowBytesOfWhatDoesNotFit) {
    CardParams params{};
    set_offload_value(params, kOffloadParameters[3], 70000);
    EXPECT_EQ(+params.max_wr, 4464);
    set_offload_value(params, kOffloadActivation, 255);
    EXPECT_EQ(params.activated, -1);
    set_offload_value(params, kOffloadParameters[7], int64_t{1} << 32);
    EXPECT_EQ(+params.mss, 0);
    set_offload_value(params, kOffloadParameters[1], std::numeric_limits<int64_t>::min());
    EXPECT_EQ(+params.max_host_sndbuf, std::numeric_limits<int64_t>::min());
}

TEST(OffloadValue, TouchesNoByteOutsideItsField) {
    for (const OffloadParameter& row : kOffloadParameters) {
        std::array<unsigned char, sizeof(CardParams)> before;
        before.fill(0xEE);
        auto after = before;
        CardParams params;
        std::memcpy(&params, before.data(), sizeof params);
        set_offload_value(params, row, 0);
        std::memset(after.data() + row.offset, 0, row.width);
        EXPECT_EQ(std::memcmp(&params, after.data(), sizeof params), 0) << row.name;
    }
}

TEST(OffloadFiles, CarryDeviceIndexAndName) {
    EXPECT_EQ(offload_directory(0), "/proc/sys/toe/toe0_tom");
    EXPECT_EQ(offload_file(12, "ddp"), "/proc/sys/toe/toe12_tom/ddp");
}

}  // namespace
