// The command table as a table, and the help that is made from it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string_view>

#include "cli/command_line.hpp"
#include "cli/help.hpp"
#include "cli/plural.hpp"
#include "cli/simulation.hpp"
#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "kxctl/every_command.hpp"
#include "output/printable.hpp"

namespace {

using namespace kx::ctl;
using test::words_of;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// "-j,--json" and the like as its single names.
std::vector<std::string> names_of(const Argument& argument) {
    std::vector<std::string> names;
    std::istringstream stream(argument.name);
    for (std::string name; std::getline(stream, name, ',');) {
        names.push_back(name);
    }
    return names;
}

class EveryCommand : public testing::TestWithParam<const Command*> {
protected:
    const Command& command_ = *GetParam();
};

TEST_P(EveryCommand, IsDescribed) {
    EXPECT_STRNE(command_.noun, "");
    EXPECT_STRNE(command_.help, "");
    EXPECT_THAT(command_.help, Not(EndsWith(".")));
    EXPECT_THAT(command_.about, EndsWith("."));
    EXPECT_NE(command_.run, nullptr);
    for (const Argument& argument : command_.arguments) {
        EXPECT_STRNE(argument.help, "") << argument.name;
    }
}

TEST_P(EveryCommand, TakesEachArgumentOnce) {
    std::set<std::string> names;
    for (const Argument& argument : global_options()) {
        for (const std::string& name : names_of(argument)) {
            EXPECT_TRUE(names.insert(name).second) << name;
        }
    }
    for (const Argument& argument : command_.arguments) {
        for (const std::string& name : names_of(argument)) {
            EXPECT_TRUE(names.insert(name).second) << name;
        }
    }
}

// Only settings may follow an optional word: no other word has an equals sign.
TEST_P(EveryCommand, HasOnlyItsLastWordsOptionalOrRepeated) {
    Count before = Count::kOne;
    for (const Argument& argument : command_.arguments) {
        if (!argument.is_option()) {
            const bool is_setting = std::string_view(argument.name) == "KEY=VALUE";
            EXPECT_TRUE(
                before == Count::kOne || argument.count == Count::kOptional ||
                (before == Count::kOptional && is_setting))
                << argument.name;
            EXPECT_NE(before, Count::kSeveral) << argument.name;
            before = argument.count;
        }
    }
}

TEST_P(EveryCommand, HasTwoExamplesThatParse) {
    ASSERT_EQ(command_.examples.size(), 2U);
    for (const char* example : command_.examples) {
        std::vector<std::string> words = words_of(example);
        ASSERT_EQ(words.at(0), "kxctl") << example;
        words.erase(words.begin());
        const Invocation invocation = parse(take_simulation(words).words);
        EXPECT_EQ(invocation.command, &command_) << example;
    }
}

TEST_P(EveryCommand, PrintsItsOwnHelp) {
    std::vector<std::string> words = words_of(command_.name());
    words.emplace_back("--help");
    const test::Result result = test::run(words);
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr("kxctl [OPTION...] " + command_.name()));
    EXPECT_THAT(result.out, HasSubstr(std::string(command_.help) + "."));
    for (const char* example : command_.examples) {
        EXPECT_THAT(result.out, HasSubstr(std::string("\n  ") + example + "\n"));
    }
    for (const Argument& argument : command_.arguments) {
        EXPECT_THAT(result.out, HasSubstr(names_of(argument).back()));
    }
}

TEST_P(EveryCommand, PrintsItsOwnHelpForTheWordHelpToo) {
    std::vector<std::string> words = words_of("help " + command_.name());
    const test::Result result = test::run(words);
    EXPECT_EQ(result.exit, 0);
    words.erase(words.begin());
    words.emplace_back("--help");
    EXPECT_EQ(result.out, test::run(words).out);
}

