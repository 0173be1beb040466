// vm: the virtual machines of the host and their run state.
#include <fmt/core.h>

#include <cerrno>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "library/machines.hpp"
#include "output/output.hpp"

namespace kx::ctl::vm {
namespace {

// verb: for the message when the operation fails.
ExitCode operate(
    const Arguments& arguments, Output& output, KxStateOperation operation, const char* verb) {
    const Machine before = find_machine(arguments.get("VM"));
    std::string uuid = before.uuid;
    std::string time = "0";  // a suspension lasts until the machine is resumed
    const int result = call_machines(Effect::kChange, [&](VMUtils& library) {
        errno = 0;  // an older error would make the suspension fail
        return library.VMStateOperation(uuid.data(), operation, time.data());
    });
    if (result != 0) {
        throw machine_failure(ExitCode::kFailed, fmt::format("Cannot {} {}", verb, before.title()));
    }
    const Machine after = find_machine(uuid);
    if (output.wants_json()) {
        const bool changed =
            operation == KX_VM_OP_REBOOT || machine_json(after) != machine_json(before);
        output.json(Json{
            {"vm", machine_json(after)},
            {"changed", changed},
            {"state_before", machine_json(before).at("state")}});
    } else {
        Table table(machine_columns());
        table.add_row(machine_cells(after));
        output.table(table);
    }
    return ExitCode::kDone;
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
    return operate(arguments, output, KX_VM_OP_START, "start");
}
ExitCode suspend(const Arguments& arguments, Output& output) {
    return operate(arguments, output, KX_VM_OP_SUSPEND, "suspend");
}
ExitCode resume(const Arguments& arguments, Output& output) {
    return operate(arguments, output, KX_VM_OP_RESUME, "resume");
}
ExitCode reboot(const Arguments& arguments, Output& output) {
    return operate(arguments, output, KX_VM_OP_REBOOT, "reboot");
}
ExitCode shutdown(const Arguments& arguments, Output& output) {
    return operate(arguments, output, KX_VM_OP_SHUT_DOWN, "shut down");
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
