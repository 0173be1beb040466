// vm: the virtual machines of the host and their run state.
#include <fmt/core.h>

#include <cerrno>

#include "commands/nouns.hpp"
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
    const int result = call_machines([&](VMUtils& library) {
        errno = 0;  // an older error would make the suspension fail
        return library.VMStateOperation(uuid.data(), operation, time.data());
    });
    if (result != 0) {
        throw machine_failure(ExitCode::kFailed, fmt::format("Cannot {} {}", verb, before.title()));
    }
    const Machine after = find_machine(uuid);
    if (output.wants_json()) {
        output.json(
            Json{{"vm", machine_json(after)}, {"state_before", machine_json(before).at("state")}});
    } else {
        output.table(machine_table({after}));
    }
    return ExitCode::kDone;
}

}  // namespace

ExitCode list(const Arguments&, Output& output) {
    const std::vector<Machine> machines = query_machines();
    if (output.wants_json()) {
        output.json(Json{{"vms", json_array(machines, machine_json)}});
    } else {
        output.table(machine_table(machines));
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

}  // namespace kx::ctl::vm