TEST_P(EveryCommand, IsMeantByThePluralOfItsNounWhenItIsAList) {
    const std::string plural = plural_of(command_);
    ASSERT_EQ(plural.empty(), std::string_view(command_.verb) != "list");
    if (plural.empty()) {
        return;
    }
    std::vector<std::string> words = words_of(command_.examples[0]);
    words.erase(words.begin(), words.begin() + 3);  // "kxctl card list"
    words.insert(words.begin(), {"--color", "never", plural});
    words.emplace_back("--json");
    EXPECT_EQ(parse(words).command, &command_);
    words.insert(words.begin() + 3, "list");
    EXPECT_EQ(parse(words).command, &command_);
    const std::string use = "\n\"kxctl " + plural + "\" is short for \"kxctl " + command_.name();
    EXPECT_THAT(test::run({command_.noun, "--help"}).out, HasSubstr(use));
    EXPECT_EQ(test::run({"help", plural}).out, test::run({command_.noun, "list", "--help"}).out);
}

INSTANTIATE_TEST_SUITE_P(
    Table, EveryCommand, testing::ValuesIn(test::all_commands()), test::name_of_command);

TEST(CommandTable, NamesEachCommandOnceAndKeepsNounsTogether) {
    std::set<std::string> names;
    std::set<std::string> nouns;
    std::string last;
    for (const Command& command : commands()) {
        EXPECT_TRUE(names.insert(command.name()).second) << command.name();
        if (command.noun != last) {
            EXPECT_TRUE(nouns.insert(command.noun).second) << command.noun;
            last = command.noun;
        }
    }
}

// Otherwise their order in the help would depend on how the program is linked.
TEST(CommandTable, GivesNoTwoPartsTheSamePlace) {
    std::set<int> places;
    for (const TablePart* const part : TablePart::all()) {
        ASSERT_FALSE(part->rows().empty());
        EXPECT_TRUE(places.insert(part->place()).second)
            << part->rows()[0].name() << " at " << part->place();
    }
}

TEST(CommandTable, HasNoNounThatIsBothACommandAndAGroup) {
    for (const Command& command : commands()) {
        for (const Command& other : commands()) {
            if (*command.verb == '\0' && &command != &other) {
                EXPECT_STRNE(command.noun, other.noun);
            }
        }
    }
}

// Every help text there is: of the program, of each noun, of each command.
std::vector<std::string> all_helps() {
    std::vector<std::string> helps = {help_text({})};
    for (const Command& command : commands()) {
        Invocation invocation;
        invocation.noun = command.noun;
        helps.push_back(help_text(invocation));
        invocation.command = &command;
        helps.push_back(help_text(invocation));
    }
    return helps;
}

TEST(Help, FitsEightyColumnsAndLeavesNoBlankAtALinesEnd) {
    for (const std::string& help : all_helps()) {
        std::istringstream stream(help);
        for (std::string line; std::getline(stream, line);) {
            EXPECT_LE(display_width(line), 80U) << line;
            EXPECT_THAT(line, Not(EndsWith(" ")));
        }
    }
}

TEST(Help, EndsInTwoExamplesAndTheManualPage) {
    constexpr std::string_view kEnd = "\n\nManual page: kxctl(8)\n";
    for (const std::string& help : all_helps()) {
        ASSERT_THAT(help, EndsWith(kEnd));
        const std::size_t at = help.find("\nExamples:\n");
        ASSERT_NE(at, help.npos) << help;
        const std::string examples = help.substr(at);
        EXPECT_EQ(std::count(examples.begin(), examples.end(), '\n'), 6) << help;
    }
}

// A text without its line breaks: long lines of the help go on in the next one.
std::string unwrapped(const std::string& text) {
    std::istringstream words(text);
    std::string line;
    for (std::string word; words >> word;) {
        line += line.empty() ? word : " " + word;
    }
    return line;
}

