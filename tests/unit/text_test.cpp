// Bounded text.
#include "support/text.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(FieldText, EndsAtItsNulOrAtTheFieldsEnd) {
    const char field[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(kx::field_text(field), "abcd");
    EXPECT_EQ(kx::field_text(field, 2), "ab");
    EXPECT_EQ(kx::field_text("ab\0c"), "ab");
    EXPECT_EQ(kx::field_text(""), "");
}

TEST(FieldText, IsTerminatedForThoseThatWantIt) {
    const char field[4] = {'a', 'b', 'c', 'd'};
    EXPECT_STREQ(kx::TerminatedText(field).c_str(), "abcd");
}

TEST(CopiedText, FillsItsFieldAndLeavesRoomForTheNul) {
    char field[5];
    kx::copy_text(field, "abcdefgh");
    EXPECT_EQ(std::string(field, sizeof field), std::string("abcd\0", 5));
    kx::copy_text(field, "xy");
    EXPECT_EQ(std::string(field, sizeof field), std::string("xy\0\0\0", 5));
    kx::copy_text(field, "");
    EXPECT_EQ(std::string(field, sizeof field), std::string(5, '\0'));
}

TEST(EqualOver, ComparesUpToTheBoundAndTheEnds) {
    EXPECT_TRUE(kx::equal_over("abcd", "abxy", 2));
    EXPECT_FALSE(kx::equal_over("abcd", "abxy", 3));
    EXPECT_TRUE(kx::equal_over("abcd", "xyz", 0));
    EXPECT_TRUE(kx::equal_over("ab", "ab", 5));
    EXPECT_FALSE(kx::equal_over("ab", "abc", 5));
    EXPECT_FALSE(kx::equal_over("abc", "ab", 5));
}

TEST(CText, EndsAtTheFirstNul) {
    EXPECT_EQ(kx::c_text(std::string("ab\0c\0d", 6)), "ab");
    EXPECT_EQ(kx::c_text("abc"), "abc");
    EXPECT_EQ(kx::c_text(std::string("\0a", 2)), "");
}

}  // namespace
