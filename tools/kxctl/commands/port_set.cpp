// port set: change the settings of a port.
#include <fmt/core.h>
#include <kxlinhw/query.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include <algorithm>

#include "change/port_steps.hpp"
#include "change/transaction.hpp"
#include "cli/numbers.hpp"
#include "commands/commands.hpp"
#include "commands/set_commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"
#include "settings/change_report.hpp"
#include "settings/configuration_lock.hpp"
#include "settings/port_driver.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl::port {
namespace {

// With auto-negotiation on, the library ignores speed and duplex and reports nothing.
void check_forced_link(std::span<const Change> changes, const PortSettings& settings) {
    for (const Change& change : changes) {
        const Setting& setting = *change.setting;
        if (settings.autoneg != 0 && setting.change_bit == KX_PORT_LINK &&
            &leader_of(setting) != &setting) {
            throw Failure(ExitCode::kUsage, fmt::format("{} needs autoneg=off", setting.key));
        }
    }
}

// Through the journal of changes, so that "kxctl revert" takes it back.
void apply(const PortTarget& target, ChangeReport& report, double confirm_within) {
    const std::vector<Step> steps = port_steps(0, report.lines(), target.record().settings);
    if (std::ranges::none_of(steps, &Step::is_wanted)) {
        return;
    }
    const ChangeOutcome outcome = run_change(
        {step_target(target.identity())}, steps,
        {.keep_going = true, .confirm_within = confirm_within});
    if (outcome.waits) {
        complain(fmt::format(
            "change {} is taken back in {} seconds unless \"kxctl confirm\" keeps it",
            outcome.number, confirm_within));
    }
    take_refusals(report.lines(), outcome.steps);
    // What is applied stays applied, so a failure must not hide it.
    for (const std::string& failure : outcome.unsaved) {
        report.add_unsaved(failure);
    }
}

ExitCode set(const Arguments& arguments, Output& output) {
    const std::vector<Change> changes = parse_changes(port_settings(), arguments.all("KEY=VALUE"));
    const double confirm_within =
        arguments.has("--confirm-within") ? time_option(arguments, "--confirm-within") : 0;
    const auto missing = missing_privilege(Privilege::kNetworkAdmin, read_security_context());
    const auto lock = lock_for_change(arguments, missing);
    const PortTarget target(arguments);
    const PortInfo& port = target.record();
    ChangeReport report(target.json(), changes, &port.settings);
    PortSettings wanted = port.settings;
    apply_changes(report.accepted(), &wanted);
    check_forced_link(changes, wanted);
    const PortDriver driver(target.interface());
    driver.refuse(report.lines(), port, wanted);
    if (missing) {
        refuse_changes(report.lines(), *missing);
    }
    if (arguments.has("--dry-run")) {
        return report.tell_plan(output);
    }
    if (missing) {
        return report.tell_result(output, &port.settings);
    }
    target.check_before_change();
    apply(target, report, confirm_within);
    const PortInfo after = target.read_again();
    return report.tell_result(output, &after.settings);
}

std::vector<Command> set_rows() {
    return {
        {
            .noun = "port",
            .verb = "set",
            .help = "Change settings of a port",
            .about =
                "Applies the settings, and shows the old value of each setting and the new value "
                "as read back. A setting that fails does not stop the others; each failure has "
                "its own line. Applied settings are saved; \"kxctl restore\" applies them again "
                "after a reboot.",
            .arguments = with_lock_options({kPortOrCard, kPort, kChanges, kDryRun, kConfirmWithin}),
            .examples =
                {"kxctl port set 03:00.4 1 mtu=9000 tso=on",
                 "kxctl --sim port set 03:00.4 1 autoneg=off speed=1000 duplex=full --dry-run"},
            .run = set,
            .settings = [] { return terms_of(port_settings()); },
        },
    };
}

const TablePart kSetRows(230, set_rows);

}  // namespace
}  // namespace kx::ctl::port
