// Texts made safe for a terminal.
#include "output/printable.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using kx::ctl::display_width;
using kx::ctl::printable;
using kx::ctl::printable_json;
using kx::ctl::shortened;

TEST(Printable, LeavesValidTextAsItIs) {
    for (const char* text : {"", "plain", "\u00E9", "\u20AC", "\U0001F600", "\U0010FFFF"}) {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(Printable, ReplacesControlCharacters) {
    for (const char* text :
         {"\n", "\t", "\r", "\033", "\x7F", "\u0080", "\u009B", "\u2028", "\u202A", "\u202E",
          "\u2066", "\u2069", "\u061C", "\u200E", "\u200F"}) {
        EXPECT_EQ(printable(text), "\uFFFD") << text;
    }
    EXPECT_EQ(printable(std::string(1, '\0')), "\uFFFD");
}

TEST(PrintableJson, HasEscapesForWhatChangesATerminal) {
    EXPECT_EQ(
        printable_json("{\"\u009B\": \"a\u0080\u202Eb\u2066\u2069\u061C\u200E\u200F\x7F\"}\n"),
        "{\"\\u009b\": \"a\\u0080\\u202eb\\u2066\\u2069\\u061c\\u200e\\u200f\\u007f\"}\n");
    EXPECT_EQ(
        printable_json("{\n  \"\u00E9\uFFFD\u8A9E\": 1\n}"), "{\n  \"\u00E9\uFFFD\u8A9E\": 1\n}");
}

TEST(Printable, ReplacesEachByteThatStartsNoCharacter) {
    const struct {
        const char* text;
        const char* expected;
    } rows[] = {
        {"\x80", "\uFFFD"},                                // continuation alone
        {"\xC3", "\uFFFD"},                                // cut at the end
        {"\xC3(", "\uFFFD("},                              // cut before another character
        {"\xE2\x82", "\uFFFD\uFFFD"},                      // cut after two of three bytes
        {"\xF0\x9F\x98", "\uFFFD\uFFFD\uFFFD"},            // cut after three of four
        {"\xC0\xAF", "\uFFFD\uFFFD"},                      // longer than needed
        {"\xE0\x80\xAF", "\uFFFD\uFFFD\uFFFD"},            // longer than needed
        {"\xF0\x80\x80\xAF", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // longer than needed
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // half of a surrogate pair
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond the last character
        {"\xFF\xFE", "\uFFFD\uFFFD"},                      // never part of UTF-8
    };
    for (const auto& row : rows) {
        EXPECT_EQ(printable(row.text), row.expected) << row.expected;
    }
}

TEST(DisplayWidth, FollowsTheBlocksOfWideAndCombiningCharacters) {
    EXPECT_EQ(display_width(""), 0U);
    EXPECT_EQ(display_width("abc"), 3U);
    EXPECT_EQ(display_width("\uFFFD"), 1U);
    EXPECT_EQ(display_width("\u02FF"), 1U) << "before the combining marks";
    EXPECT_EQ(display_width("\u0300"), 0U);
    EXPECT_EQ(display_width("\u036F"), 0U);
    EXPECT_EQ(display_width("\u0370"), 1U) << "after the combining marks";
    EXPECT_EQ(display_width("\u8A9E\u8A9E"), 4U);
    EXPECT_EQ(display_width("\uAC00"), 2U);
    EXPECT_EQ(display_width("\U0001F600"), 2U);
    EXPECT_EQ(display_width("\U0010FFFF"), 1U) << "behind the last block";
}

TEST(Shortened, EndsInAMarkWhenItIsCut) {
    EXPECT_EQ(shortened("abc", 3), "abc");
    EXPECT_EQ(shortened("abcd", 3), "ab\u2026");
    EXPECT_EQ(shortened("abc", 1), "\u2026");
    EXPECT_EQ(shortened("\u8A9E\u8A9E", 3), "\u8A9E\u2026");
    EXPECT_EQ(shortened("\u8A9E\u8A9E", 2), "\u2026") << "half a character does not fit";
    EXPECT_EQ(shortened("e\u0301e\u0301e", 2), "e\u0301\u2026");
}

}  // namespace
