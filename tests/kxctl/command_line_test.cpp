// Command lines that need no adapter, half of them wrong on purpose.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kxctl/process.hpp"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;

struct Row {
    std::vector<const char*> words;
    int exit;
    const char* out;  // what standard output begins with; "" for nothing at all
    const char* err;  // all of standard error
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    stream << "kxctl";
    for (const char* word : row.words) {
        stream << ' ' << word;
    }
    return stream;
}

constexpr const char* kVersions = "kxctl          6.2\nlibkxlinhw     6.2\n";

const Row kRows[] = {
    // done
    {{"version"}, 0, kVersions, ""},
    {{"-v", "version"}, 0, kVersions, ""},
    {{"version", "-v"}, 0, kVersions, ""},
    {{"version", "--color", "never"}, 0, kVersions, ""},
    {{"--color=auto", "version"}, 0, kVersions, ""},
    {{"version", "--color", "always", "--color", "never"}, 0, kVersions, ""},
    {{"version", "--"}, 0, kVersions, ""},
    {{"-j", "version", "--"}, 0, "{\n  \"kxctl\"", ""},
    {{"version", "-j"}, 0, "{\n  \"kxctl\"", ""},
    {{"version", "--json"}, 0, "{\n  \"kxctl\"", ""},
    {{"-jv", "version"}, 0, "{\n  \"kxctl\"", ""},
    {{"-j", "-j", "version"}, 0, "{\n  \"kxctl\"", ""},
    {{"--version"}, 0, "kxctl 6.2\n", ""},
    {{"card", "list", "--version"}, 0, "kxctl 6.2\n", ""},
    {{"-j", "--version"}, 0, "{\n  \"kxctl\"", ""},
    {{"--help"}, 0, "Usage: kxctl [OPTION...] NOUN [VERB] [ARGUMENT...]\n", ""},
    {{"-h"}, 0, "Usage: kxctl [OPTION...] NOUN [VERB] [ARGUMENT...]\n", ""},
    {{"--sim", "--help"}, 0, "Usage: kxctl [OPTION...] NOUN", ""},
    {{"card", "--help"}, 0, "Usage: kxctl [OPTION...] card VERB [ARGUMENT...]\n", ""},
    {{"card", "list", "--help"}, 0, "Usage: kxctl [OPTION...] card list [OPTION...]\n", ""},
    {{"--help", "card", "list"}, 0, "Usage: kxctl [OPTION...] card list [OPTION...]\n", ""},
    {{"port", "list", "-h"}, 0, "Usage: kxctl [OPTION...] port list [OPTION...] LOCATION\n", ""},
    {{"module", "list", "-vh"}, 0, "Usage: kxctl [OPTION...] module list [OPTION...]\n", ""},
    {{"flash", "write-boot", "-h"},
     0,
     "Usage: kxctl [OPTION...] flash write-boot [OPTION...] LOCATION FILE\n",
     ""},
    {{"flash", "--help"}, 0, "Usage: kxctl [OPTION...] flash VERB [ARGUMENT...]\n", ""},
    {{"version", "-h"}, 0, "Usage: kxctl [OPTION...] version\n", ""},
    {{"help"}, 0, "Usage: kxctl [OPTION...] NOUN [VERB] [ARGUMENT...]\n", ""},
    {{"help", "port"}, 0, "Usage: kxctl [OPTION...] port VERB [ARGUMENT...]\n", ""},
    {{"help", "port", "list"}, 0, "Usage: kxctl [OPTION...] port list", ""},
    {{"help", "help"}, 0, "Usage: kxctl [OPTION...] help [NOUN] [VERB]\n", ""},
    {{"help", "--json"}, 0, "{\n  \"commands\"", ""},
    {{"--help", "--json"}, 0, "{\n  \"commands\"", ""},
    // wrong
    {{""}, 2, "", "kxctl: Unknown command  (see --help)\n"},
    {{"crad", "list"}, 2, "", "kxctl: Unknown command crad; did you mean card? (see --help)\n"},
    {{"crad", "--help"}, 2, "", "kxctl: Unknown command crad; did you mean card? (see --help)\n"},
    {{"list", "card"}, 2, "", "kxctl: Unknown command list (see --help)\n"},
    {{"Card", "list"}, 2, "", "kxctl: Unknown command Card; did you mean card? (see --help)\n"},
    {{"\033[2J"}, 2, "", "kxctl: Unknown command \uFFFD[2J (see --help)\n"},
    {{"help", "prot"}, 2, "", "kxctl: Unknown command prot; did you mean port? (see --help)\n"},
    {{"help", "port", "lisst"},
     2,
     "",
     "kxctl: port knows list, show, stats, set, not lisst; did you mean list? (see --help)\n"},
    {{"help", "port", "list", "x"}, 2, "", "kxctl: help does not take x (see --help)\n"},
    {{"--verion"}, 2, "", "kxctl: Unknown option --verion; did you mean --version? (see --help)\n"},
    {{"version", "--colour=never"},
     2,
     "",
     "kxctl: version does not take --colour=never; did you mean --color? (see --help)\n"},
    {{"flash", "dump", "03:00.4", "x", "--region", "bot"},
     2,
     "",
     "kxctl: flash dump: --region: bot is not one of boot, config, firmware, all; did you mean "
     "boot? "
     "(see --help)\n"},
    {{"port", "set", "03:00.4", "1", "mut=9000"},
     2,
     "",
     "kxctl: Unknown setting mut; did you mean mtu? (see --help)\n"},
    {{"--bogus"}, 2, "", "kxctl: Unknown option --bogus (see --help)\n"},
    {{"-x", "card", "list"}, 2, "", "kxctl: card list does not take -x (see --help)\n"},
    {{"card"}, 2, "", "kxctl: card needs a verb: list, stats (see --help)\n"},
    {{"card", "lst"},
     2,
     "",
     "kxctl: card knows list, stats, not lst; did you mean list? (see --help)\n"},
    {{"card", "--all"}, 2, "", "kxctl: Unknown option --all (see --help)\n"},
    {{"card", "list", "03:00.4"}, 2, "", "kxctl: card list does not take 03:00.4 (see --help)\n"},
    {{"card", "list", "port", "list"}, 2, "", "kxctl: card list does not take port (see --help)\n"},
    {{"card", "list", "list"}, 2, "", "kxctl: card list does not take list (see --help)\n"},
    {{"version", "--", "x"}, 2, "", "kxctl: version does not take x (see --help)\n"},
    {{"port", "list", "--", "-x", "-y"}, 2, "", "kxctl: port list does not take -y (see --help)\n"},
    {{"port", "list"}, 2, "", "kxctl: port list: LOCATION is required (see --help)\n"},
    {{"port", "list", "--all"}, 2, "", "kxctl: port list does not take --all (see --help)\n"},
    {{"port", "list", "a", "b"}, 2, "", "kxctl: port list does not take b (see --help)\n"},
    {{"adapter", "show", "-h"}, 0, "Usage: kxctl [OPTION...] adapter show LOCATION\n", ""},
    {{"vpd", "--help"}, 0, "Usage: kxctl [OPTION...] vpd VERB [ARGUMENT...]\n", ""},
    {{"adapter"}, 2, "", "kxctl: adapter needs a verb: list, show (see --help)\n"},
    {{"adapter", "show"}, 2, "", "kxctl: adapter show: LOCATION is required (see --help)\n"},
    {{"adapter", "list", "03:00.4"},
     2,
     "",
     "kxctl: adapter list does not take 03:00.4 (see --help)\n"},
    {{"vpd"}, 2, "", "kxctl: vpd needs a verb: show (see --help)\n"},
    {{"vpd", "list"}, 2, "", "kxctl: vpd knows show, not list (see --help)\n"},
    {{"vpd", "show"}, 2, "", "kxctl: vpd show: LOCATION is required (see --help)\n"},
    {{"vm"},
     2,
     "",
     "kxctl: vm needs a verb: list, start, suspend, resume, reboot, shutdown (see --help)\n"},
    {{"vm", "start"}, 2, "", "kxctl: vm start: VM is required (see --help)\n"},
    {{"vm", "list", "web1"}, 2, "", "kxctl: vm list does not take web1 (see --help)\n"},
    {{"vf", "grab"}, 2, "", "kxctl: vf knows list, attach, detach, not grab (see --help)\n"},
    {{"vf", "attach", "web1"}, 2, "", "kxctl: vf attach: VF is required (see --help)\n"},
    {{"vf", "attach", "web1", "4"}, 2, "", "kxctl: VF is 4, expected a location such as 04:01.2\n"},
    {{"bridge", "list"}, 2, "", "kxctl: bridge list: VM is required (see --help)\n"},
    {{"bridge", "attach", "web1"},
     2,
     "",
     "kxctl: bridge attach: BRIDGE is required (see --help)\n"},
    {{"version", "show"}, 2, "", "kxctl: version does not take show (see --help)\n"},
    {{"version", "--color"}, 2, "", "kxctl: version: --color needs a value, WHEN (see --help)\n"},
    {{"version", "--color", "green"},
     2,
     "",
     "kxctl: version: --color: green is not one of auto, always, never (see --help)\n"},
    {{"version", "--json=no"}, 2, "", "kxctl: version: --json takes no value (see --help)\n"},
    {{"version", "--verbos"},
     2,
     "",
     "kxctl: version does not take --verbos; did you mean --verbose? (see --help)\n"},
    {{"metrics", "--help"}, 0, "Usage: kxctl [OPTION...] metrics [OPTION...]\n", ""},
    {{"metrics", "list"}, 2, "", "kxctl: metrics does not take list (see --help)\n"},
    {{"metrics", "--output"}, 2, "", "kxctl: metrics: --output needs a value, FILE (see --help)\n"},
    {{"report"}, 2, "", "kxctl: report: expected --html FILE (see --help)\n"},
    {{"restore", "--no-wait", "--wait", "1"},
     2,
     "",
     "kxctl: --no-wait and --wait exclude each other (see --help)\n"},
    {{"flash"},
     2,
     "",
     "kxctl: flash needs a verb: info, dump, verify, write-boot, erase-boot, config-show, "
     "config-default, config-erase, config-write, recover, status (see --help)\n"},
    {{"flash", "info"}, 2, "", "kxctl: flash info: LOCATION is required (see --help)\n"},
    {{"flash", "dump", "03:00.4"}, 2, "", "kxctl: flash dump: FILE is required (see --help)\n"},
    {{"flash", "dump", "03:00.4", "x", "--region", "vpd"},
     2,
     "",
     "kxctl: flash dump: --region: vpd is not one of boot, config, firmware, all (see --help)\n"},
    {{"flash", "config-default", "03:00.4", "--ports", "5"},
     2,
     "",
     "kxctl: flash config-default: --ports: 5 is not one of 1, 2, 3, 4 (see --help)\n"},
    {{"flash", "erase-boot", "03:00.4", "--yes", "--backup"},
     2,
     "",
     "kxctl: flash erase-boot: --backup needs a value, FILE (see --help)\n"},
    {{"flash", "erase-boot", "03:00.4"},
     2,
     "",
     "kxctl: flash erase-boot asks for a confirmation, but there is no terminal (use --yes)\n"},
    {{"flash", "erase-boot", "03:00.4", "--yes", "--backup", "x", "--no-backup"},
     2,
     "",
     "kxctl: flash erase-boot: --backup and --no-backup exclude each other\n"},
    {{"flash", "write-boot", "03:00.4", "/dev/null", "--yes"},
     2,
     "",
     "kxctl: /dev/null is not a file of bytes\n"},
    {{"--sim=", "version"}, 2, "", "kxctl: --sim= names no scenario\n"},
};

