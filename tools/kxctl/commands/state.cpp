// state: what is set on this host, as a file for plan.
#include <fmt/core.h>

#include "change/host_ports.hpp"
#include "change/state_text.hpp"
#include "commands/commands.hpp"
#include "files/replaced_file.hpp"
#include "library/record_text.hpp"
#include "output/counted.hpp"
#include "output/output.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl::state {
namespace {

Json port_json(const HostPort& port) {
    Json settings = Json::object();
    for (const Setting& setting : port_settings()) {
        if (setting.is_shown()) {
            const auto value = state_value(setting, port.record);
            settings[setting.key] = setting.json_of(value);
        }
    }
    return {
        {"interface", port.identity.name},
        {"mac", text_or_null(port.mac())},
        {"location", port.identity.location->text()},
        {"instance", port.instance == 0 ? Json() : Json(port.instance)},
        {"settings", settings}};
}

// A state without a port that exists is not the whole state.
HostPorts read_ports(Output& output) {
    HostPorts found = read_host_ports();
    for (const HostInterface& silent : found.silent) {
        output.incomplete().add(fmt::format("{}: its driver does not answer", silent.name));
    }
    for (const HostPort& port : found.ports) {
        for (const Setting& setting : port_settings()) {
            output.incomplete().add(port.record.unread({setting.reads}));
        }
    }
    return found;
}

ExitCode show(const Arguments& /*arguments*/, Output& output) {
    const HostPorts found = read_ports(output);
    if (output.wants_json()) {
        output.json(Json{{"ports", json_array(found.ports, port_json)}});
    } else {
        output.text(state_text(found.ports));
    }
    return ExitCode::kDone;
}

ExitCode save(const Arguments& arguments, Output& output) {
    const std::string file = arguments.get("FILE", "-");
    if (Output::is_named(file)) {
        output.must_be_free(Content::kText);
    }
    output.tell_unread();
    const HostPorts found = read_ports(output);
    const std::string text = state_text(found.ports);
    if (Output::is_named(file)) {
        output.text(text);
        return ExitCode::kDone;
    }
    replace_file(file, text);
    if (output.wants_json()) {
        output.json(Json{{"file", file}, {"ports", found.ports.size()}});
    } else {
        output.text(
            fmt::format("{} has the settings of {}\n", file, counted(found.ports.size(), "port")));
    }
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "state",
            .verb = "show",
            .help = "Show what is set on the ports of this host",
            .about = "Prints the settings of all ports as the file that \"kxctl plan\" reads. "
                     "Settings that a driver does not tell are left out.",
            .arguments = {},
            .examples = {"kxctl state show", "kxctl state show --json"},
            .run = show,
        },
        {
            .noun = "state",
            .verb = "save",
            .help = "Write what is set on the ports of this host to a file",
            .about =
                "Writes the settings of all ports to FILE, which other programs see either as it "
                "was or complete. Each port is named by its MAC; by its interface where several "
                "ports have the same MAC. Whatever a driver does not tell is left out, and "
                "reported with exit code 4.",
            .arguments = {{
                .name = "FILE",
                .help = "File to write; - for standard output (the default)",
                .count = Count::kOptional,
            }},
            .examples = {"kxctl state save host.toml", "kxctl state save -"},
            .run = save,
        },
    };
}

const TablePart kRows(1350, rows);

}  // namespace
}  // namespace kx::ctl::state
