// Status texts, the detail text and the library's version.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/status.h>

#include <array>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAreArray;
using testing::Pair;

std::vector<std::pair<uint32_t, std::string>> rows_in_order() {
    std::vector<std::pair<uint32_t, std::string>> rows;
    for (const ErrStrEntry& row : ErrStr) {
        rows.emplace_back(+row.code, row.text == nullptr ? "(null)" : row.text);
    }
    return rows;
}

class Status : public testing::Test {
protected:
    void SetUp() override { std::memset(errStr, 0, sizeof errStr); }
    void TearDown() override { std::memset(errStr, 0, sizeof errStr); }
};

TEST_F(Status, TableHoldsEveryRowInSearchOrder) {
    EXPECT_THAT(
        rows_in_order(), ElementsAreArray(std::vector<std::pair<uint32_t, std::string>>{
                             {0, "Success"},
                             {1, "Unknown Error"},
                             {60, "No Kestrix cards"},
                             {61, "Invalid set value"},
                             {62, "Kestrix driver not loaded/installed"},
                             {63, "Resource unavailable"},
                             {64, "Invalid port instance for the specified pci bus location"},
                             {65, "No device with the specified pci bus location found"},
                             {66, "No memory"},
                             {67, "Driver zfab3 not loaded"},
                             {68, "TOE driver q3_tom not loaded"},
                             {69, "No such stat exists"},
                             {71, "Operation not supported: NIC-Only card"},
                             {72, "No port configured for the device"},
                             {317, "Invalid parameter"},
                             {301, "Unsupported Driver"},
                             {0xFFFFFFFF, "(null)"},
                         }));
}

TEST_F(Status, TableIsPackedInStepsOfTwelveBytes) {
    EXPECT_EQ(sizeof ErrStr, 17U * 12U);
    EXPECT_EQ(
        reinterpret_cast<const char*>(&ErrStr[1]) - reinterpret_cast<const char*>(&ErrStr[0]), 12);
}

TEST_F(Status, EveryRowGivesItsOwnText) {
    for (const ErrStrEntry& row : ErrStr) {
        const char* const text = row.text;
        if (text != nullptr) {
            EXPECT_EQ(GetErrStr(static_cast<int32_t>(row.code)), text) << +row.code;
        }
    }
}

TEST_F(Status, CodesWithoutARowGiveNoText) {
    for (const int32_t code : {-1, 2, 59, 73, 273, 300, 302, 417, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(GetErrStr(code), nullptr) << code;
    }
}

TEST_F(Status, SetFailureGivesTheDetailTextEvenWhenItIsEmpty) {
    EXPECT_EQ(GetErrStr(70), errStr);
    EXPECT_STREQ(GetErrStr(70), "");
}

TEST_F(Status, DetailTextIsCutAtItsLastByte) {
    std::memset(errStr, 'x', sizeof errStr);
    EXPECT_EQ(std::string(GetErrStr(70)), std::string(1023, 'x'));
}

TEST_F(Status, UnusedErrorWordIsZero) { EXPECT_EQ(g_err, 0U); }

TEST(LibraryVersion, WritesNameAndVersionAndNothingElse) {
    std::array<unsigned char, 26> buffer;
    buffer.fill(0xEE);
    EXPECT_EQ(GetLibVersion(buffer.data()), 0U);
    std::array<unsigned char, 26> expected;
    expected.fill(0xEE);
    std::memcpy(expected.data(), "libkxlinhw", 11);
    const std::array<unsigned char, 4> version{0x02, 0x00, 0x06, 0x00};
    std::memcpy(expected.data() + 20, version.data(), version.size());
    EXPECT_EQ(buffer, expected);
}

TEST(LibraryVersion, RefusesANullBuffer) { EXPECT_EQ(GetLibVersion(nullptr), 317U); }

}  // namespace
