// bridge: the network interfaces of virtual machines, each on a bridge of the host.
#include <fmt/core.h>

#include <algorithm>
#include <memory>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "library/console_passwords.hpp"
#include "library/machines.hpp"
#include "library/record_text.hpp"
#include "output/output.hpp"
#include "output/printable.hpp"

namespace kx::ctl::bridge {
namespace {

constexpr const char* kNoModel = "N/A";

// The library names machines by their ids here, which only active ones have.
Machine find_active(const Arguments& arguments) {
    Machine machine = find_machine(arguments.get("VM"));
    if (!machine.is_active()) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format("{} has interfaces only while it runs", machine.title()));
    }
    return machine;
}

std::vector<_interfaceInfo> interfaces_of(const Machine& machine) {
    _interfaceInfo* records = nullptr;
    int count = 0;
    const int result = call_machines(Effect::kNone, [&](VMUtils& library) {
        return library.listInterfacesForVM(machine.id, &records, &count);
    });
    const std::unique_ptr<_interfaceInfo, decltype(&std::free)> owner(records, std::free);
    if (result != 0) {
        throw machine_failure(
            ExitCode::kFailed, fmt::format("Cannot list the interfaces of {}", machine.title()));
    }
    return {records, records + count};
}

std::string mac_text(const _interfaceInfo& interface) {
    const unsigned char* const mac = interface.mac;
    return fmt::format(
        "{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3], mac[4],
        mac[5]);
}

std::string model_text(const _interfaceInfo& interface) {
    const std::string model = field_text(interface.model);
    return model == kNoModel ? "" : model;
}

Json to_json(const _interfaceInfo& interface) {
    return {
        {"target", text_or_null(field_text(interface.targetDev))},
        {"type", text_or_null(field_text(interface.type))},
        {"bridge", text_or_null(field_text(interface.bridge))},
        {"model", text_or_null(model_text(interface))},
        {"mac", mac_text(interface)},
        {"alias", text_or_null(field_text(interface.alias))},
    };
}

std::vector<Column> list_columns() {
    return {{"TARGET"}, {"TYPE"}, {"BRIDGE"}, {"MODEL"}, {"MAC"}};
}

enum class After : std::uint8_t { kQuery, kChange };

ExitCode tell(const Arguments& arguments, Output& output, const Machine& machine, After after) {
    List interfaces(arguments, output, list_columns());
    for (const _interfaceInfo& interface : interfaces_of(machine)) {
        interfaces.add(
            {field_text(interface.targetDev), field_text(interface.type),
             field_text(interface.bridge), model_text(interface), mac_text(interface)},
            to_json(interface));
    }
    if (output.wants_json()) {
        Json all = {{"vm", machine.name}, {"interfaces", interfaces.json()}};
        if (after == After::kChange) {
            all["changed"] = true;
        }
        output.json(all);
    } else {
        interfaces.print(output, machine.name + " has no interface");
    }
    return ExitCode::kDone;
}

ExitCode list(const Arguments& arguments, Output& output) {
    return tell(arguments, output, find_active(arguments), After::kQuery);
}

ExitCode attach(const Arguments& arguments, Output& output) {
    const Machine machine = find_active(arguments);
    std::string bridge = arguments.get("BRIDGE");
    check_before_change(machine);
    const int result = call_machines(Effect::kChange, [&](VMUtils& library) {
        return library.attachBrdgToVM(machine.id, bridge.data());
    });
    if (result != 0) {
        throw machine_failure(
            ExitCode::kFailed,
            fmt::format("Cannot attach {} to bridge {}", machine.title(), bridge));
    }
    static_cast<void>(tell(arguments, output, machine, After::kChange));
    return report_other_state(machine);
}

ExitCode detach(const Arguments& arguments, Output& output) {
    const Machine machine = find_active(arguments);
    const std::string target = arguments.get("TARGET");
    const std::vector<_interfaceInfo> interfaces = interfaces_of(machine);
    // A name that fills its field may continue after it.
    const auto found =
        std::find_if(interfaces.begin(), interfaces.end(), [&](const _interfaceInfo& interface) {
            return field_text(interface.targetDev) == target.substr(0, sizeof interface.targetDev);
        });
    if (target.empty() || found == interfaces.end()) {
        throw Failure(
            ExitCode::kNotFound, fmt::format("{} has no interface {}", machine.title(), target));
    }
    check_before_change(machine);
    const int result = call_redefining(machine, [&](VMUtils& library) {
        return library.dettachInterfaceFromVM(machine.id, *found);
    });
    if (result != 0) {
        throw machine_failure(
            ExitCode::kFailed, fmt::format("Cannot detach {} from {}", target, machine.title()));
    }
    if (output.wants_json()) {
        output.json(Json{
            {"vm", machine.name},
            {"changed", true},
            {"target", target},
            {"kept_until_next_start", true}});
    } else {
        output.text(fmt::format(
            "{} is out of the definition of {}, which keeps it until its next start\n",
            printable(target), printable(machine.name)));
    }
    return report_other_state(machine);
}

std::vector<Command> rows() {
    return {
        {
            .noun = "bridge",
            .verb = "list",
            .help = "Show the network interfaces of a running virtual machine",
            .about = "One line for each interface: its name on the host, its type, its bridge, "
                     "the model that the guest sees and the MAC address.",
            .arguments = {kMachine},
            .examples = {"kxctl bridge list web1", "kxctl --sim bridge list web1 --json"},
            .run = list,
            .columns = list_columns,
        },
        {
            .noun = "bridge",
            .verb = "attach",
            .help = "Attach an interface on a bridge to a running virtual machine",
            .about = "The machine has it until it stops. Shows the interfaces of the machine "
                     "afterwards.",
            .arguments = {kMachine, {.name = "BRIDGE", .help = "Bridge of this host"}},
            .examples = {"kxctl bridge attach web1 br0", "kxctl --sim bridge attach web1 br0"},
            .run = attach,
        },
        {
            .noun = "bridge",
            .verb = "detach",
            .help = "Remove an interface from a virtual machine's definition",
            .about = "The machine must run, and keeps the interface until its next start. Its "
                     "current devices become its definition, without that interface.",
            .arguments =
                {kMachine,
                 {.name = "TARGET",
                  .help = "Name of the interface on the host, as \"bridge list\" shows it"}},
            .examples =
                {"kxctl bridge detach web1 testnet0", "kxctl --sim bridge detach web1 testnet0"},
            .run = detach,
        },
    };
}

const TablePart kRows(1100, rows);

}  // namespace
}  // namespace kx::ctl::bridge
