#include "cli/help.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "cli/list.hpp"
#include "cli/plural.hpp"

namespace kx::ctl {
namespace {

constexpr std::size_t kWidth = 80;
constexpr std::size_t kIndent = 2;
constexpr std::size_t kColumnGap = 2;
constexpr std::size_t kWidestTerm = 30;  // the explanation of a longer term is on the next line

constexpr const char* kUsageOfTheProgram = "Usage: kxctl [OPTION...] NOUN [VERB] [ARGUMENT...]\n";

constexpr const char* kProgramExamples[] = {
    "kxctl card list",
    "kxctl --sim port list 03:00.4 --json",
};

// Break a text between words; every line except the first is indented.
std::string wrap(std::string_view text, std::size_t first_column, std::size_t indent) {
    std::string out;
    std::size_t column = first_column;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (column + end > kWidth && column > indent) {
            out.back() = '\n';
            out.append(indent, ' ');
            column = indent;
        }
        out += text.substr(0, end);
        out += ' ';
        column += end + 1;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (!out.empty()) {
        out.back() = '\n';
    }
    return out;
}

struct Entry {
    std::string term;
    std::string explanation;
};

// Terms in one column, their explanations in the other.
std::string section(const char* title, const std::vector<Entry>& entries) {
    std::size_t width = 0;
    for (const Entry& entry : entries) {
        if (entry.term.size() <= kWidestTerm) {
            width = std::max(width, entry.term.size());
        }
    }
    const std::size_t column = kIndent + width + kColumnGap;
    std::string out = entries.empty() ? "" : fmt::format("\n{}:\n", title);
    for (const Entry& entry : entries) {
        out += fmt::format("{:{}}{}", "", kIndent, entry.term);
        if (entry.term.size() > width) {
            out += fmt::format("\n{:{}}", "", column);
        } else {
            out.append(column - kIndent - entry.term.size(), ' ');
        }
        out += wrap(entry.explanation, column, column);
    }
    return out;
}

// "LOCATION", "[LOCATION]", "LOCATION...".
std::string positional_usage(const Argument& argument) {
    switch (argument.count) {
        case Count::kOptional:
            return fmt::format("[{}]", argument.name);
        case Count::kSeveral:
            return fmt::format("{}...", argument.name);
        case Count::kOne:
            break;
    }
    return argument.name;
}

// "-j, --json", "    --color WHEN", "    --sim[=SCENARIO]".
std::string option_usage(const Argument& argument) {
    std::string_view name = argument.name;
    std::string out = "    ";
    if (const std::size_t comma = name.find(','); comma != name.npos) {
        out = fmt::format("{}, ", name.substr(0, comma));
        name.remove_prefix(comma + 1);
    }
    out += name;
    if (*argument.value != '\0') {
        out += argument.count == Count::kOptional ? fmt::format("[={}]", argument.value)
                                                  : fmt::format(" {}", argument.value);
    }
    return out;
}

// "port list LOCATION"
std::string usage(const Command& command) {
    std::string out = command.name();
    const auto is_option = [](const Argument& argument) { return argument.is_option(); };
    if (std::ranges::any_of(command.arguments, is_option)) {
        out += " [OPTION...]";
    }
    for (const Argument& argument : command.arguments) {
        if (!argument.is_option()) {
            out += " " + positional_usage(argument);
        }
    }
    return out;
}

std::string command_section(std::string_view noun) {
    std::vector<Entry> entries;
    for (const Command& command : commands()) {
        if (noun.empty() || noun == command.noun) {
            entries.push_back({usage(command), command.help});
        }
    }
    return section("Commands", entries);
}

std::string argument_section(const Command& command) {
    std::vector<Entry> entries;
    for (const Argument& argument : command.arguments) {
        if (!argument.is_option()) {
            entries.push_back({argument.name, argument.help});
        }
    }
    return section("Arguments", entries);
}

std::string option_section(const char* title, std::span<const Argument> arguments) {
    std::vector<Entry> entries;
    for (const Argument& argument : arguments) {
        if (argument.is_option()) {
            entries.push_back({option_usage(argument), argument.help});
        }
    }
    return section(title, entries);
}

std::string exit_code_section() {
    std::vector<Entry> entries;
    for (const ExitCodeRow& row : exit_codes()) {
        entries.push_back({fmt::format("{:>2}", static_cast<int>(row.code)), row.meaning});
    }
    return section("Exit codes", entries);
}

std::string example_section(std::span<const char* const> examples) {
    std::string out = "\nExamples:\n";
    for (const char* example : examples) {
        out += fmt::format("  {}\n", example);
    }
    return out;
}

// A line that names the command for more help.
constexpr const char* kManualPage = "\nManual page: kxctl(8)\n";

std::string program_help() {
    return std::string(kUsageOfTheProgram) +
           "\nInspect and configure Kestrix network adapters and the drivers that run them.\n"
           "A card is served by a driver; an adapter is found on the PCI bus, with or\n"
           "without a driver.\n" +
           command_section("") +
           "\nA plural is short for the list: \"kxctl cards\" for \"kxctl card list\".\n" +
           option_section("Options", global_options()) + exit_code_section() +
           example_section(kProgramExamples) + kManualPage;
}

// "cards", when the noun has a list.
std::string plural_section(std::string_view noun) {
    std::string text;
    for (const Command& command : commands()) {
        if (const std::string plural = plural_of(command);
            noun == command.noun && !plural.empty()) {
            text =
                fmt::format("\n\"kxctl {}\" is short for \"kxctl {}\".\n", plural, command.name());
        }
    }
    return text;
}

std::string noun_help(const std::string& noun) {
    std::vector<const char*> examples;
    for (const Command& command : commands()) {
        if (noun == command.noun) {
            examples.insert(examples.end(), command.examples.begin(), command.examples.end());
        }
    }
    examples.resize(std::min<std::size_t>(examples.size(), 2));
    return fmt::format("Usage: kxctl [OPTION...] {} VERB [ARGUMENT...]\n", noun) +
           command_section(noun) + plural_section(noun) +
           option_section("Options", global_options()) + example_section(examples) + kManualPage;
}

std::string setting_section(const Command& command) {
    std::vector<Entry> entries;
    for (const Term& setting : command.settings()) {
        entries.push_back({setting.word, setting.meaning});
    }
    return section("Settings", entries);
}

// "  location, chip, ports"
std::string column_section(const Command& command) {
    std::string names;
    for (const Column& column : command.columns()) {
        names += fmt::format("{}{}", names.empty() ? "" : ", ", column_name(column));
    }
    return names.empty() ? "" : fmt::format("\nColumns:\n  {}", wrap(names, kIndent, kIndent));
}

std::string command_help(const Command& command) {
    return fmt::format("Usage: kxctl [OPTION...] {}\n\n", usage(command)) +
           wrap(fmt::format("{}.", command.help), 0, 0) + "\n" + wrap(command.about, 0, 0) +
           argument_section(command) + setting_section(command) + column_section(command) +
           option_section("Options of this command", command.arguments) +
           option_section("Options of all commands", global_options()) +
           example_section(command.examples) + kManualPage;
}

const char* count_name(const Argument& argument) {
    switch (argument.count) {
        case Count::kOptional:
            return "optional";
        case Count::kSeveral:
            return "several";
        case Count::kOne:
            break;
    }
    return "one";
}

Json to_json(std::span<const Argument> arguments) {
    Json all = Json::array();
    for (const Argument& argument : arguments) {
        all.push_back(
            {{"name", argument.name},
             {"help", argument.help},
             {"value", *argument.value == '\0' ? Json() : Json(argument.value)},
             {"count", count_name(argument)},
             {"choices", argument.choices}});
    }
    return all;
}

Json to_json(const Command& command) {
    Json settings = Json::array();
    for (const Term& setting : command.settings()) {
        settings.push_back({{"key", setting.word}, {"help", setting.meaning}});
    }
    return {
        {"noun", command.noun},
        {"verb", command.verb},
        {"help", command.help},
        {"about", command.about},
        {"arguments", to_json(command.arguments)},
        {"settings", settings},
        {"examples", command.examples}};
}

}  // namespace

std::string help_text(const Invocation& invocation) {
    if (invocation.command != nullptr) {
        return command_help(*invocation.command);
    }
    return invocation.noun.empty() ? program_help() : noun_help(invocation.noun);
}

Json help_json(const Invocation& invocation) {
    Json wanted = Json::array();
    for (const Command& command : commands()) {
        const bool of_noun = invocation.noun.empty() || invocation.noun == command.noun;
        if (invocation.command == nullptr ? of_noun : invocation.command == &command) {
            wanted.push_back(to_json(command));
        }
    }
    return {{"commands", wanted}, {"options", to_json(global_options())}};
}

void print_help(const Invocation& invocation, Output& output) {
    if (output.wants_json()) {
        output.json(help_json(invocation));
    } else {
        output.text(help_text(invocation));
    }
}

std::string short_usage() {
    std::string nouns;
    const char* last = "";
    for (const Command& command : commands()) {
        if (std::string_view(command.noun) != last) {
            last = command.noun;
            nouns += fmt::format("{}{}", nouns.empty() ? "" : ", ", last);
        }
    }
    constexpr std::string_view kTitle = "Nouns: ";
    return fmt::format(
        "{}{}{}Try \"kxctl card list\", or \"kxctl --sim card list\" on a simulated host.\n"
        "\"kxctl help\" shows all commands, \"kxctl help NOUN VERB\" one of them.\n",
        kUsageOfTheProgram, kTitle, wrap(nouns, kTitle.size(), kTitle.size()));
}

}  // namespace kx::ctl
