// Lists: their order, the columns that the user chose, and what a terminal gets.
#include "cli/list.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "kxctl/every_command.hpp"
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

TEST(List, KeepsTheOrderOfTheHostWhereThatMeansSomething) {
    List list({}, Output(false), kPortColumns, Order::kAsRead);
    list.add({"eth10", "1500", "up", ""}, "ten");
    list.add({"eth2", "", "down", ""}, "two");
    EXPECT_EQ(list.json(), Json({"ten", "two"}));
    List sorted(options({{"--sort", "name"}}), Output(false), kPortColumns, Order::kAsRead);
    sorted.add({"eth10", "1500", "up", ""}, "ten");
    sorted.add({"eth2", "", "down", ""}, "two");
    EXPECT_EQ(sorted.json(), Json({"two", "ten"}));
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

// Every command with a table of rows, with words for its arguments on the scenario "lab".
struct Row {
    std::vector<std::string> words;
    const char* column;  // not the first one
};

const Row kLists[] = {
    {{"card", "list"}, "chip_type"},
    {{"card", "stats", "03:00.4"}, "value"},
    {{"port", "list", "04:00.4"}, "link_detected"},
    {{"port", "stats", "eth2"}, "value"},
    {{"offload", "show", "03:00.4"}, "unit"},
    {{"iwarp", "show", "iw_zfab4"}, "value"},
    {{"adapter", "list"}, "mac"},
    {{"module", "list"}, "version"},
    {{"vpd", "show", "04:00.4"}, "length_bytes"},
    {{"vm", "list"}, "state"},
    {{"vf", "list"}, "vf"},
    {{"bridge", "list", "web1"}, "mac"},
    {{"flash", "status"}, "state"},
    {{"history"}, "user"},
};

std::string name_of(const Row& row) {
    return row.words[0] + (row.words.size() == 1 ? "" : " " + row.words[1]);
}

// No change was made on the host.
bool is_empty(const Row& row) {
    return name_of(row) == "flash status" || name_of(row) == "history";
}

// Other texts around these tables.
bool is_alone(const Row& row) {
    return is_empty(row) || row.words[1] == "list" || row.words[0] == "iwarp";
}

// Columns of texts that JSON has in another form.
const std::set<std::string> kOnlyInTables = {
    "card list interfaces", "card list macs", "adapter list interfaces", "module list note",
    "vf list vf", "vpd show value", "port list location",
    // Of --watch.
    "card stats change", "port stats change", "card stats rate_per_second",
    "port stats rate_per_second", "card stats rate", "port stats rate"};

bool has_columns(const Command& command) { return !command.columns().empty(); }

TEST(Lists, AreAllInTheTable) {
    std::set<std::string> missing;
    for (const Command& command : commands()) {
        if (std::string_view(command.verb) == "list") {
            EXPECT_TRUE(has_columns(command)) << command.name();
        }
        if (has_columns(command)) {
            missing.insert(command.name());
        }
    }
    for (const Row& row : kLists) {
        missing.erase(name_of(row));
    }
    EXPECT_THAT(missing, testing::IsEmpty());
}

test::Result run_on_lab(std::vector<std::string> words, std::vector<std::string> more) {
    words.insert(words.begin(), "--sim=lab");
    words.insert(words.end(), more.begin(), more.end());
    return test::run(words);
}

// A line of titles, such as "COUNTER  VALUE".
bool is_heading(const std::string& line) {
    const auto is_of_title = [](unsigned char c) { return std::isupper(c) != 0 || c == ' '; };
    return line.find("  ") != line.npos && std::ranges::all_of(line, is_of_title);
}

// Commands that change something print the settings in the order of the command line. The tables of
// "flash info" and "flash config-show" are parts of a page.
TEST(Lists, AreAllTablesOfCommandsThatOnlyRead) {
    const test::ExampleDirectory directory;
    std::set<std::string> found;
    for (const Command& command : commands()) {
        if (!command.only_reads() || *command.verb == '\0' || has_columns(command)) {
            continue;
        }
        const test::Result result = run_on_lab(test::example_of(command), {});
        if (std::ranges::any_of(lines_of(result.out), is_heading)) {
            found.insert(command.name());
        }
    }
    EXPECT_THAT(found, testing::IsSubsetOf({"flash info", "flash config-show"}));
}

// The first array of objects in an answer has the rows.
nlohmann::json first_row(const nlohmann::json& answer) {
    for (const auto& [key, value] : answer.items()) {
        if (key != "ports" && value.is_array() && !value.empty()) {
            return value[0];
        }
    }
    return answer.contains("ports") ? answer["ports"][0] : nlohmann::json();
}

TEST(Lists, NameTheirColumnsAsJsonDoes) {
    for (const Row& row : kLists) {
        const auto answer = nlohmann::json::parse(run_on_lab(row.words, {"--json"}).out);
        for (const Command& command : commands()) {
            for (const Column& column : command.columns()) {
                const std::string name = command.name() + " " + column_name(column);
                if (command.name() == name_of(row) && !kOnlyInTables.contains(name) &&
                    !first_row(answer).is_null()) {
                    EXPECT_TRUE(first_row(answer).contains(column_name(column))) << name;
                }
            }
        }
    }
}

std::string without_blanks(const std::string& line) {
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    return line.substr(begin);
}

// The title of a row's column.
std::string title_of(const Row& row) {
    for (const Command& command : commands()) {
        for (const Column& column : command.columns()) {
            if (command.name() == name_of(row) && column_name(column) == row.column) {
                return column.title;
            }
        }
    }
    return "";
}

TEST(Lists, TakeColumnsAndAnOrder) {
    for (const Row& row : kLists) {
        const test::Result result =
            run_on_lab(row.words, {"--columns", row.column, "--sort", row.column});
        EXPECT_EQ(result.exit, 0) << row.words[0] << result.err;
        std::vector<std::string> lines = lines_of(result.out);
        const std::string title = title_of(row);
        const auto heading = std::ranges::find(lines, title, without_blanks);
        if (is_empty(row)) {
            continue;
        }
        ASSERT_NE(heading, lines.end()) << result.out;
        lines.erase(lines.begin(), heading);
        std::ranges::transform(lines, lines.begin(), without_blanks);
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
        if (!is_alone(row)) {
            continue;
        }
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
