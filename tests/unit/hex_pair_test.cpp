// Two characters as one byte.
#include <gtest/gtest.h>
#include <kxlinhw/hex.h>

#include <cstdio>
#include <string>

namespace {

TEST(HexPair, EveryByteIsReadInBothLetterCases) {
    for (int byte = 0; byte < 256; ++byte) {
        char lower[3];
        char upper[3];
        std::snprintf(lower, sizeof lower, "%02x", byte);
        std::snprintf(upper, sizeof upper, "%02X", byte);
        EXPECT_EQ(atohex(lower), byte) << lower;
        EXPECT_EQ(atohex(upper), byte) << upper;
    }
}

TEST(HexPair, CharactersThatAreNoDigitsAddNothing) {
    const std::string digits = "0123456789abcdefABCDEF";
    for (int code = 1; code < 256; ++code) {
        const char c = static_cast<char>(code);
        if (digits.find(c) == std::string::npos) {
            EXPECT_EQ(atohex(std::string({'f', c}).c_str()), 15) << code;
            EXPECT_EQ(atohex(std::string({c, '7'}).c_str()), 7) << code;
            EXPECT_EQ(atohex(std::string({c, c}).c_str()), 0) << code;
        }
    }
}

TEST(HexPair, OnlyTheFirstTwoCharactersCount) {
    EXPECT_EQ(atohex("1f2"), 0x1F);
    EXPECT_EQ(atohex("zz7"), 0);
    EXPECT_EQ(atohex("52:54"), 0x52);
}

TEST(HexPair, NothingIsReadBehindTheEnd) {
    const char nothing[1] = {'\0'};
    const char one[2] = {'a', '\0'};
    EXPECT_EQ(atohex(nothing), 0);
    EXPECT_EQ(atohex(one), 10);
    EXPECT_EQ(atohex(nullptr), 0);
}

}  // namespace
