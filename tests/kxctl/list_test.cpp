// Lists: their order, the columns that the user chose, and what a terminal gets.
#include "cli/list.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "kxctl/terminal.hpp"
#include "output/natural_order.hpp"
#include "output/printable.hpp"
#include "support/shell.hpp"

namespace {

using namespace kx::ctl;
using test::lines_of;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> sorted(std::vector<std::string> names) {
    std::ranges::sort(names, [](const std::string& left, const std::string& right) {
        return natural_order(left, right) < 0;
    });
    return names;
}

TEST(NaturalOrder, CountsNumbersAsNumbers) {
    EXPECT_THAT(
        sorted({"eth10", "eth2", "eth", "eth1", "ens3f10", "ens3f9np1"}),
        ElementsAre("ens3f9np1", "ens3f10", "eth", "eth1", "eth2", "eth10"));
    EXPECT_THAT(
        sorted({"100000000000000000000", "99999999999999999999", "07"}),
        ElementsAre("07", "99999999999999999999", "100000000000000000000"));
    EXPECT_THAT(sorted({"10.0.0.10", "10.0.0.9"}), ElementsAre("10.0.0.9", "10.0.0.10"));
}

TEST(NaturalOrder, ReadsLocationsAsHexadecimalNumbers) {
    EXPECT_THAT(
        sorted({"10:00.0", "0a:00.0", "03:00.10", "03:00.4", "9:00.0"}),
        ElementsAre("03:00.4", "03:00.10", "9:00.0", "0a:00.0", "10:00.0"));
    EXPECT_THAT(
        sorted({"10000:01:00.0", "0000:af:00.0", "ffff:00:00.0", "0000:5e:00.0"}),
        ElementsAre("0000:5e:00.0", "0000:af:00.0", "ffff:00:00.0", "10000:01:00.0"));
}

TEST(NaturalOrder, IsTheSameFromBothSides) {
    const std::vector<std::string> names = {"",    "a",   "a1",   "a01", "a10",  "1",    "01:0",
                                            "1:0", "a:1", "a:10", "-",   "\xFF", "eth1", "e:"};
    for (const std::string& one : names) {
        for (const std::string& other : names) {
            EXPECT_EQ(natural_order(one, other), 0 <=> natural_order(other, one))
                << one << ' ' << other;
            for (const std::string& third : names) {
                if (natural_order(one, other) < 0 && natural_order(other, third) < 0) {
                    EXPECT_TRUE(natural_order(one, third) < 0)
                        << one << ' ' << other << ' ' << third;
                }
            }
        }
    }
}

const std::vector<Column> kPortColumns = {
    {"NAME"}, {"MTU", Align::kRight}, {"LINK STATE"}, {"NOTE", Align::kLeft, WhenEmpty::kLeftOut}};

List ports(const Arguments& arguments, bool json = false) {
    List list(arguments, Output(json), kPortColumns);
    list.add({"eth10", "1500", "up", ""}, "ten");
    list.add({"eth2", "", "down", ""}, "two");
    list.add({"eth1", "9000", "up", ""}, "one");
    return list;
}

Arguments options(std::initializer_list<std::pair<const char*, const char*>> given) {
    Arguments arguments;
    for (const auto& [name, value] : given) {
        arguments.add(name, {value});
    }
    return arguments;
}

TEST(List, IsSortedByItsFirstColumn) {
    EXPECT_EQ(
        ports({}).table().text(false),
        "NAME    MTU  LINK STATE\n"
        "eth1   9000  up\n"
        "eth2      -  down\n"
        "eth10  1500  up\n");
    EXPECT_EQ(ports({}).json(), Json({"one", "two", "ten"}));
}

TEST(List, SortsByAColumnWithMissingValuesLast) {
    const List list = ports(options({{"--sort", "mtu"}}));
    EXPECT_EQ(list.json(), Json({"ten", "one", "two"}));
    EXPECT_THAT(list.table().text(false), HasSubstr("eth10  1500  up\neth1   9000  up\n"));
}

TEST(List, KeepsTheOrderOfRowsWithTheSameValue) {
    EXPECT_EQ(ports(options({{"--sort", "link_state"}})).json(), Json({"two", "ten", "one"}));
}

TEST(List, ShowsTheColumnsThatTheUserChoseInTheirOrder) {
    EXPECT_EQ(
        ports(options({{"--columns", "link_state,name,note"}})).table().text(false),
        "LINK STATE  NAME   NOTE\n"
        "up          eth1   -\n"
        "down        eth2   -\n"
        "up          eth10  -\n");
}

TEST(List, RefusesColumnsOfAJsonAnswer) {
    EXPECT_THROW(ports(options({{"--columns", "name"}}), true), std::exception);
}

TEST(List, RefusesARowOfAnotherLength) {
    List list({}, Output(false), kPortColumns);
    EXPECT_THROW(list.add({"eth1"}, {}), std::logic_error);
}

// Every command with the verb "list", with words for its arguments on the scenario "lab".
struct Row {
    std::vector<std::string> words;
    const char* column;  // not the first one
};

const Row kLists[] = {
    {{"card", "list"}, "chip"},          {{"port", "list", "04:00.4"}, "link"},
    {{"adapter", "list"}, "mac"},        {{"module", "list"}, "version"},
    {{"vm", "list"}, "state"},           {{"vf", "list"}, "vf"},
    {{"bridge", "list", "web1"}, "mac"},
};

TEST(Lists, AreAllInTheTable) {
    std::set<std::string> missing;
    for (const Command& command : commands()) {
        if (std::string_view(command.verb) == "list") {
            missing.insert(command.name());
            EXPECT_FALSE(command.columns().empty()) << command.name();
        }
    }
    for (const Row& row : kLists) {
        missing.erase(row.words[0] + " " + row.words[1]);
    }
    EXPECT_THAT(missing, testing::IsEmpty());
}

test::Result run_on_lab(std::vector<std::string> words, std::vector<std::string> more) {
    words.insert(words.begin(), "--sim=lab");
    words.insert(words.end(), more.begin(), more.end());
    return test::run(words);
}

TEST(Lists, TakeColumnsAndAnOrder) {
    for (const Row& row : kLists) {
        const test::Result result =
            run_on_lab(row.words, {"--columns", row.column, "--sort", row.column});
        EXPECT_EQ(result.exit, 0) << row.words[0] << result.err;
        std::vector<std::string> lines = lines_of(result.out);
        ASSERT_GT(lines.size(), 1U) << row.words[0];
        std::erase(lines, "-");
        EXPECT_TRUE(std::is_sorted(
            lines.begin() + 1, lines.end(),
            [](const std::string& left, const std::string& right) {
                return natural_order(left, right) < 0;
            }))
            << result.out;
    }
}

TEST(Lists, RefuseAnUnknownColumnAndSuggestAnother) {
    for (const Row& row : kLists) {
        for (const char* option : {"--columns", "--sort"}) {
            const std::string wrong = std::string(row.column) + "x";
            const test::Result result = run_on_lab(row.words, {option, wrong});
            EXPECT_EQ(result.exit, 2) << row.words[0];
            EXPECT_EQ(result.out, "");
            EXPECT_THAT(
                result.err, HasSubstr("; did you mean " + std::string(row.column) + "? (see"));
        }
        const test::Result json = run_on_lab(row.words, {"--columns", row.column, "--json"});
        EXPECT_EQ(json.exit, 2) << row.words[0];
    }
}

TEST(Lists, FitATerminalOf80Columns) {
    for (const Row& row : kLists) {
        std::vector<std::string> words = row.words;
        words.insert(words.begin(), {"--sim=lab", "--color=never"});
        test::Terminal terminal(words);
        EXPECT_EQ(terminal.finish(), 0);
        const bool is_wide =
            row.words[0] == "card" || row.words[0] == "port" || row.words[0] == "adapter";
        EXPECT_EQ(terminal.screen().find("\u2026") != std::string::npos, is_wide)
            << terminal.screen();
        for (std::string line : lines_of(terminal.screen())) {
            std::erase(line, '\r');
            EXPECT_LE(display_width(line), 80U) << line;
        }
    }
}

}  // namespace