TEST(Help, OfTheProgramNamesEveryCommandOptionAndExitCode) {
    const std::string help = help_text({});
    for (const Command& command : commands()) {
        EXPECT_THAT(help, HasSubstr("\n  " + command.name()));
        EXPECT_THAT(unwrapped(help), HasSubstr(command.help));
    }
    for (const Argument& option : global_options()) {
        for (const std::string& name : names_of(option)) {
            EXPECT_THAT(help, HasSubstr(name));
        }
    }
    for (const ExitCodeRow& row : exit_codes()) {
        EXPECT_THAT(
            help, HasSubstr(std::to_string(static_cast<int>(row.code)) + "  " + row.meaning));
    }
}

TEST(Help, AsDataHoldsTheRowsOfTheTable) {
    const Json all = help_json({});
    ASSERT_EQ(all.at("commands").size(), commands().size());
    EXPECT_EQ(all.at("options").size(), global_options().size());
    for (std::size_t k = 0; k < commands().size(); ++k) {
        const Json& row = all.at("commands").at(k);
        const Command& command = commands()[k];
        EXPECT_EQ(row.at("noun"), command.noun);
        EXPECT_EQ(row.at("verb"), command.verb);
        EXPECT_EQ(row.at("help"), command.help);
        EXPECT_EQ(row.at("about"), command.about);
        EXPECT_EQ(row.at("examples").size(), 2U);
        ASSERT_EQ(row.at("arguments").size(), command.arguments.size());
        for (std::size_t n = 0; n < command.arguments.size(); ++n) {
            EXPECT_EQ(row.at("arguments").at(n).at("name"), command.arguments[n].name);
        }
    }
}

TEST(Help, AsDataOfANounHoldsItsCommandsOnly) {
    Invocation invocation;
    invocation.noun = "port";
    const Json help = help_json(invocation);
    for (const Json& row : help.at("commands")) {
        EXPECT_EQ(row.at("noun"), "port");
    }
    invocation.command = &commands()[0];
    EXPECT_EQ(help_json(invocation).at("commands").size(), 1U);
}

TEST(GlobalOptions, AreTakenBehindEveryCommand) {
    for (const Command& command : commands()) {
        std::vector<std::string> words = words_of(command.name());
        for (const Argument& argument : command.arguments) {
            if (!argument.is_option()) {
                words.emplace_back(argument.choices.empty() ? "1" : argument.choices[0]);
            }
        }
        for (const Argument& option : global_options()) {
            for (const std::string& name : names_of(option)) {
                std::vector<std::string> with_option = words;
                with_option.push_back(name);
                if (*option.value != '\0' && option.count != Count::kOptional) {
                    with_option.push_back(option.choices.at(0));
                }
                EXPECT_NO_THROW(static_cast<void>(parse(take_simulation(with_option).words)))
                    << command.name() << name;
            }
        }
    }
}

TEST(Plurals, TakeTheirOtherVerbs) {
    EXPECT_EQ(parse(words_of("ports stats eth2")).command->name(), "port stats");
    EXPECT_EQ(test::run({"--sim", "cards"}).out, test::run({"--sim=lab", "card", "list"}).out);
    for (const char* line : {"flashs", "metricss", "cardss", "card lists"}) {
        EXPECT_THROW(static_cast<void>(parse(words_of(line))), Failure) << line;
    }
}

TEST(CommandTable, KeepsNothingOfTheLineBefore) {
    for (const char* before :
         {"card list --help", "port set 03:00.4 1 mtu=9000 --json", "card nothing", "--", "port"}) {
        try {
            static_cast<void>(parse(words_of(before)));
        } catch (const Failure&) {
        }
        const Invocation invocation = parse(words_of("port list 03:00.4 -v"));
        EXPECT_EQ(invocation.action, Action::kRun) << before;
        EXPECT_EQ(invocation.command->name(), "port list") << before;
        EXPECT_EQ(invocation.arguments.all("LOCATION").size(), 1U) << before;
        EXPECT_EQ(invocation.arguments.get("LOCATION"), "03:00.4") << before;
        EXPECT_FALSE(invocation.options.has("--json")) << before;
    }
}

}  // namespace
