// kxctl: the reference agent, a command line over libkxlinhw.
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command_line.hpp"
#include "cli/help.hpp"
#include "cli/simulation.hpp"
#include "failure/failure.hpp"
#include "files/descriptor.hpp"
#include "files/working_directory.hpp"
#include "library/answer_limit.hpp"
#include "library/call.hpp"
#include "library/caller.hpp"
#include "output/live_view.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"

namespace {

using namespace kx::ctl;

ColourMode colour_mode(const Arguments& options) {
    const std::string mode = options.get("--color", "auto");
    return mode == "always"  ? ColourMode::kAlways
           : mode == "never" ? ColourMode::kNever
                             : ColourMode::kAuto;
}

ExitCode show_usage(Output& output) {
    if (output.wants_json()) {
        return output.report(Failure(ExitCode::kUsage, "No command given (see --help)"));
    }
    static_cast<void>(write_text(STDERR_FILENO, short_usage()));
    return ExitCode::kUsage;
}

ExitCode show_version(Output& output) {
    if (output.wants_json()) {
        output.json(Json{{"kxctl", {{"version", KXCTL_VERSION}}}});
    } else {
        output.text("kxctl " KXCTL_VERSION "\n");
    }
    return ExitCode::kDone;
}

ExitCode execute(const std::vector<std::string>& words, Output& output) {
    const SimulationWords simulation = take_simulation(words);
    const Invocation invocation = parse(simulation.words);
    switch (invocation.action) {
        case Action::kHelp:
            print_help(invocation, output);
            return ExitCode::kDone;
        case Action::kVersion:
            return show_version(output);
        case Action::kNothing:
            return show_usage(output);
        case Action::kRun:
            break;
    }
    if (simulation.scenario) {
        run_simulated(*simulation.scenario, simulation.words);
    }
    require_simulated_host();
    set_command_line(simulation.words);
    check_time_limit();
    leave_working_directory();
    output.set_colour(decide_colour(
        colour_mode(invocation.options), isatty(STDOUT_FILENO) == 1, std::getenv("NO_COLOR"),
        std::getenv("TERM")));
    output.set_width(terminal_width());
    if (invocation.options.has("--verbose")) {
        show_library_messages();
    }
    if (invocation.command->only_reads()) {
        output.tell_unread();
    }
    return invocation.command->run(invocation.arguments, output);
}

ExitCode execute_and_report(const std::vector<std::string>& words, Output& output) {
    try {
        return execute(words, output);
    } catch (const Failure& failure) {
        return output.report(failure);
    } catch (const std::bad_alloc&) {
        return output.report(Failure(ExitCode::kFailed, "Out of memory"));
    } catch (const std::exception& error) {
        return output.report(Failure(ExitCode::kFailed, error.what()));
    }
}

// A message that needs no memory, for when memory runs out while a failure is reported or outside
// of a command.
[[noreturn]] void give_up() { end_with("kxctl: Out of memory\n"); }

// Before the program's static objects are made.
[[gnu::constructor(101)]] void prepare_for_the_worst() { std::set_terminate(give_up); }

}  // namespace

int main(int argc, char** argv) {
    prepare_standard_streams();
    const std::vector<std::string> words(argc > 0 ? argv + 1 : argv, argv + argc);
    Output output(asks_for_json(words));
    report_late_answers_to(
        [&output](const Failure& failure) { return output.finish(output.report(failure)); });
    return static_cast<int>(output.finish(execute_and_report(words, output)));
}
