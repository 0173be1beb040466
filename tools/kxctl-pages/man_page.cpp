// The parts of kxctl(8), kxctl-state(5) and kxportparams.conf(5), in the markup of scdoc(5).
#include <fmt/core.h>

#include "change/state_file.hpp"
#include "cli/command.hpp"
#include "cli/list.hpp"
#include "failure/exit_code.hpp"
#include "parts.hpp"
#include "settings/port_settings.hpp"

namespace kx::pages {
namespace {

using ctl::Argument;
using ctl::Command;
using ctl::Count;
using ctl::Term;

// A text, escaped so that it contains no markup.
std::string plain(std::string_view text) {
    constexpr std::string_view kMarkup = "\\*_`#[]|;~";
    std::string out;
    for (const char letter : text) {
        if (kMarkup.find(letter) != kMarkup.npos) {
            out += '\\';
        }
        out += letter;
    }
    return out;
}

std::string bold(std::string_view text) { return fmt::format("*{}*", plain(text)); }
std::string underlined(std::string_view text) { return fmt::format("_{}_", plain(text)); }

std::string sentence(std::string_view text) {
    return plain(text) + (text.ends_with('.') ? "" : ".");
}

std::string definition(const std::string& term, const std::string& explanation) {
    return fmt::format("{}\n\t{}\n\n", term, explanation);
}

// "*-j*, *--json*", "*--color* _WHEN_", "*--sim*[=_SCENARIO_]".
std::string option_term(const Argument& option) {
    std::string out;
    std::string_view names = option.name;
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(','), names.size());
        out += (out.empty() ? "" : ", ") + bold(names.substr(0, end));
        names.remove_prefix(std::min(end + 1, names.size()));
    }
    if (*option.value != '\0') {
        out += option.count == Count::kOptional ? fmt::format("\\[={}\\]", underlined(option.value))
                                                : " " + underlined(option.value);
    }
    return out;
}

std::string word_term(const Argument& word) {
    switch (word.count) {
        case Count::kOptional:
            return fmt::format("\\[{}\\]", underlined(word.name));
        case Count::kSeveral:
            return underlined(word.name) + "...";
        case Count::kOne:
            break;
    }
    return underlined(word.name);
}

std::string synopsis(const Command& command) {
    std::string options;
    std::string words;
    for (const Argument& argument : command.arguments) {
        if (argument.is_option()) {
            options += fmt::format(" \\[{}\\]", option_term(argument));
        } else {
            words += " " + word_term(argument);
        }
    }
    return bold("kxctl " + command.name()) + options + words;
}

std::string arguments(const Command& command) {
    std::string words;
    std::string options;
    for (const Argument& argument : command.arguments) {
        if (argument.is_option()) {
            options += definition(option_term(argument), sentence(argument.help));
        } else {
            words += definition(underlined(argument.name), sentence(argument.help));
        }
    }
    return words + options;
}

std::string settings(const Command& command) {
    if (command.settings().empty()) {
        return "";
    }
    std::string out = "Settings:\n\n";
    for (const Term& setting : command.settings()) {
        out += fmt::format("- {}: {}\n", bold(setting.word), plain(setting.meaning));
    }
    return out + "\n";
}

std::string columns(const Command& command) {
    std::string out;
    for (const ctl::Column& column : command.columns()) {
        out += (out.empty() ? "Columns: " : ", ") + bold(column_name(column));
    }
    return out.empty() ? "" : out + ".\n\n";
}

std::string examples(const Command& command) {
    std::string out = "Examples:\n\n```\n";
    for (const char* const example : command.examples) {
        out += fmt::format("{}\n", example);
    }
    return out + "```\n";
}

}  // namespace

std::string man_commands() {
    std::string out;
    for (const Command& command : ctl::commands()) {
        out += fmt::format(
            "{}## {}\n\n{}\n\n{}\n\n{}\n\n{}{}{}{}", out.empty() ? "" : "\n", command.name(),
            synopsis(command), sentence(command.help), plain(command.about), arguments(command),
            settings(command), columns(command), examples(command));
    }
    return out;
}

std::string man_options() {
    std::string out;
    for (const Argument& option : ctl::global_options()) {
        out += definition(option_term(option), sentence(option.help));
    }
    return out;
}

std::string man_exit_codes() {
    std::string out;
    for (const ctl::ExitCodeRow& row : ctl::exit_codes()) {
        out += definition(fmt::format("*{}*", static_cast<int>(row.code)), sentence(row.meaning));
    }
    return out;
}

std::string man_saved_settings() {
    std::string out;
    for (const ctl::Setting& setting : ctl::port_settings()) {
        if (*setting.saved_as != '\0') {
            out += definition(
                bold(setting.saved_as),
                fmt::format(
                    "{}: {}", bold(setting.key), sentence(setting.description_of_numbers())));
        }
    }
    return out;
}

std::string man_state_settings() {
    std::string out;
    for (const ctl::Setting& setting : ctl::port_settings()) {
        if (ctl::is_state(setting)) {
            out += definition(
                bold(setting.key),
                sentence(fmt::format("{}; {}", setting.description(), ctl::file_values(setting))));
        }
    }
    return out;
}

}  // namespace kx::pages