class CommandLine : public testing::TestWithParam<Row> {};

TEST_P(CommandLine, AnswersAsItsRowSays) {
    const Row& row = GetParam();
    const test::Result result = test::run({row.words.begin(), row.words.end()});
    EXPECT_EQ(result.exit, row.exit);
    EXPECT_EQ(result.err, row.err);
    if (*row.out == '\0') {
        EXPECT_EQ(result.out, "");
    } else {
        EXPECT_THAT(result.out, StartsWith(row.out));
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, CommandLine, testing::ValuesIn(kRows));

// Every wrong line again with --json: the same text and exit code as JSON.
class WrongCommandLine : public testing::TestWithParam<Row> {};

TEST_P(WrongCommandLine, IsReportedAsJsonWhenAsked) {
    std::vector<std::string> words = {GetParam().words.begin(), GetParam().words.end()};
    words.insert(words.begin(), "-j");
    const test::Result result = test::run(words);
    const Json reply = Json::parse(result.out);
    ASSERT_EQ(reply.size(), 1U);
    const Json& error = reply.at("error");
    EXPECT_EQ(error.size(), 4U);
    EXPECT_EQ(result.exit, 2);
    EXPECT_EQ(error.at("code"), 2);
    EXPECT_TRUE(error.at("status").is_null());
    EXPECT_EQ(error.at("detail"), Json::array());
    EXPECT_FALSE(error.at("text").get<std::string>().empty());
    EXPECT_EQ(result.err, GetParam().err);
}

std::vector<Row> wrong_rows() {
    std::vector<Row> rows;
    for (const Row& row : kRows) {
        if (row.exit != 0) {
            rows.push_back(row);
        }
    }
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Rows, WrongCommandLine, testing::ValuesIn(wrong_rows()));

TEST(WrongCommandLines, AreAboutHalfOfTheRows) {
    EXPECT_GE(wrong_rows().size() * 2, std::size(kRows));
}

TEST(NoCommand, IsAnsweredWithAShortUsage) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{}, {"-v"}, {"--sim"}, {"--", "version"}}) {
        const test::Result result = test::run(words);
        EXPECT_EQ(result.exit, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("Usage: kxctl [OPTION...] NOUN [VERB] [ARGUMENT...]\n"));
        EXPECT_THAT(result.err, HasSubstr("Nouns: card, port, "));
        EXPECT_LE(std::ranges::count(result.err, '\n'), 6);
    }
    const test::Result json = test::run({"-j"});
    EXPECT_EQ(json.exit, 2);
    EXPECT_EQ(Json::parse(json.out).at("error").at("text"), "No command given (see --help)");
}

