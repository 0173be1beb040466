// iwarp: the parameters of the RDMA drivers.
#include <fmt/core.h>
#include <kxlinhw/iwarp.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <cstring>

#include "cli/list.hpp"
#include "cli/suggestion.hpp"
#include "commands/commands.hpp"
#include "commands/set_commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "failure/unread.hpp"
#include "library/call.hpp"
#include "settings/change_report.hpp"
#include "settings/module_parameters.hpp"

namespace kx::ctl::iwarp {
namespace {

constexpr const char* kBoth = "-2147483648 to 2147483647";
constexpr const char* kNewer = "-2147483648 to 2147483647; iw_zfab4 only";
constexpr const char* kOlder = "-2147483648 to 2147483647; iw_zfab3 only";

// A row whose field has the same name.
#define KX_NAMED(field, help, bit) \
    { #field, help, bit, offsetof(IwarpProps, field), sizeof(IwarpProps::field), Form::kSigned }

// In the order in which the library applies them.
constexpr Setting kSettings[] = {
    KX_NAMED(allow_nonroot_rawqps, kNewer, KX_IWARP_ALLOW_NONROOT_RAWQPS),
    KX_NAMED(z4iw_debug, kNewer, KX_IWARP_DEBUG),
    KX_NAMED(z4iw_max_read_depth, kNewer, KX_IWARP_MAX_READ_DEPTH),
    KX_NAMED(crc_enabled, kBoth, KX_IWARP_CRC_ENABLED),
    KX_NAMED(cong_flavor, kOlder, KX_IWARP_CONG_FLAVOR),
    KX_NAMED(dack_mode, kNewer, KX_IWARP_DACK_MODE),
    KX_NAMED(db_delay_usecs, kNewer, KX_IWARP_DB_DELAY_USECS),
    KX_NAMED(db_fc_drain_thresh, kNewer, KX_IWARP_DB_FC_DRAIN_THRESH),
    KX_NAMED(db_fc_resume_delay, kNewer, KX_IWARP_DB_FC_RESUME_DELAY),
    KX_NAMED(db_fc_resume_size, kNewer, KX_IWARP_DB_FC_RESUME_SIZE),
    KX_NAMED(enable_ecn, kNewer, KX_IWARP_ENABLE_ECN),
    KX_NAMED(enable_tcp_timestamps, kNewer, KX_IWARP_ENABLE_TCP_TIMESTAMPS),
    KX_NAMED(enable_tcp_sack, kNewer, KX_IWARP_ENABLE_TCP_SACK),
    KX_NAMED(enable_tcp_window_scaling, kNewer, KX_IWARP_ENABLE_TCP_WINDOW_SCALING),
    KX_NAMED(ep_timeout_secs, kBoth, KX_IWARP_EP_TIMEOUT_SECS),
    KX_NAMED(fastreg_support, kNewer, KX_IWARP_FASTREG_SUPPORT),
    KX_NAMED(inline_threshold, kNewer, KX_IWARP_INLINE_THRESHOLD),
    KX_NAMED(map_udb_as_wc, kNewer, KX_IWARP_MAP_UDB_AS_WC),
    KX_NAMED(markers_enabled, kBoth, KX_IWARP_MARKERS_ENABLED),
    KX_NAMED(mpa_rev, kBoth, KX_IWARP_MPA_REV),
    KX_NAMED(max_fr_immd, kNewer, KX_IWARP_MAX_FR_IMMD),
    KX_NAMED(nocong, kBoth, KX_IWARP_NOCONG),
    KX_NAMED(ocqp_support, kNewer, KX_IWARP_OCQP_SUPPORT),
    KX_NAMED(peer2peer, kBoth, KX_IWARP_PEER2PEER),
    KX_NAMED(p2p_type, kNewer, KX_IWARP_P2P_TYPE),
    KX_NAMED(relaxed_ird_negotiation, kNewer, KX_IWARP_RELAXED_IRD_NEGOTIATION),
    KX_NAMED(relaxed_ordering, kNewer, KX_IWARP_RELAXED_ORDERING),
    KX_NAMED(rcv_win, kBoth, KX_IWARP_RCV_WIN),
    KX_NAMED(snd_win, kBoth, KX_IWARP_SND_WIN),
    KX_NAMED(q5_en_wc, kNewer, KX_IWARP_Q5_EN_WC),
    KX_NAMED(use_dsgl, kNewer, KX_IWARP_USE_DSGL),
};

#undef KX_NAMED

bool is_older(const std::string& module) { return module == "iw_zfab3"; }

bool has(const std::string& module, const Setting& setting) {
    const std::uint64_t lacking =
        is_older(module) ? KX_IWARP_ZFAB3_FORBIDDEN : KX_IWARP_ZFAB4_FORBIDDEN;
    return (setting.change_bit & lacking) == 0;
}

// The settings with the values that the library reads for a module: all settings, except
// markers_enabled for iw_zfab4.
std::vector<Setting> settings_of(const std::string& module) {
    std::vector<Setting> settings(std::begin(kSettings), std::end(kSettings));
    for (Setting& setting : settings) {
        const bool unread = setting.change_bit == KX_IWARP_MARKERS_ENABLED && !is_older(module);
        setting.readable = has(module, setting) && !unread;
    }
    return settings;
}

void check_parameters(std::span<const Change> changes, const std::string& module) {
    for (const Change& change : changes) {
        if (!has(module, *change.setting)) {
            throw Failure(
                ExitCode::kNotSupported,
                fmt::format("{} has no parameter {}", module, change.setting->key));
        }
    }
}

// The library says of a wrong word that its driver is not loaded.
std::string module_of(const Arguments& arguments) {
    static const std::vector<std::string> drivers = {"iw_zfab3", "iw_zfab4"};
    std::string module = arguments.get("MODULE");
    const bool is_wrong = std::ranges::find(drivers, module) == drivers.end();
    if (const std::string meant = did_you_mean(module, drivers); is_wrong && !meant.empty()) {
        throw Failure(
            ExitCode::kNotFound, fmt::format("There is no RDMA driver {}{}", module, meant));
    }
    return module;
}

IwarpProps query_props(const std::string& module) {
    IwarpProps props{};
    std::memcpy(props.module, module.data(), std::min(module.size(), sizeof props.module - 1));
    std::uint32_t size = 0;
    check(call_library([&] { return GetIwarpProps(&props, &size); }));
    return props;
}

std::vector<Column> show_columns() { return {{"PARAMETER"}, {"VALUE", Align::kRight}}; }

ExitCode show(const Arguments& arguments, Output& output) {
    List list(arguments, output, show_columns(), Order::kAsRead);
    const std::string module = module_of(arguments);
    const IwarpProps props = query_props(module);
    for (const Setting& setting : settings_of(module)) {
        if (const auto value = setting.value_in(&props)) {
            const bool read = !is_unread(fmt::format("/{}", setting.key));
            list.add(
                {setting.key, read ? fmt::format("{}", *value) : ""},
                {{setting.key, read ? Json(*value) : Json()}});
        }
    }
    if (output.wants_json()) {
        Json parameters = Json::object();
        for (const Json& parameter : list.json()) {
            parameters.update(parameter);
        }
        output.json(Json{{"module", module}, {"parameters", parameters}});
    } else {
        output.table(list.table());
    }
    return ExitCode::kDone;
}

ExitCode set(const Arguments& arguments, Output& output) {
    const std::string module = module_of(arguments);
    const std::vector<Setting> settings = settings_of(module);
    const std::vector<Change> changes = parse_changes(settings, arguments.all("KEY=VALUE"));
    IwarpProps props = query_props(module);
    check_parameters(changes, module);
    ChangeReport report(Json{{"module", module}}, changes, &props);
    refuse_missing_parameters(report.lines(), module);
    const auto missing = missing_privilege(Privilege::kOwnFiles, read_security_context());
    if (missing) {
        refuse_changes(report.lines(), *missing);
    }
    if (arguments.has("--dry-run")) {
        return report.tell_plan(output);
    }
    props.change_mask = apply_changes(report.accepted(), &props);
    if (!missing && props.change_mask != 0) {
        check(call_library([&] { return SetIwarpProps(&props); }));
    }
    const IwarpProps after = query_props(module);
    return report.tell_result(output, &after);
}

const Argument kModule{.name = "MODULE", .help = "RDMA driver: iw_zfab3 or iw_zfab4"};

}  // namespace

std::span<const Setting> settings() { return kSettings; }

namespace {

std::vector<Command> rows() {
    return {
        {
            .noun = "iwarp",
            .verb = "show",
            .help = "Show the parameters of an RDMA driver",
            .about = "One line for each parameter. The driver must be loaded; a parameter whose "
                     "file is missing has the value 0. The library does not read markers_enabled "
                     "of iw_zfab4.",
            .arguments = {kModule},
            .examples = {"kxctl iwarp show iw_zfab4", "kxctl --sim iwarp show iw_zfab3 --json"},
            .run = show,
            .columns = show_columns,
        },
        {
            .noun = "iwarp",
            .verb = "set",
            .help = "Change parameters of an RDMA driver",
            .about = "Writes the parameters, and shows the old value of each and the new value "
                     "as read back; each value that the driver did not accept has its own line. "
                     "Parameters are not saved.",
            .arguments = {kModule, kChanges, kDryRun},
            .examples =
                {"kxctl iwarp set iw_zfab4 peer2peer=1 snd_win=262144",
                 "kxctl --sim iwarp set iw_zfab3 cong_flavor=2 --dry-run"},
            .run = set,
            .settings = [] { return terms_of(settings()); },
        },
    };
}

const TablePart kRows(400, rows);

}  // namespace
}  // namespace kx::ctl::iwarp
