// The only file that uses the argument parser library.
#include "cli/command_line.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <string_view>

#include "cli/plural.hpp"
#include "cli/suggestion.hpp"
#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

constexpr const char* kHelp = "-h,--help";
constexpr const char* kVersion = "--version";

// An optional word in front of KEY=VALUE is not one of those.
std::string refuse_setting(const std::string& word) {
    return word.find('=') == word.npos ? "" : word + " is a setting";
}

// The complaint about a value that is not one of the choices; empty when there is nothing to
// complain about.
std::string wrong_choice(const Argument& argument, const std::string& value) {
    std::string_view rest = value;
    do {
        const std::size_t comma = argument.is_list ? rest.find(',') : rest.npos;
        const std::string_view word = rest.substr(0, comma);
        if (std::ranges::find(argument.choices, word) == argument.choices.end()) {
            return fmt::format(
                "{} is not one of {}{}", word, fmt::join(argument.choices, ", "),
                did_you_mean(word, argument.choices));
        }
        rest.remove_prefix(comma == rest.npos ? rest.size() : comma + 1);
    } while (!rest.empty());
    return "";
}

CLI::Option* register_argument(CLI::App& app, const Argument& argument) {
    if (argument.is_option() && *argument.value == '\0') {
        return app.add_flag(argument.name)->disable_flag_override();
    }
    CLI::Option* const option = app.add_option(argument.name)->type_name(argument.value);
    if (argument.count == Count::kSeveral) {
        option->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
    } else if (argument.is_option()) {
        option->take_last();
    }
    option->required(!argument.is_option() && argument.count != Count::kOptional);
    if (!argument.choices.empty()) {
        option->check(
            [&argument](const std::string& value) { return wrong_choice(argument, value); });
    }
    return option;
}

// The options and positional words of an app.
Arguments given(const CLI::App& app) {
    Arguments arguments;
    for (const CLI::Option* option : app.get_options()) {
        if (option->count() > 0) {
            arguments.add(option->get_name(), option->results());
        }
    }
    return arguments;
}

// The parser's tree: the program, the nouns and verbs that the words may mean, and their arguments.
// The whole table would take longer than loading the program. Options of all commands belong to the
// program and may appear anywhere.
class Tree {
public:
    explicit Tree(const std::vector<std::string>& words) : words_(words) {
        root_.require_subcommand(0, 1);
        root_.allow_extras();
        root_.prefix_command();  // nothing is parsed after an unknown word
        for (const Argument& option : global_options()) {
            if (std::string_view(option.name) != kHelp) {
                add_argument(root_, option, false);
            }
        }
        for (const Command& command : commands()) {
            add(command);
        }
    }

    CLI::App& root() { return root_; }

    // What was parsed so far, also when the parser failed.
    Invocation result() const {
        Invocation invocation;
        invocation.options = given(root_);
        if (const CLI::App* const noun = chosen(root_)) {
            invocation.noun = noun->get_name();
            const CLI::App* const verb = chosen(*noun);
            const CLI::App* const leaf = verb == nullptr ? noun : verb;
            if (const auto found = leaves_.find(leaf); found != leaves_.end()) {
                invocation.command = found->second;
                invocation.arguments = given(*leaf);
            }
        }
        return invocation;
    }

private:
    bool has_word(std::string_view word) const {
        return std::ranges::find(words_, word) != words_.end();
    }

    bool has_options() const {
        return std::ranges::any_of(
            words_, [](std::string_view word) { return word.starts_with('-'); });
    }

    static const CLI::App* chosen(const CLI::App& app) {
        const std::vector<CLI::App*> parsed = app.get_subcommands();
        return parsed.empty() ? nullptr : parsed.front();
    }

    static CLI::App& add_word(CLI::App& parent, const std::string& word) {
        CLI::App& app = *parent.add_subcommand(word);
        app.fallthrough();
        app.require_subcommand(0, 1);
        return app;
    }

    CLI::App& noun_app(const std::string& noun) {
        CLI::App*& app = nouns_[noun];
        if (app == nullptr) {
            app = &add_word(root_, noun);
        }
        return *app;
    }

    void add_argument(CLI::App& app, const Argument& argument, bool before_settings) const {
        if (argument.is_option() && !has_options_) {
            return;
        }
        CLI::Option* const option = register_argument(app, argument);
        if (before_settings && argument.count == Count::kOptional) {
            option->check(refuse_setting);
        }
    }

    void add(const Command& command) {
        if (!has_word(command.noun)) {
            return;
        }
        CLI::App& noun = noun_app(command.noun);
        const bool has_verb = *command.verb != '\0';
        if (has_verb && !has_word(command.verb)) {
            return;
        }
        CLI::App& leaf = has_verb ? add_word(noun, command.verb) : noun;
        leaves_.emplace(&leaf, &command);
        for (const Argument& argument : command.arguments) {
            add_argument(leaf, argument, command.settings != no_terms);
        }
        leaf.validate_positionals();  // a word that an argument refuses may be the next argument
    }

