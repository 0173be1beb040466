// help: the texts of --help, for who looks for them by this word.
#include "cli/help.hpp"

#include "cli/command_line.hpp"
#include "commands/commands.hpp"

namespace kx::ctl::help {
namespace {

ExitCode show(const Arguments& arguments, Output& output) {
    std::vector<std::string> words;
    for (const char* const name : {"NOUN", "VERB"}) {
        if (arguments.has(name)) {
            words.push_back(arguments.get(name));
        }
    }
    words.emplace_back("--help");
    print_help(parse(words), output);
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "help",
            .verb = "",
            .help = "Print the help of kxctl, of a noun or of a command",
            .about = "Prints the same as --help behind these words.",
            .arguments =
                {{.name = "NOUN", .help = "Such as port", .count = Count::kOptional},
                 {.name = "VERB", .help = "Such as list", .count = Count::kOptional}},
            .examples = {"kxctl help port", "kxctl help port list"},
            .run = show,
        },
    };
}

const TablePart kRows(1700, rows);

}  // namespace
}  // namespace kx::ctl::help
