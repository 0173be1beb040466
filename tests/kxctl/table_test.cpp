// Tables for people.
#include "output/table.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "output/output.hpp"

namespace {

using namespace kx::ctl;
using testing::HasSubstr;
using testing::Not;

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
        "\033[32mup  \033[0m     1\n"
        "\033[31mdown\033[0m     2\n");
}

TEST(Table, FitsItsWidthAndMarksWhatItCuts) {
    Table table({{"LOCATION"}, {"MODEL"}, {"PORTS", Align::kRight}, {"FIRMWARE"}});
    table.add_row({"0000:03:00.4", "Dual-port adapter", "123456789", "T 7.12.0 TP 1.1.0"});
    table.add_row({"1", "\u8A9E\u8A9E\u8A9E\u8A9E\u8A9E\u8A9E", "2", "-"});
    EXPECT_EQ(
        table.text(false, 50),
        "LOCATION      MODEL            PORTS  FIRMWARE\n"
        "0000:03:00.4  Dual-port \u2026  123456789  T 7.12.0 TP\u2026\n"
        "1             \u8A9E\u8A9E\u8A9E\u8A9E\u8A9E\u2026          2  -\n");
    EXPECT_THAT(table.text(false), Not(HasSubstr("\u2026")));
    EXPECT_THAT(table.text(false, 200), Not(HasSubstr("\u2026")));
}

TEST(Table, DoesNotCutWhatNamesTheRowNorNumbers) {
    Table table({{"LOCATION"}, {"PORTS", Align::kRight}, {"TEXT"}});
    table.add_row({"0000:03:00.4", "123456789", "a long text"});
    EXPECT_EQ(
        table.text(false, 10),
        "LOCATION          PORTS  TEXT\n"
        "0000:03:00.4  123456789  a l\u2026\n");
}

TEST(Table, WithoutHeadingContinuesLongTextsInTheNextLine) {
    Table table({{}, {}});
    table.add_row({"Key", "0123456789abcdef"});
    EXPECT_EQ(table.text(false, 15), "Key  0123456789\n     abcdef\n");
}

TEST(Table, DoesNotDependOnTheLocaleOfTheUser) {
    Table table({{"A"}, {"B"}});
    table.add_row({"\u00FC\\x41", "%n"});
    const locale_t latin = newlocale(LC_ALL_MASK, "C", nullptr);
    const locale_t before = uselocale(latin);
    EXPECT_EQ(table.text(false), "A      B\n\u00FC\\x41  %n\n");
    EXPECT_EQ(uselocale(before), latin) << "the locale of the process is as before";
    freelocale(latin);
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
