// port set: change the settings of a port.
#include <fmt/core.h>
#include <kxlinhw/query.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include "commands/commands.hpp"
#include "commands/set_commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "library/call.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "settings/change_report.hpp"
#include "settings/configuration_lock.hpp"
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

}  // namespace

std::vector<std::string> split_set_messages(std::string_view text) {
    constexpr std::string_view kMtu = "Set MTU for interface ";
    constexpr std::string_view kFailed = "failed: ";
    std::vector<std::string> messages;
    const std::size_t failed = text.starts_with(kMtu) ? text.find(kFailed) : text.npos;
    if (failed != text.npos) {
        for (const KxStatus status : {KX_UNKNOWN_ERROR, KX_INVALID_SET_VALUE}) {
            const std::string_view reason = GetErrStr(status);
            const std::size_t start = failed + kFailed.size();
            if (text.substr(start).starts_with(reason)) {
                messages.emplace_back(text.substr(0, start + reason.size()));
                text.remove_prefix(start + reason.size());
                break;
            }
        }
    }
    const std::vector<std::string> others = split_detail(text);
    messages.insert(messages.end(), others.begin(), others.end());
    return messages;
}

namespace {

ExitCode set(const Arguments& arguments, Output& output) {
    const std::vector<Change> changes = parse_changes(port_settings(), arguments.all("KEY=VALUE"));
    const auto missing = missing_privilege(Privilege::kNetworkAdmin, read_security_context());
    const auto lock = lock_for_change(arguments, missing);
    const PortTarget target(arguments);
    PortInfo port = target.record();
    const ChangeReport report(target.json(), changes, &port.settings);
    port.settings.change_mask = static_cast<std::uint32_t>(apply_changes(changes, &port.settings));
    port.settings.port_instance = target.instance();
    check_forced_link(changes, port.settings);
    if (arguments.has("--dry-run")) {
        return report.tell_plan(output);
    }
    if (missing) {
        return report.tell_without_privilege(output, &port.settings, *missing);
    }
    target.check_before_change();
    // SetPortParam would look for the number in a list of its own, in which it may be another port.
    // This function applies the same settings in the same order to the interface of the record.
    const std::uint32_t status = call_library([&] { return setPortParams(&port); });
    if (status != KX_SUCCESS && status != KX_SET_FAILED) {
        throw Failure::of_status(status);
    }
    const std::vector<std::string> messages = status == KX_SET_FAILED
                                                  ? split_set_messages(GetErrStr(KX_SET_FAILED))
                                                  : std::vector<std::string>();
    const PortInfo after = target.read_again();
    return report.tell_result(output, &after.settings, messages, Privilege::kNetworkAdmin);
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
            .arguments = with_lock_options({kPortOrCard, kPort, kChanges, kDryRun}),
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