TEST(Help, IsTheSameByWordAndByOption) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{}, {"port"}, {"port", "list"}, {"flash", "write-boot"}}) {
        std::vector<std::string> by_word = words;
        by_word.insert(by_word.begin(), "help");
        std::vector<std::string> by_option = words;
        by_option.emplace_back("--help");
        EXPECT_EQ(test::run(by_word).out, test::run(by_option).out);
        by_word.emplace_back("--json");
        by_option.emplace_back("--json");
        EXPECT_EQ(test::run(by_word).out, test::run(by_option).out);
    }
}

TEST(JsonOption, BehindTheEndOfOptionsIsAWordLikeAnyOther) {
    const test::Result result = test::run({"card", "list", "--", "-j"});
    EXPECT_EQ(result.exit, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("does not take -j"));
}

TEST(Version, TellsTheLibrarysOwnVersionAsJson) {
    const test::Result result = test::run({"version", "--json"});
    const Json reply = Json::parse(result.out);
    EXPECT_EQ(reply.at("kxctl"), Json({{"version", "6.2"}}));
    EXPECT_EQ(
        reply.at("library"),
        Json({{"name", "libkxlinhw"}, {"version", "6.2"}, {"version_word", 0x00060002}}));
    EXPECT_EQ(reply.at("pci_vendor_id"), KXLINHW_PCI_VENDOR_ID);
    EXPECT_EQ(reply.size(), 3U);
}

}  // namespace
