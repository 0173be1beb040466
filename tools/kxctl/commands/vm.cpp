// vm: the virtual machines of the host and their run state.
#include <fmt/core.h>

#include <algorithm>
#include <cerrno>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "library/machines.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"

namespace kx::ctl::vm {
namespace {

// An operation, and the states that it leads to, besides an unknown state.
struct Operation {
    KxStateOperation code;
    const char* verb;
    std::vector<std::int32_t> states;
};

std::vector<std::int32_t> every_state() {
    return {KX_VM_RUNNING, KX_VM_BLOCKED, KX_VM_PAUSED, KX_VM_SHUT_OFF};
}

// A machine that another program controls at the same time may be in any state.
ExitCode report_state(const Operation& operation, const Machine& before, const Machine& after) {
    if (after.state_text().empty() || std::ranges::count(operation.states, after.state) != 0) {
        return ExitCode::kDone;
    }
    complain(fmt::format(
        "{} changed its state at the same time: after {} it is {}", before.title(), operation.verb,
        after.state_text()));
    return ExitCode::kPartly;
}

ExitCode operate(const Arguments& arguments, Output& output, const Operation& operation) {
    const Machine before = find_machine(arguments.get("VM"));
    std::string uuid = before.uuid;
    std::string time = "0";  // a suspension lasts until the machine is resumed
    const int result = call_machines(Effect::kChange, [&](VMUtils& library) {
        errno = 0;  // an older error would make the suspension fail
        return library.VMStateOperation(uuid.data(), operation.code, time.data());
    });
    if (result != 0) {
        throw machine_failure(
            ExitCode::kFailed, fmt::format("Cannot {} {}", operation.verb, before.title()));
    }
    const std::optional<Machine> found = find_same_machine(before);
    if (!found) {  // a machine without a definition on disk ends with its shutdown
        complain(before.title() + " is not defined any more");
        return ExitCode::kPartly;
    }
    const Machine& after = *found;
    if (output.wants_json()) {
        const bool changed =
            operation.code == KX_VM_OP_REBOOT || machine_json(after) != machine_json(before);
        output.json(Json{
            {"vm", machine_json(after)},
            {"changed", changed},
            {"state_before", machine_json(before).at("state")}});
    } else {
        Table table(machine_columns());
        table.add_row(machine_cells(after));
        output.table(table);
    }
    return report_state(operation, before, after);
}

ExitCode list(const Arguments& arguments, Output& output) {
    List machines(arguments, output, machine_columns());
    for (const Machine& machine : query_machines()) {
        machines.add(machine_cells(machine), machine_json(machine));
    }
    if (output.wants_json()) {
        output.json(Json{{"vms", machines.json()}});
    } else {
        machines.print(output, "This host has no virtual machine");
    }
    return ExitCode::kDone;
}

ExitCode start(const Arguments& arguments, Output& output) {
    return operate(arguments, output, {KX_VM_OP_START, "start", {KX_VM_RUNNING, KX_VM_BLOCKED}});
}
ExitCode suspend(const Arguments& arguments, Output& output) {
    return operate(arguments, output, {KX_VM_OP_SUSPEND, "suspend", {KX_VM_PAUSED}});
}
ExitCode resume(const Arguments& arguments, Output& output) {
    return operate(arguments, output, {KX_VM_OP_RESUME, "resume", {KX_VM_RUNNING, KX_VM_BLOCKED}});
}
// The guest may reboot or shut down at once, later or never.
ExitCode reboot(const Arguments& arguments, Output& output) {
    return operate(arguments, output, {KX_VM_OP_REBOOT, "reboot", every_state()});
}
ExitCode shutdown(const Arguments& arguments, Output& output) {
    return operate(arguments, output, {KX_VM_OP_SHUT_DOWN, "shut down", every_state()});
}

std::vector<Command> rows() {
    return {
        {
            .noun = "vm",
            .verb = "list",
            .help = "Show the virtual machines of this host",
            .about =
                "One line for each machine: name, libvirt's id (of active machines), run state "
                "(\"?\" when virsh does not report it) and UUID.",
            .arguments = {},
            .examples = {"kxctl vm list", "kxctl --sim vm list --json"},
            .run = list,
            .columns = machine_columns,
        },
        {
            .noun = "vm",
            .verb = "start",
            .help = "Start a virtual machine, or resume a paused one",
            .about = "Shows the machine afterwards.",
            .arguments = {kMachine},
            .examples = {"kxctl vm start web2", "kxctl --sim vm start web2 --json"},
            .run = start,
        },
        {
            .noun = "vm",
            .verb = "suspend",
            .help = "Pause a running virtual machine",
            .about = "Shows the machine afterwards.",
            .arguments = {kMachine},
            .examples = {"kxctl vm suspend web1", "kxctl --sim vm suspend 1"},
            .run = suspend,
        },
        {
            .noun = "vm",
            .verb = "resume",
            .help = "Resume a paused virtual machine",
            .about = "Shows the machine afterwards.",
            .arguments = {kMachine},
            .examples = {"kxctl vm resume batch1", "kxctl --sim vm resume batch1 --json"},
            .run = resume,
        },
        {
            .noun = "vm",
            .verb = "reboot",
            .help = "Ask a virtual machine's guest to reboot",
            .about = "Shows the machine after its guest was asked.",
            .arguments = {kMachine},
            .examples = {"kxctl vm reboot web1", "kxctl --sim vm reboot web1"},
            .run = reboot,
        },
        {
            .noun = "vm",
            .verb = "shutdown",
            .help = "Ask a virtual machine's guest to shut down",
            .about = "Shows the machine after its guest was asked; the guest may need some time.",
            .arguments = {kMachine},
            .examples = {"kxctl vm shutdown web1", "kxctl --sim vm shutdown web1 --json"},
            .run = shutdown,
        },
    };
}

const TablePart kRows(900, rows);

}  // namespace
}  // namespace kx::ctl::vm
