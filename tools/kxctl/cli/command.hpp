// One command of kxctl: a row of the command table (commands.hpp). The parser, the help and the
// machine-readable description of the commands are made from the rows.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "failure/exit_code.hpp"
#include "output/table.hpp"

namespace kx::ctl {

class Output;

enum class Count { kOne, kOptional, kSeveral };

// A word after the command ("LOCATION") or an option ("--force", "-n,--lines"). A count of kSeveral
// asks for at least one word; an option is always optional.
struct Argument {
    const char* name;
    const char* help;
    const char* value = "";  // the name of an option's value, such as "FILE"; empty for a flag
    Count count = Count::kOne;
    std::vector<std::string> choices = {};  // the allowed values; empty: any value
    bool is_list = false;                   // whether the value is several choices with commas

    [[nodiscard]] bool is_option() const { return name[0] == '-'; }
};

// The values that the user gave for the arguments of a command, by the (long) name of the argument.
class Arguments {
public:
    void add(std::string_view name, std::vector<std::string> values);

    [[nodiscard]] bool has(std::string_view name) const;
    // The given value, or `otherwise`.
    [[nodiscard]] std::string get(std::string_view name, std::string_view otherwise = "") const;
    // All given values.
    [[nodiscard]] std::span<const std::string> all(std::string_view name) const;

private:
    std::map<std::string, std::vector<std::string>, std::less<>> values_;
};

// A word and what it means, in a list of the help.
struct Term {
    std::string word;
    std::string meaning;
    std::vector<std::string> values = {};  // words for its values, such as "on"
};

// A list that is made when it is needed.
using Terms = std::vector<Term>();
inline std::vector<Term> no_terms() { return {}; }
using Columns = std::vector<Column>();
inline std::vector<Column> no_columns() { return {}; }

// The function of a command. It throws Failure when it fails.
using Verb = ExitCode(const Arguments& arguments, Output& output);

struct Command {
    const char* noun;
    const char* verb;   // empty when the noun is the whole command
    const char* help;   // one line
    const char* about;  // a paragraph for the command's own help
    std::vector<Argument> arguments;
    std::vector<const char*> examples;  // two examples, each a whole command line
    Verb* run;
    Terms* settings = no_terms;     // the keys that KEY=VALUE accepts
    Columns* columns = no_columns;  // of a list, which then takes --columns and --sort

    [[nodiscard]] std::string name() const;  // "card list"
    // Whether it changes nothing on the host, so that what it cannot read makes its answer
    // incomplete.
    [[nodiscard]] bool only_reads() const;
};

// Every command, in the order of the help.
[[nodiscard]] std::span<const Command> commands();

// The options that every command takes.
[[nodiscard]] std::span<const Argument> global_options();

}  // namespace kx::ctl
