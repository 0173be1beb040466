// Tables for people.
#include "output/table.hpp"

#include <gtest/gtest.h>

#include "output/output.hpp"

namespace {

using namespace kx::ctl;

TEST(Table, AlignsItsColumnsAndLeavesNoBlankAtALinesEnd) {
    Table table({{"NAME"}, {"COUNT", Align::kRight}, {"TEXT"}});
    table.add_row({"a", "1", "one"});
    table.add_row({"long name", "1000", "t"});
    EXPECT_EQ(
        table.text(false),
        "NAME       COUNT  TEXT\n"
        "a              1  one\n"
        "long name   1000  t\n");
}

TEST(Table, WithoutRowsIsItsHeading) {
    const Table table({{"NAME"}, {"TEXT"}});
    EXPECT_EQ(table.text(false), "NAME  TEXT\n");
}

TEST(Table, WithoutTitlesHasNoHeading) {
    Table table({{""}, {""}});
    table.add_row({"name", "text"});
    EXPECT_EQ(table.text(false), "name  text\n");
}

TEST(Table, ShowsAnEmptyTextAsADash) {
    Table table({{"NAME"}, {"TEXT"}});
    table.add_row({"", ""});
    EXPECT_EQ(table.text(false), "NAME  TEXT\n-     -\n");
}

TEST(Table, CountsColumnsOfTheTerminalNotBytes) {
    Table table({{"A"}, {"B"}});
    table.add_row({"\u00FC", "narrow"});
    table.add_row({"\u8A9E", "wide"});
    table.add_row({"e\u0301", "combining"});
    EXPECT_EQ(
        table.text(false),
        "A   B\n"
        "\u00FC   narrow\n"
        "\u8A9E  wide\n"
        "e\u0301   combining\n");
}

TEST(Table, KeepsControlCharactersAndBrokenTextOffTheTerminal) {
    Table table({{"A"}, {"B"}});
    table.add_row({"a\nb", "\033[31m"});
    table.add_row({"\xC3", "x"});
    EXPECT_EQ(
        table.text(false),
        "A    B\n"
        "a\uFFFDb  \uFFFD[31m\n"
        "\uFFFD    x\n");
}

TEST(Table, ColoursTextsAndLeavesTheirColumnsAligned) {
    Table table({{"LINK"}, {"PORT", Align::kRight}});
    table.add_row({Cell("up", Style::kGood), "1"});
    table.add_row({Cell("down", Style::kBad), "2"});
    EXPECT_EQ(
        table.text(true),
        "\033[1mLINK\033[0m  \033[1mPORT\033[0m\n"
        "\033[32mup\033[0m       1\n"
        "\033[31mdown\033[0m     2\n");
}

TEST(Table, RefusesARowOfAnotherLength) {
    Table table({{"A"}, {"B"}});
    EXPECT_THROW(table.add_row({"only one"}), std::logic_error);
}

TEST(Colour, IsUsedOnACapableTerminalUnlessUnwanted) {
    const auto automatic = [](bool terminal, const char* no_colour, const char* type) {
        return decide_colour(ColourMode::kAuto, terminal, no_colour, type);
    };
    EXPECT_TRUE(automatic(true, nullptr, "xterm"));
    EXPECT_TRUE(automatic(true, "", "xterm")) << "an empty NO_COLOR does not count";
    EXPECT_FALSE(automatic(true, "1", "xterm"));
    EXPECT_FALSE(automatic(true, nullptr, "dumb"));
    EXPECT_FALSE(automatic(true, nullptr, nullptr));
    EXPECT_FALSE(automatic(false, nullptr, "xterm"));
}

TEST(Colour, AskedForByNameOverridesEverything) {
    EXPECT_TRUE(decide_colour(ColourMode::kAlways, false, "1", nullptr));
    EXPECT_FALSE(decide_colour(ColourMode::kNever, true, nullptr, "xterm"));
}

}  // namespace
