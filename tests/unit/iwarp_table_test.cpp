// The table of iWARP parameters, checked against the masks and orders that agents rely on.
#include <gtest/gtest.h>

#include <bit>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "settings/iwarp_table.hpp"
#include "support/iwarp_files.hpp"

namespace {

using kx::settings::IwarpParameter;
using kx::settings::kIwarpModules;
using kx::settings::kIwarpParameters;
using kx::settings::kZfab3Readings;
using kx::settings::kZfab4Readings;

// Order of setting, bit, name, offset of the field, allowed for iw_zfab3, for iw_zfab4.
struct Row {
    unsigned bit;
    const char* name;
    std::size_t offset;
    bool zfab3;
    bool zfab4;
};

constexpr Row kRows[] = {
    {0, "allow_nonroot_rawqps", 284, false, true},
    {2, "z4iw_debug", 240, false, true},
    {1, "z4iw_max_read_depth", 224, false, true},
    {4, "crc_enabled", 264, true, true},
    {3, "cong_flavor", 280, true, false},
    {5, "dack_mode", 220, false, true},
    {6, "db_delay_usecs", 204, false, true},
    {7, "db_fc_drain_thresh", 288, false, true},
    {8, "db_fc_resume_delay", 292, false, true},
    {9, "db_fc_resume_size", 296, false, true},
    {10, "enable_ecn", 300, false, true},
    {12, "enable_tcp_timestamps", 228, false, true},
    {11, "enable_tcp_sack", 232, false, true},
    {13, "enable_tcp_window_scaling", 236, false, true},
    {14, "ep_timeout_secs", 252, true, true},
    {15, "fastreg_support", 216, false, true},
    {16, "inline_threshold", 304, false, true},
    {17, "map_udb_as_wc", 308, false, true},
    {18, "markers_enabled", 260, true, true},
    {20, "mpa_rev", 256, true, true},
    {19, "max_fr_immd", 312, false, true},
    {21, "nocong", 276, true, true},
    {22, "ocqp_support", 208, false, true},
    {24, "peer2peer", 248, true, true},
    {23, "p2p_type", 244, false, true},
    {26, "relaxed_ird_negotiation", 316, false, true},
    {27, "relaxed_ordering", 320, false, true},
    {25, "rcv_win", 268, true, true},
    {28, "snd_win", 272, true, true},
    {29, "q5_en_wc", 324, false, true},
    {30, "use_dsgl", 328, false, true},
};

TEST(IwarpTable, HoldsEveryRowInTheOrderOfSetting) {
    ASSERT_EQ(kIwarpParameters.size(), std::size(kRows));
    for (std::size_t k = 0; k < std::size(kRows); ++k) {
        const IwarpParameter& row = kIwarpParameters.at(k);
        EXPECT_STREQ(row.name, kRows[k].name) << k;
        EXPECT_EQ(row.offset, kRows[k].offset) << row.name;
        EXPECT_EQ(row.change_bit, uint64_t{1} << kRows[k].bit) << row.name;
    }
}

TEST(IwarpTable, BitsAreAllOfTheThirtyOneAndNoneTwice) {
    uint64_t all = 0;
    for (const IwarpParameter& row : kIwarpParameters) {
        EXPECT_EQ(std::popcount(row.change_bit), 1) << row.name;
        EXPECT_EQ(all & row.change_bit, 0U) << row.name;
        all |= row.change_bit;
    }
    EXPECT_EQ(all, 0x7fffffffU);
}

TEST(IwarpTable, FieldsLieInTheRecordWithoutOverlap) {
    std::set<std::size_t> offsets;
    for (const IwarpParameter& row : kIwarpParameters) {
        EXPECT_LE(row.offset + 4, sizeof(IwarpProps)) << row.name;
        EXPECT_EQ(row.offset % 4, 0U) << row.name;
        EXPECT_TRUE(offsets.insert(row.offset).second) << row.name;
    }
}

TEST(IwarpTable, ForbiddenBitsAreThoseOfTheRowsThatAModuleLacks) {
    uint64_t zfab3 = 0;
    uint64_t zfab4 = 0;
    for (const Row& row : kRows) {
        zfab3 |= row.zfab3 ? 0 : uint64_t{1} << row.bit;
        zfab4 |= row.zfab4 ? 0 : uint64_t{1} << row.bit;
    }
    EXPECT_EQ(zfab3, 0x6ccbbfe7U);
    EXPECT_EQ(zfab4, 0x8U);
    EXPECT_STREQ(kIwarpModules[0].name, "iw_zfab3");
    EXPECT_EQ(kIwarpModules[0].forbidden, zfab3);
    EXPECT_STREQ(kIwarpModules[1].name, "iw_zfab4");
    EXPECT_EQ(kIwarpModules[1].forbidden, zfab4);
}

TEST(IwarpTable, NothingIsReadThatAModuleLacks) {
    for (const kx::settings::IwarpModule& module : kIwarpModules) {
        for (const IwarpParameter& row : module.readings) {
            EXPECT_EQ(row.change_bit & module.forbidden, 0U) << module.name << " " << row.name;
        }
    }
}

template <class Rows>
std::vector<std::string> names_of(const Rows& rows) {
    std::vector<std::string> names;
    for (const IwarpParameter& row : rows) {
        names.emplace_back(row.name == nullptr ? "(no row)" : row.name);
    }
    return names;
}

TEST(IwarpTable, NineFilesAreReadOfTheOlderModule) {
    EXPECT_EQ(names_of(kZfab3Readings), test::kZfab3IwarpFiles);
}

TEST(IwarpTable, TwentyNineFilesAreReadOfTheNewerModule) {
    EXPECT_EQ(names_of(kZfab4Readings), test::kZfab4IwarpFiles);
}

}  // namespace