    const std::vector<std::string>& words_;
    const bool has_options_ = has_options();
    CLI::App root_;
    std::map<std::string, CLI::App*> nouns_;
    std::map<const CLI::App*, const Command*> leaves_;
};

std::vector<std::string> nouns() {
    std::vector<std::string> nouns;
    for (const Command& command : commands()) {
        if (nouns.empty() || nouns.back() != command.noun) {
            nouns.emplace_back(command.noun);
        }
    }
    return nouns;
}

std::vector<std::string> verbs_of(std::string_view noun) {
    std::vector<std::string> verbs;
    for (const Command& command : commands()) {
        if (noun == command.noun) {
            verbs.emplace_back(command.verb);
        }
    }
    return verbs;
}

// The names of all options that a command takes, with their dashes; without a command, of those
// that every command takes.
std::vector<std::string> options_of(const Command* command) {
    std::vector<std::string> names;
    const auto add = [&names](std::span<const Argument> arguments) {
        for (const Argument& argument : arguments) {
            const std::string_view name = argument.name;
            names.emplace_back(name.substr(name.find(',') + 1));
        }
    };
    add(global_options());
    if (command != nullptr) {
        add(command->arguments);
    }
    return names;
}

// The unknown words. They include the "--" that ends the options, unless no positional word could
// follow; the parser drops "--" then and continues.
std::vector<std::string> left_over(const CLI::App& root, const std::vector<std::string>& words) {
    std::vector<std::string> left = root.remaining(true);
    const auto mark = std::ranges::find(words, "--");
    if (mark == words.end()) {
        return left;
    }
    if (const auto kept = std::ranges::find(left, "--"); kept != left.end()) {
        left.erase(kept);
        return left;
    }
    return {mark + 1, words.end()};
}

[[noreturn]] void refuse_word(const Invocation& invocation, const std::string& word) {
    const std::string option = word.starts_with('-') ? word.substr(0, word.find('=')) : "";
    const std::string meant = did_you_mean(option, options_of(invocation.command));
    if (invocation.command != nullptr) {
        refuse_usage(fmt::format("{} does not take {}{}", invocation.command->name(), word, meant));
    }
    if (!option.empty()) {
        refuse_usage(fmt::format("Unknown option {}{}", word, meant));
    }
    if (invocation.noun.empty()) {
        refuse_usage(fmt::format("Unknown command {}{}", word, did_you_mean(word, nouns())));
    }
    const std::vector<std::string> verbs = verbs_of(invocation.noun);
    refuse_usage(fmt::format(
        "{} knows {}, not {}{}", invocation.noun, fmt::join(verbs, ", "), word,
        did_you_mean(word, verbs)));
}

// What the parser says about a missing value and about a value of a flag, in plain words.
std::string plain_mismatch(std::string text) {
    constexpr std::string_view kMissing = ": 1 required ";
    constexpr std::string_view kMissingEnd = " missing";
    constexpr std::string_view kFlag = " was given a disallowed flag override";
    if (text.ends_with(kFlag)) {
        return fmt::format("--{} takes no value", text.substr(0, text.size() - kFlag.size()));
    }
    const std::size_t at = text.find(kMissing);
    if (at == text.npos || !text.ends_with(kMissingEnd)) {
        return text;
    }
    const std::size_t begin = at + kMissing.size();
    const std::string value = text.substr(begin, text.size() - kMissingEnd.size() - begin);
    return fmt::format("{} needs a value, {}", text.substr(0, at), value);
}

}  // namespace

Invocation parse(const std::vector<std::string>& given_words) {
    const std::vector<std::string> words = without_plural(given_words);
    Tree tree(words);
    std::string complaint;
    Action action = Action::kRun;
    try {
        tree.root().parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::CallForHelp&) {
        action = Action::kHelp;
    } catch (const CLI::ArgumentMismatch& error) {
        complaint = plain_mismatch(error.what());
    } catch (const CLI::ParseError& error) {
        complaint = error.what();
    }
    Invocation invocation = tree.result();
    invocation.action = invocation.options.has(kVersion) ? Action::kVersion : action;
    if (const std::vector<std::string> extras = left_over(tree.root(), words); !extras.empty()) {
        refuse_word(invocation, extras[0]);
    }
    if (!complaint.empty()) {
        refuse_usage(
            invocation.command == nullptr
                ? complaint
                : fmt::format("{}: {}", invocation.command->name(), complaint));
    }
    if (invocation.action == Action::kRun && invocation.noun.empty()) {
        invocation.action = Action::kNothing;
    }
    if (invocation.action == Action::kRun && invocation.command == nullptr) {
        refuse_usage(fmt::format(
            "{} needs a verb: {}", invocation.noun, fmt::join(verbs_of(invocation.noun), ", ")));
    }
    return invocation;
}

bool asks_for_json(const std::vector<std::string>& words) {
    const auto end = std::ranges::find(words, "--");
    return std::any_of(words.begin(), end, [](const std::string& word) {
        const bool is_cluster = word.size() > 1 && word.find_first_not_of("jvh", 1) == word.npos;
        return word == "--json" ||
               (word.starts_with('-') && is_cluster && word.find('j') != word.npos);
    });
}

}  // namespace kx::ctl
