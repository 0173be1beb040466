// Reading foreign bytes: nothing past their end, and one question for all of it.
#include "support/byte_reader.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string_view>

namespace {

using kx::ByteReader;

constexpr std::array<uint8_t, 5> kBytes{0x41, 0x02, 0x03, 0x04, 0x45};

TEST(ByteReader, ReadsTextsAndNumbersInTheirOrder) {
    ByteReader reader{std::span(kBytes)};
    EXPECT_EQ(reader.text(1), "A");
    EXPECT_EQ(reader.number(2), 0x0302U);
    EXPECT_EQ(reader.place(), 3U);
    EXPECT_EQ(reader.number(1), 4U);
    EXPECT_EQ(reader.text(1), "E");
    EXPECT_EQ(reader.text(0), "");
    EXPECT_FALSE(reader.overrun());
}

TEST(ByteReader, KnowsBothByteOrders) {
    ByteReader reader(std::as_bytes(std::span(kBytes)), std::endian::big);
    EXPECT_EQ(reader.at(1).number(3), 0x020304U);
    EXPECT_EQ(reader.at(0).number(4), 0x41020304U);
}

TEST(ByteReader, GivesNothingPastTheEndAndRemembersIt) {
    for (const uint64_t offset : {uint64_t{4}, uint64_t{5}, uint64_t{6}, UINT64_MAX}) {
        ByteReader reader{std::span(kBytes)};
        EXPECT_EQ(reader.at(offset).number(2), 0U) << offset;
        EXPECT_TRUE(reader.overrun());
        EXPECT_EQ(reader.at(0).text(1), "A") << "what lies inside can still be read";
        EXPECT_TRUE(reader.overrun());
    }
    ByteReader reader{std::span(kBytes)};
    EXPECT_EQ(reader.text(UINT64_MAX), "");
    EXPECT_TRUE(reader.overrun());
    ByteReader empty{std::span<const uint8_t>()};
    EXPECT_EQ(empty.number(1), 0U);
    EXPECT_TRUE(empty.overrun());
}

TEST(ByteReader, CutsTextsAtTheEndWhenAsked) {
    ByteReader reader{std::span(kBytes)};
    EXPECT_EQ(
        reader.at(3).text_up_to(2),
        "\x04"
        "E");
    EXPECT_EQ(reader.at(4).text_up_to(UINT64_MAX), "E");
    EXPECT_EQ(reader.text_up_to(1), "");
    EXPECT_FALSE(reader.overrun());
}

TEST(ByteReader, SplitsAtAByteAndSkipsRepeatedOnes) {
    constexpr std::array<uint8_t, 6> kStrings{'a', 'b', 0, 0, 'c', 0};
    ByteReader reader{std::span(kStrings)};
    EXPECT_EQ(reader.text_before('\0'), "ab");
    EXPECT_EQ(reader.place(), 3U) << "behind the first NUL";
    EXPECT_EQ(reader.text_before('\0'), "");
    reader.at(2).skip_all('\0');
    EXPECT_EQ(reader.text_before('x'), std::string_view("c\0", 2)) << "there is no x";
    EXPECT_TRUE(reader.at_end());
    EXPECT_EQ(reader.text_before('\0'), "");
    reader.skip_all('\0');
    EXPECT_EQ(reader.place(), kStrings.size());
    EXPECT_FALSE(reader.overrun());
}

}  // namespace
