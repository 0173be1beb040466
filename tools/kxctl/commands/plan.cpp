// plan: what a state file would change on this host.
#include "change/plan.hpp"

#include <fmt/core.h>

#include <algorithm>

#include "change/rounded.hpp"
#include "commands/commands.hpp"
#include "library/record_text.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"

namespace kx::ctl::plan {
namespace {

Json steps_json(const Plan& plan) {
    Json steps = Json::array();
    for (const PlannedPort& port : plan.ports) {
        for (std::size_t i = 0; i < port.lines.size(); ++i) {
            const ChangeLine& line = port.lines[i];
            steps.push_back(
                {{"interface", port.port.identity.name},
                 {"mac", text_or_null(port.port.mac())},
                 {"location", port.port.identity.location->text()},
                 {"key", line.setting->key},
                 {"before", line.setting->json_of(line.before)},
                 {"wanted", line.setting->json_of(line.wanted)},
                 {"line", port.places[i].line}});
        }
    }
    return steps;
}

void tell_people(const Plan& plan, Output& output) {
    if (plan.empty()) {
        output.text("Nothing differs\n");
        return;
    }
    Table table({{"PORT"}, {"SETTING"}, {"NOW", Align::kRight}, {"NEW", Align::kRight}});
    for (const PlannedPort& port : plan.ports) {
        for (const ChangeLine& line : port.lines) {
            table.add_row(
                {port.port.identity.name, line.setting->key,
                 line.before ? line.setting->text_of(*line.before) : "",
                 line.setting->text_of(line.wanted)});
        }
    }
    output.table(table);
}

ExitCode run(const Arguments& arguments, Output& output) {
    StateFile file = read_state_file(arguments.get("FILE"));
    if (file.ports.empty()) {
        file.refuse_errors(output.wants_json());  // not TOML at all
    }
    Plan plan = make_plan(file, read_host_ports());
    file.refuse_errors(output.wants_json());
    const std::vector<std::string> rounded = leave_out_rounded(plan);
    plan.warnings.insert(plan.warnings.end(), rounded.begin(), rounded.end());
    std::ranges::for_each(plan.warnings, complain);
    if (output.wants_json()) {
        output.json(Json{
            {"file", file.name},
            {"differs", !plan.empty()},
            {"steps", steps_json(plan)},
            {"warnings", plan.warnings}});
    } else {
        tell_people(plan, output);
    }
    return plan.empty() ? ExitCode::kDone : ExitCode::kPartly;
}

constexpr char kAbout[] =
    "Compares a state file with the ports of this host and prints what \"kxctl apply\" would "
    "change, port after port; the port that carries your session is the last one. A value that "
    "the driver rounded before is left out. Changes nothing. Ends with 0 when "
    "nothing differs, with 4 when something does, and with 2 when the file has errors or wants "
    "what a driver cannot do; each error has a line with its place in the file.";

std::vector<Argument> arguments() {
    return {{.name = "FILE", .help = "State file, as \"kxctl state save\" writes it"}};
}

std::vector<Command> rows() {
    return {
        {
            .noun = "plan",
            .verb = "",
            .help = "Show what a state file would change on this host",
            .about = kAbout,
            .arguments = arguments(),
            .examples = {"kxctl plan host.toml", "kxctl plan host.toml --json"},
            .run = run,
        },
        {
            .noun = "diff",
            .verb = "",
            .help = "The same as plan",
            .about = kAbout,
            .arguments = arguments(),
            .examples = {"kxctl diff host.toml", "kxctl diff host.toml --json"},
            .run = run,
        },
    };
}

const TablePart kRows(1360, rows);

}  // namespace
}  // namespace kx::ctl::plan
