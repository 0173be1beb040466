// The small texts and numbers of the settings.
#include <gtest/gtest.h>
#include <kxlinhw/settings.h>

#include <array>
#include <climits>
#include <cstdio>
#include <memory>
#include <string>

#include "support/output.hpp"

namespace {

TEST(IsBool, OnlyZeroAndOne) {
    EXPECT_EQ(isBool(0), 1);
    EXPECT_EQ(isBool(1), 1);
    for (const int v : {-1, 2, 255, 256, INT_MIN, INT_MAX}) {
        EXPECT_EQ(isBool(v), 0) << v;
    }
}

TEST(Trim, SkipsLeadingBlanksAndTabsOnly) {
    char text[] = " \t \t a b \t";
    EXPECT_EQ(trim(text), text + 5);
    EXPECT_STREQ(trim(text), "a b \t");
    char line[] = "\n a";
    EXPECT_EQ(trim(line), line);
}

TEST(Trim, StopsAtTheEndAndTakesNull) {
    char blanks[] = "  \t";
    EXPECT_STREQ(trim(blanks), "");
    char empty[] = "";
    EXPECT_EQ(trim(empty), empty);
    EXPECT_EQ(trim(nullptr), nullptr);
}

std::string lines_of_str_to_bool(const char* text) {
    return test::printed([&] { strToBool(text); });
}

TEST(StrToBool, KnowsTwoTexts) {
    test::printed([] {
        EXPECT_EQ(strToBool("1"), 1);
        EXPECT_EQ(strToBool("0"), 0);
        for (const char* text : {"", "2", "11", "10", "01", " 1", "1 ", "a", "-"}) {
            EXPECT_EQ(strToBool(text), 255) << text;
        }
        EXPECT_EQ(strToBool(nullptr), 255);
    });
}

TEST(StrToBool, PrintsItsFourLines) {
    const std::string nul(1, '\0');
    EXPECT_EQ(lines_of_str_to_bool("1"), "str 1\nstrcmp 0\nstrcmp 1\nstr[0] 1 [1] " + nul + " \n");
    EXPECT_EQ(lines_of_str_to_bool("0"), "str 0\nstrcmp -1\nstrcmp 0\nstr[0] 0 [1] " + nul + " \n");
    const std::string many = lines_of_str_to_bool("2x");
    EXPECT_TRUE(many.starts_with("str 2x\nstrcmp "));
    EXPECT_TRUE(many.ends_with("\nstr[0] 2 [1] x \n"));
}

// Under the sanitizer this also shows that nothing behind the NUL is read.
TEST(StrToBool, ReadsNothingBehindAnEmptyText) {
    const auto text = std::make_unique<char[]>(1);
    const std::string printed = lines_of_str_to_bool(text.get());
    EXPECT_TRUE(printed.ends_with(std::string("\nstr[0] \0 [1] \0 \n", 17)));
}

TEST(SysctlKey, IsThePathBehindItsRootWithDots) {
    std::array<char, 256> key{};
    EXPECT_EQ(sysctlPathToKey("/proc/sys/toe/toe0_tom/max_wr", key.data(), 256), 0);
    EXPECT_STREQ(key.data(), "toe.toe0_tom.max_wr");
    EXPECT_EQ(sysctlPathToKey("/proc/sys/", key.data(), 256), 0);
    EXPECT_STREQ(key.data(), "");
}

TEST(SysctlKey, OtherPathsAreTakenWhole) {
    std::array<char, 256> key{};
    EXPECT_EQ(sysctlPathToKey("/dev/x", key.data(), 256), 0);
    EXPECT_STREQ(key.data(), ".dev.x");
    EXPECT_EQ(sysctlPathToKey("", key.data(), 256), 0);
    EXPECT_STREQ(key.data(), "");
}

TEST(SysctlKey, IsTerminatedInItsSpaceWhateverTheLength) {
    std::array<char, 5> key{};
    EXPECT_EQ(sysctlPathToKey("/proc/sys/a/bc", key.data(), 5), 0);
    EXPECT_STREQ(key.data(), "a.bc");
    key.fill('x');
    EXPECT_EQ(sysctlPathToKey("/proc/sys/a/bcd", key.data(), 5), 1);
    EXPECT_STREQ(key.data(), "a.bc");
    key.fill('x');
    EXPECT_EQ(sysctlPathToKey("/proc/sys/a", key.data(), 1), 1);
    EXPECT_STREQ(key.data(), "");
    EXPECT_EQ(key[1], 'x');
    key.fill('x');
    for (const int size : {0, -1, INT_MIN}) {
        EXPECT_EQ(sysctlPathToKey("/proc/sys/a", key.data(), size), 1);
        EXPECT_EQ(key[0], 'x');
    }
}

TEST(SysctlKey, NullIsRefused) {
    std::array<char, 8> key{};
    EXPECT_EQ(sysctlPathToKey(nullptr, key.data(), 8), 1);
    EXPECT_EQ(sysctlPathToKey("/proc/sys/a", nullptr, 8), 1);
}

}  // namespace
