// kxsim: run commands on simulated hosts.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <kxsim/scenario.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/scratch.hpp"
#include "kxsim/run.hpp"
#include "state/session.hpp"

namespace {

namespace fs = std::filesystem;

constexpr int kUsageError = 2;
constexpr char kDefaultScenario[] = "lab";

struct RunOptions {
    std::string scenario;  // empty: not given
    std::string keep;      // empty: not given
    std::vector<std::string> command;
};

bool holds_session(const std::string& directory) {
    return fs::exists(directory + kxsim::state::kSessionFile);
}

// A kept host continues with its last state, so that settings stay from one run to the next.
std::unique_ptr<kxsim::Host> make_host(const RunOptions& options) {
    const bool go_on = !options.keep.empty() && holds_session(options.keep);
    if (go_on && !options.scenario.empty()) {
        throw kxsim::ScenarioError(
            options.keep + " holds a host already, expected no --scenario beside it");
    }
    auto host = options.keep.empty() ? std::make_unique<kxsim::Host>()
                                     : std::make_unique<kxsim::Host>(options.keep);
    if (!go_on) {
        const std::string& name = options.scenario.empty() ? kDefaultScenario : options.scenario;
        kxsim::load_scenario(*host, kxsim::find_scenario(name));
    }
    return host;
}

int run(const RunOptions& options) {
    kxsim::catch_stop_signals();
    kxsim::remove_abandoned_scratch();
    try {
        const auto host = make_host(options);
        return kxsim::run_on_host(host->root(), options.command);
    } catch (const std::exception&) {
        if (const int code = kxsim::code_of_stop(); code != 0) {
            return code;  // the failure was caused by the signal
        }
        throw;
    }
}

int list() {
    for (const kxsim::ShippedScenario& scenario : kxsim::shipped_scenarios()) {
        std::printf("%-16s %s\n", scenario.name.c_str(), scenario.title.c_str());
    }
    return 0;
}

int show(const std::string& name) {
    const fs::path file = kxsim::find_scenario(name);
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw kxsim::ScenarioError(file.string() + ":1: cannot be read, expected a scenario");
    }
    std::cout << in.rdbuf();
    return 0;
}

int command_line(int count, char** arguments) {
    CLI::App app("Run commands on a simulated host with Kestrix adapters in it", "kxsim");
    app.set_version_flag("--version", "kxsim " KXSIM_VERSION);
    app.require_subcommand(1);

    RunOptions options;
    std::string name;
    CLI::App* const run_command = app.add_subcommand("run", "Run a command on a simulated host");
    run_command
        ->add_option(
            "-s,--scenario", options.scenario, "A scenario by its name or its file (default: lab)")
        ->type_name("NAME|FILE");
    run_command
        ->add_option(
            "-k,--keep", options.keep,
            "Keep the host in this directory; a host that is there already goes on")
        ->type_name("DIR");
    run_command->add_option("command", options.command, "The command and its arguments")
        ->type_name("COMMAND...")
        ->required();
    run_command->positionals_at_end();
    run_command->prefix_command(false);
    CLI::App* const list_command = app.add_subcommand("list", "List the included scenarios");
    CLI::App* const show_command = app.add_subcommand("show", "Print a scenario");
    show_command->add_option("name", name, "Its name or its file")->required();
    app.footer(
        "Exit code: the command's own; 2 when a scenario or this command line is wrong, 126 and "
        "127\n"
        "when the command cannot be run, 128 and its number when a signal ended it.");

    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& mistake) {
        return app.exit(mistake) == 0 ? 0 : kUsageError;
    }
    if (run_command->parsed()) {
        return run(options);
    }
    return list_command->parsed() ? list() : show(name);
}

}  // namespace

int main(int count, char** arguments) try {
    return command_line(count, arguments);
} catch (const std::exception& mistake) {
    std::fprintf(stderr, "%s\n", mistake.what());
    return kUsageError;
}
