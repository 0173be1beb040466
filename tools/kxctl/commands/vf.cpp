// vf: virtual functions of the host and of virtual machines.
#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <memory>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "library/console_passwords.hpp"
#include "library/machines.hpp"
#include "output/output.hpp"
#include "output/printable.hpp"

namespace kx::ctl::vf {
namespace {

constexpr int kHostId = 0;  // in place of a machine's

std::string location_text(const _VF& vf) {
    return fmt::format(
        "{:04x}:{:02x}:{:02x}.{:x}", static_cast<unsigned>(vf.pciDomain),
        static_cast<unsigned>(vf.bus), static_cast<unsigned>(vf.slot),
        static_cast<unsigned>(vf.function));
}

// The library reads lspci's hexadecimal digits as decimal numbers; printed as decimal numbers they
// are the same digits again.
std::string host_location_text(const _VF& vf) {
    return fmt::format("{:04}:{:02}:{:02}.{}", vf.pciDomain, vf.bus, vf.slot, vf.function);
}

std::vector<std::string> functions_of_host() {
    _VF* records = nullptr;
    const int count = call_machines(
        Effect::kNone, [&](VMUtils& library) { return library.listVFsForVM(kHostId, &records); });
    const std::unique_ptr<_VF, decltype(&std::free)> owner(records, std::free);
    if (records == nullptr) {  // a count of 1 is also the status of a failure
        throw machine_failure(ExitCode::kFailed, "Cannot list the virtual functions of this host");
    }
    std::vector<std::string> locations;
    locations.reserve(static_cast<std::size_t>(std::max(count, 0)));
    for (int k = 0; k < count; ++k) {
        locations.push_back(host_location_text(records[k]));
    }
    return locations;
}

// The library does not return the number of records for a machine; kxctl counts them in the
// description file that the library leaves.
std::vector<std::string> functions_of(const Machine& machine) {
    std::string uuid = machine.uuid;
    std::string description = "domain.xml";
    _VF* records = nullptr;
    KxVFNode* node = nullptr;
    const int result = call_machines(Effect::kNone, [&](VMUtils& library) {
        const int listed = library.listVFsForVM(uuid.data(), &records);
        node = listed == 0 ? library.getVFsFromDomainInfo(description.data()) : nullptr;
        return listed;
    });
    std::free(records);
    if (result != 0) {
        throw machine_failure(
            ExitCode::kFailed,
            fmt::format("Cannot list the virtual functions of {}", machine.title()));
    }
    std::vector<std::string> locations;
    while (node != nullptr) {
        const std::unique_ptr<KxVFNode, decltype(&std::free)> owner(node, std::free);
        locations.push_back(location_text(node->vf));
        node = node->next;
    }
    return locations;
}

std::vector<Column> list_columns() { return {{"VF"}}; }

// The first members of the answer, and the functions.
ExitCode tell(
    const Arguments& arguments, Output& output, Json answer,
    const std::vector<std::string>& locations) {
    List functions(arguments, output, list_columns());
    for (const std::string& location : locations) {
        functions.add({location}, location);
    }
    if (output.wants_json()) {
        answer["vfs"] = functions.json();
        output.json(answer);
    } else {
        const Json machine = answer.at("vm");
        functions.print(
            output, (machine.is_null() ? "This host" : machine.get<std::string>()) +
                        std::string(" has no virtual function"));
    }
    return ExitCode::kDone;
}

// "04:01.2", or "0000:04:01.2".
_VF parse_location(const std::string& text) {
    unsigned domain = 0;
    unsigned bus = 0;
    unsigned slot = 0;
    unsigned function = 0;
    char rest = 0;
    const bool is_short =
        std::sscanf(text.c_str(), "%2x:%2x.%1x%c", &bus, &slot, &function, &rest) == 3;
    const bool is_long =
        !is_short &&
        std::sscanf(text.c_str(), "%4x:%2x:%2x.%1x%c", &domain, &bus, &slot, &function, &rest) == 4;
    const bool plain = text.find_first_not_of("0123456789abcdefABCDEF:.") == text.npos;
    if (!plain || (!is_short && !is_long) || slot > 0x1F || function > 7) {
        throw Failure(
            ExitCode::kUsage, fmt::format("VF is {}, expected a location such as 04:01.2", text));
    }
    return {
        static_cast<std::int32_t>(domain), static_cast<std::int32_t>(bus),
        static_cast<std::int32_t>(slot), static_cast<std::int32_t>(function)};
}

ExitCode list(const Arguments& arguments, Output& output) {
    if (!arguments.has("VM")) {
        return tell(arguments, output, Json{{"vm", nullptr}}, functions_of_host());
    }
    const Machine machine = find_machine(arguments.get("VM"));
    return tell(arguments, output, Json{{"vm", machine.name}}, functions_of(machine));
}

ExitCode attach(const Arguments& arguments, Output& output) {
    const _VF vf = parse_location(arguments.get("VF"));
    const Machine machine = find_machine(arguments.get("VM"));
    std::string uuid = machine.uuid;
    check_before_change(machine);
    if (call_redefining(machine, [&](VMUtils& library) {
            return library.attachVFToVM(uuid.data(), vf);
        }) != 0) {
        throw machine_failure(
            ExitCode::kFailed,
            fmt::format("Cannot attach {} to {}", location_text(vf), machine.title()));
    }
    static_cast<void>(tell(
        arguments, output, Json{{"vm", machine.name}, {"changed", true}}, functions_of(machine)));
    return report_other_state(machine);
}

ExitCode detach(const Arguments& arguments, Output& output) {
    const _VF vf = parse_location(arguments.get("VF"));
    const Machine machine = find_machine(arguments.get("VM"));
    std::string uuid = machine.uuid;
    check_before_change(machine);
    if (call_redefining(machine, [&](VMUtils& library) {
            return library.dettachVFFromVM(uuid.data(), vf);
        }) != 0) {
        const bool absent = library_failure().ends_with("VF not attached");
        throw machine_failure(
            absent ? ExitCode::kNotFound : ExitCode::kFailed,
            fmt::format("Cannot detach {} from {}", location_text(vf), machine.title()));
    }
    if (output.wants_json()) {
        output.json(Json{
            {"vm", machine.name},
            {"changed", true},
            {"vf", location_text(vf)},
            {"kept_until_next_start", machine.is_active()}});
    } else {
        output.text(fmt::format(
            "{} is out of the definition of {}{}\n", location_text(vf), printable(machine.name),
            machine.is_active() ? ", which keeps it until its next start" : ""));
    }
    return report_other_state(machine);
}

const Argument kFunction{.name = "VF", .help = "PCI location of the function, such as 04:01.2"};

std::vector<Command> rows() {
    return {
        {
            .noun = "vf",
            .verb = "list",
            .help = "Show the virtual functions of this host or of a virtual machine",
            .about = "One line for each PCI function, of this host or of the named machine. The "
                     "library reads the numbers of lspci as decimal numbers: functions of the "
                     "host are shown with a wrong location when it contains a hexadecimal "
                     "letter, and functions of a machine are also found on buses whose decimal "
                     "reading is the same.",
            .arguments =
                {{.name = "VM",
                  .help = "Name, UUID or id of the virtual machine",
                  .count = Count::kOptional}},
            .examples = {"kxctl vf list", "kxctl --sim vf list web1 --json"},
            .run = list,
            .columns = list_columns,
        },
        {
            .noun = "vf",
            .verb = "attach",
            .help = "Attach a virtual function to a running virtual machine",
            .about = "The machine has it immediately and after every start. Shows the functions "
                     "of the machine afterwards.",
            .arguments = {kMachine, kFunction},
            .examples =
                {"kxctl vf attach web1 04:01.4", "kxctl --sim vf attach web1 0000:04:01.4 --json"},
            .run = attach,
        },
        {
            .noun = "vf",
            .verb = "detach",
            .help = "Remove a virtual function from a virtual machine's definition",
            .about = "A running machine keeps it until its next start.",
            .arguments = {kMachine, kFunction},
            .examples =
                {"kxctl vf detach web1 04:01.0", "kxctl --sim vf detach web2 04:01.3 --json"},
            .run = detach,
        },
    };
}

const TablePart kRows(1000, rows);

}  // namespace
}  // namespace kx::ctl::vf
