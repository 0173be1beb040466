// apply: what a state file wants, as one change that is taken back when a step fails.
#include <fmt/core.h>

#include <algorithm>

#include "change/plan.hpp"
#include "change/port_steps.hpp"
#include "change/rounded.hpp"
#include "change/transaction.hpp"
#include "cli/confirmation.hpp"
#include "cli/numbers.hpp"
#include "commands/commands.hpp"
#include "commands/set_commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "library/record_text.hpp"
#include "library/recording.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"
#include "settings/configuration_lock.hpp"

namespace kx::ctl::apply {
namespace {

// The result of a plan.
struct Applied {
    unsigned number = 0;  // of the change; 0 when nothing had to be changed
    bool waits = false;   // for "kxctl confirm"
    Plan plan = {};
    std::vector<std::string> remarks = {};  // what drivers rounded
    std::vector<std::string> failures = {};
};

// A value that a driver took, but not exactly.
bool was_rounded(const ChangeLine& line) {
    return may_be_rounded(*line.setting) && line.result() == Result::kDiffers;
}

const char* result_name(const ChangeLine& line) {
    return was_rounded(line) ? "rounded" : name_of(line.result());
}

// What all steps together left: a later step may have changed the value of an earlier one.
void read_back(Plan& plan, const std::vector<Step>& steps) {
    for (std::size_t i = 0; i < plan.ports.size(); ++i) {
        PlannedPort& port = plan.ports[i];
        take_refusals(port.lines, steps, i);
        const Port now = read_port_again(port.port.identity.name);
        for (ChangeLine& line : port.lines) {
            line.now = state_value(*line.setting, now);
        }
    }
}

void judge(Applied& applied) {
    for (PlannedPort& port : applied.plan.ports) {
        const std::string& name = port.port.identity.name;
        std::vector<ChangeLine> failed;
        for (ChangeLine& line : port.lines) {
            if (!line.now && !line.refused) {
                line.refused = Refusal{
                    ExitCode::kVerification,
                    fmt::format("{} cannot be read back", line.setting->key)};
            }
            if (was_rounded(line)) {
                applied.remarks.push_back(fmt::format(
                    "{}: {} is {}: the driver rounded {}", name, line.setting->key, *line.now,
                    line.wanted));
            } else if (line.result() != Result::kApplied && line.result() != Result::kUnchanged) {
                failed.push_back(line);
            }
        }
        for (const std::string& text : failures_of(failed)) {
            applied.failures.push_back(fmt::format("{}: {}", name, text));
        }
    }
}

Applied apply(Plan plan, const ChangeOptions& options) {
    std::vector<StepTarget> targets;
    std::vector<Step> steps;
    for (const PlannedPort& port : plan.ports) {
        const auto more = port_steps(targets.size(), port.lines, port.port.record.settings);
        steps.insert(steps.end(), more.begin(), more.end());
        targets.push_back(step_target(port.port.identity));
    }
    const ChangeOutcome outcome = run_change(std::move(targets), std::move(steps), options);
    Applied applied{.number = outcome.number, .waits = outcome.waits, .plan = std::move(plan)};
    if (outcome.waits) {
        applied.remarks.push_back(fmt::format(
            "change {} is taken back in {} seconds unless \"kxctl confirm\" keeps it",
            outcome.number, options.confirm_within));
    }
    read_back(applied.plan, outcome.steps);
    judge(applied);
    applied.failures.insert(applied.failures.end(), outcome.unsaved.begin(), outcome.unsaved.end());
    if (take_unrecorded() != 0) {
        applied.failures.emplace_back("Not all of it could be recorded: a reboot undoes it");
    }
    if (!applied.failures.empty()) {
        applied.failures.push_back(
            fmt::format("\"kxctl revert\" takes change {} back", applied.number));
    }
    return applied;
}

Json answer_json(const Applied& applied) {
    Json steps = Json::array();
    for (const PlannedPort& port : applied.plan.ports) {
        for (const ChangeLine& line : port.lines) {
            steps.push_back(
                {{"interface", port.port.identity.name},
                 {"mac", text_or_null(port.port.mac())},
                 {"location", port.port.identity.location->text()},
                 {"key", line.setting->key},
                 {"before", line.setting->json_of(line.before)},
                 {"wanted", line.setting->json_of(line.wanted)},
                 {"now", line.setting->json_of(line.now)},
                 {"result", result_name(line)}});
        }
    }
    return {
        {"change", applied.number == 0 ? Json() : Json(applied.number)},
        {"changed", applied.number != 0},
        {"waits_for_confirm", applied.waits},
        {"steps", steps},
        {"remarks", applied.remarks},
        {"failures", applied.failures}};
}

void tell_people(const Applied& applied, Output& output) {
    if (applied.number == 0) {
        output.text("Nothing differs, nothing was changed\n");
        return;
    }
    Table table(
        {{"PORT"}, {"SETTING"}, {"BEFORE", Align::kRight}, {"NOW", Align::kRight}, {"RESULT"}});
    const auto text_of = [](const ChangeLine& line, std::optional<std::int64_t> value) {
        return value ? line.setting->text_of(*value) : "";
    };
    for (const PlannedPort& port : applied.plan.ports) {
        for (const ChangeLine& line : port.lines) {
            const Style style = was_rounded(line) ? Style::kPlain : style_of(line.result());
            table.add_row(
                {port.port.identity.name, line.setting->key, text_of(line, line.before),
                 text_of(line, line.now), Cell(result_name(line), style)});
        }
    }
    output.table(table);
}

ExitCode tell(const Applied& applied, Output& output) {
    if (output.wants_json()) {
        output.json(answer_json(applied));
    } else {
        tell_people(applied, output);
    }
    std::ranges::for_each(applied.remarks, complain);
    std::ranges::for_each(applied.failures, complain);
    return applied.failures.empty() ? ExitCode::kDone : ExitCode::kPartly;
}

void ask_for_session(const Plan& plan, const Arguments& arguments) {
    const bool comes_back = arguments.has("--confirm-within");
    if (!comes_back && std::ranges::any_of(plan.ports, &PlannedPort::carries_session)) {
        Confirmation(arguments.has("--yes"), "kxctl apply")
            .ask("The change may end this session. Apply it?");
    }
}

ExitCode run(const Arguments& arguments, Output& output) {
    const double confirm_within =
        arguments.has("--confirm-within") ? time_option(arguments, "--confirm-within") : 0;
    StateFile file = read_state_file(arguments.get("FILE"));
    if (file.ports.empty()) {
        file.refuse_errors(output.wants_json());  // not TOML at all
    }
    const auto missing = missing_privilege(Privilege::kNetworkAdmin, read_security_context());
    if (missing) {
        throw Failure(ExitCode::kNoPermission, "Settings cannot be changed: " + *missing);
    }
    const auto lock = lock_for_change(arguments, missing);
    Plan plan = make_plan(file, read_host_ports());
    file.refuse_errors(output.wants_json());
    std::ranges::for_each(plan.warnings, complain);
    const bool exact = arguments.has("--exact");
    std::vector<std::string> remarks = exact ? std::vector<std::string>() : leave_out_rounded(plan);
    if (plan.empty()) {
        return tell({.remarks = std::move(remarks)}, output);
    }
    ask_for_session(plan, arguments);
    Applied applied = apply(
        std::move(plan), {.keep_going = arguments.has("--keep-going"),
                          .exact = exact,
                          .confirm_within = confirm_within});
    applied.remarks.insert(applied.remarks.begin(), remarks.begin(), remarks.end());
    return tell(applied, output);
}

std::vector<Command> rows() {
    return {
        {
            .noun = "apply",
            .verb = "",
            .help = "Set what a state file wants, or nothing",
            .about =
                "Applies what \"kxctl plan\" shows, as one change: the values before it are in the "
                "journal before the first step, and every value is read back. When a step fails, "
                "or a value reads back differently, all of it is taken back, and the saved "
                "settings too. Sizes of rings and delays of interrupts that a driver rounds are "
                "reported; with --exact they are failures. Asks before it changes the port that "
                "carries your session, unless --confirm-within takes the change back by itself.",
            .arguments = with_lock_options(
                {{.name = "FILE", .help = "State file, as \"kxctl state save\" writes it"},
                 {.name = "--keep-going",
                  .help = "Apply the rest when a step fails, and take nothing back"},
                 {.name = "--exact", .help = "Take the change back when a driver rounds a value"},
                 {.name = "--yes", .help = "Do not ask"},
                 kConfirmWithin}),
            .examples = {"kxctl apply host.toml", "kxctl apply host.toml --exact --json"},
            .run = run,
        },
    };
}

const TablePart kRows(1370, rows);

}  // namespace
}  // namespace kx::ctl::apply
