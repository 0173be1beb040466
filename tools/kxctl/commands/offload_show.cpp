// offload show: the parameters of a card's offload engine and Ethernet driver.
#include <fmt/core.h>
#include <kxlinhw/offload.h>
#include <kxlinhw/status.h>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "commands/set_commands.hpp"
#include "failure/failure.hpp"
#include "failure/unread.hpp"
#include "library/call.hpp"
#include "library/card_ports.hpp"
#include "library/engine_target.hpp"
#include "library/record_text.hpp"
#include "settings/setting.hpp"

namespace kx::ctl::offload {
namespace {

// The library leaves the parameters of a card empty when it cannot find the engine's device, so the
// device is checked here. For a card without a port it is the first device.
int device_of(const std::vector<Port>& ports) {
    int index = 0;
    if (!ports.empty()) {
        const std::string interface = field_text(ports.front().interface_name);
        check(call_library([&] { return getTOEDeviceIndex(interface.c_str(), &index); }));
    }
    return index;
}

// A parameter of the engine, or of the Ethernet driver, which all cards share.
bool has_unread(const char* key, int device) {
    return is_unread(fmt::format("/toe{}_tom/{}", device, key)) ||
           is_unread(fmt::format("/parameters/{}", key));
}

// The library reads the parameters of all cards.
void forget_other_engines(int device) {
    forget_unread([own = fmt::format("/proc/sys/toe/toe{}_tom/", device)](std::string_view object) {
        return object.starts_with("/proc/sys/toe/toe") && !object.starts_with(own);
    });
}

}  // namespace

void must_have_engine(const CardInfo& card) {
    if (field_text(card.offload_device).starts_with("nic")) {
        check(KX_NIC_ONLY);
    }
}

namespace {

std::vector<Column> show_columns() { return {{"PARAMETER"}, {"VALUE", Align::kRight}, {"UNIT"}}; }

ExitCode show(const Arguments& arguments, Output& output) {
    List parameters(arguments, output, show_columns(), Order::kAsRead);
    const EngineTarget target(arguments);
    const CardInfo& card = target.record();
    must_have_engine(card);
    const int device = device_of(target.ports());
    forget_other_engines(device);
    if (card.params.state == kNoControlFiles) {
        check(KX_RESOURCE_UNAVAILABLE);
    }
    for (const Setting& setting : settings()) {
        if (const auto value = setting.value_in(&card.params)) {
            const bool read = !has_unread(setting.key, device);
            parameters.add(
                {setting.key, read ? fmt::format("{}", *value) : "", setting.unit},
                {{"name", setting.key},
                 {"value", read ? Json(*value) : Json()},
                 {"unit", text_or_null(setting.unit)}});
        }
    }
    if (output.wants_json()) {
        Json answer = target.json();
        answer.update(Json{{"device", device}, {"parameters", parameters.json()}});
        output.json(answer);
    } else {
        output.text(subject_text(target.json()));
        output.table(parameters.table());
    }
    return ExitCode::kDone;
}

std::vector<Command> show_rows() {
    return {
        {
            .noun = "offload",
            .verb = "show",
            .help = "Show the parameters of a card's offload engine",
            .about = "One line for each parameter, with the name of its control file in "
                     "/proc/sys/toe/toeN_tom; tx_coal is a parameter of the Ethernet driver's "
                     "module. Parameters without a unit are switches, or have a unit of the "
                     "driver.",
            .arguments = {kLocation},
            .examples = {"kxctl offload show 03:00.4", "kxctl --sim offload show 03:00.4 --json"},
            .run = show,
            .columns = show_columns,
        },
    };
}

const TablePart kShowRows(300, show_rows);

}  // namespace
}  // namespace kx::ctl::offload
