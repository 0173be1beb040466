// offload: the settings of a card's offload engine and Ethernet driver.
#include <fmt/core.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include <algorithm>

#include "commands/commands.hpp"
#include "commands/set_commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "library/call.hpp"
#include "library/engine_target.hpp"
#include "library/record_text.hpp"
#include "output/output.hpp"
#include "settings/change_report.hpp"
#include "settings/configuration_lock.hpp"
#include "settings/module_parameters.hpp"

namespace kx::ctl::offload {
namespace {

// A row whose field has the same name. Without a unit it is a switch, or has a unit of the driver.
#define KX_NAMED(field, bit, least, most, counted_in, meaning)                     \
    {                                                                              \
        .key = #field, .help = (meaning), .change_bit = (bit),                     \
        .offset = offsetof(CardParams, field), .width = sizeof(CardParams::field), \
        .form = Form::kSigned, .range = {least, most}, .unit = (counted_in)        \
    }

constexpr Setting kSettings[] = {
    {"activated", "offload engine", KX_CARD_ACTIVATED, offsetof(CardParams, activated),
     sizeof(CardParams::activated), Form::kSigned, kOnOff},
    KX_NAMED(max_host_sndbuf, KX_CARD_MAX_HOST_SNDBUF, 0, INT32_MAX, "bytes", ""),
    KX_NAMED(tx_hold_thres, KX_CARD_TX_HOLD_THRES, 0, INT32_MAX, "bytes", ""),
    KX_NAMED(max_wr, KX_CARD_MAX_WR, 3, INT16_MAX, "work requests", ""),
    {.key = "max_wr_credits",
     .help = "the same value as max_wr",
     .change_bit = KX_CARD_MAX_WR_CREDITS,
     .offset = offsetof(CardParams, max_wr),
     .width = sizeof(CardParams::max_wr),
     .form = Form::kSigned,
     .readable = false,
     .range = {3, INT16_MAX},
     .unit = "work requests",
     .condition = "beside another offload setting"},
    KX_NAMED(rx_credit_thres, KX_CARD_RX_CREDIT_THRES, 1, INT32_MAX, "bytes", ""),
    KX_NAMED(failover_alg, KX_CARD_FAILOVER_ALG, -1, 3, "", ""),
    KX_NAMED(mss, KX_CARD_MSS, 1, 1048576, "bytes", ""),
    KX_NAMED(delayed_ack, KX_CARD_DELAYED_ACK, 0, 3, "", ""),
    KX_NAMED(max_conn, KX_CARD_MAX_CONN, -1, INT32_MAX, "connections", "-1 for no limit"),
    KX_NAMED(soft_backlog_limit, KX_CARD_SOFT_BACKLOG_LIMIT, 0, 1, "", ""),
    KX_NAMED(ddp, KX_CARD_DDP, 0, 1, "", ""),
    KX_NAMED(ddp_thres, KX_CARD_DDP_THRES, INT32_MIN, INT32_MAX, "bytes", ""),
    KX_NAMED(recvmsg_spin_us, KX_CARD_RECVMSG_SPIN_US, INT8_MIN, INT8_MAX, "us", ""),
    KX_NAMED(ddp_push_wait, KX_CARD_DDP_PUSH_WAIT, INT32_MIN, INT32_MAX, "", ""),
    KX_NAMED(ddp_rcvcoalesce, KX_CARD_DDP_RCVCOALESCE, INT32_MIN, INT32_MAX, "", ""),
    KX_NAMED(
        zcopy_sendmsg_partial_thres, KX_CARD_ZCOPY_SENDMSG_PARTIAL_THRES, INT32_MIN, INT32_MAX,
        "bytes", ""),
    KX_NAMED(
        zcopy_sendmsg_partial_copy, KX_CARD_ZCOPY_SENDMSG_PARTIAL_COPY, INT32_MIN, INT32_MAX,
        "bytes", ""),
    KX_NAMED(zcopy_sendmsg_thres, KX_CARD_ZCOPY_SENDMSG_THRES, INT32_MIN, INT32_MAX, "bytes", ""),
    KX_NAMED(zcopy_sendmsg_copy, KX_CARD_ZCOPY_SENDMSG_COPY, INT32_MIN, INT32_MAX, "bytes", ""),
    KX_NAMED(
        zcopy_sendmsg_ret_pending_dma, KX_CARD_ZCOPY_SENDMSG_RET_PENDING_DMA, INT32_MIN, INT32_MAX,
        "bytes", ""),
    KX_NAMED(kseg_ddp, KX_CARD_KSEG_DDP, INT32_MIN, INT32_MAX, "", ""),
    KX_NAMED(cop_managed_offloading, KX_CARD_COP_MANAGED_OFFLOADING, 0, 1, "", ""),
    KX_NAMED(
        tx_coal, KX_CARD_TX_COAL, INT8_MIN, INT8_MAX, "", "parameter of the Ethernet driver zfab4"),
};

#undef KX_NAMED

const Change* find(std::span<const Change> changes, std::string_view key) {
    const auto found = std::ranges::find_if(
        changes, [key](const Change& change) { return change.setting->key == key; });
    return found == changes.end() ? nullptr : &*found;
}

// max_wr_credits has neither a field nor a call of its own.
void check_credits(std::span<const Change> changes, std::uint64_t mask) {
    const Change* const credits = find(changes, "max_wr_credits");
    if (credits == nullptr) {
        return;
    }
    if ((mask & KX_CARD_OFFLOAD_BITS) == 0) {
        throw Failure(
            ExitCode::kUsage, "max_wr_credits is applied only beside another offload setting");
    }
    const Change* const requests = find(changes, "max_wr");
    if (requests != nullptr && requests->value != credits->value) {
        throw Failure(ExitCode::kUsage, "max_wr and max_wr_credits share one value");
    }
}

// The control files appear when the engine is activated.
void refuse_unsupported(std::span<ChangeLine> lines, const CardInfo& card, std::uint64_t mask) {
    const bool has_no_files =
        card.params.state == kNoControlFiles && (mask & KX_CARD_ACTIVATED) == 0;
    for (ChangeLine& line : lines) {
        if (line.setting->change_bit == KX_CARD_TX_COAL) {
            refuse_missing_parameters({&line, 1}, "zfab4");
        } else if (has_no_files) {
            line.before.reset();
            line.refused = Refusal{
                ExitCode::kNotFound,
                fmt::format(
                    "{} cannot be set: the offload engine of {} has no control files",
                    line.setting->key, field_text(card.pci_bus_location))};
        }
    }
}

ExitCode set(const Arguments& arguments, Output& output) {
    const std::vector<Change> changes = parse_changes(kSettings, arguments.all("KEY=VALUE"));
    const auto missing = missing_privilege(Privilege::kOwnFiles, read_security_context());
    const auto lock = lock_for_change(arguments, missing);
    const EngineTarget target(arguments);
    const CardInfo& card = target.record();
    CardParams params = card.params;
    ChangeReport report(target.json(), changes, &params);
    const std::uint64_t mask = apply_changes(changes, &params);
    check_credits(changes, mask);
    if ((mask & KX_CARD_OFFLOAD_BITS) != 0) {
        must_have_engine(card);
    }
    refuse_unsupported(report.lines(), card, mask);
    if (missing) {
        refuse_changes(report.lines(), *missing);
    }
    if (arguments.has("--dry-run")) {
        return report.tell_plan(output);
    }
    params = card.params;
    params.change_mask = static_cast<std::uint32_t>(apply_changes(report.accepted(), &params));
    if (!missing && params.change_mask != 0) {
        target.check_before_change();
        // SetCardParam would make its own list of ports, whose first one may have the engine of
        // another card. This function applies the same settings in the same order to the card of
        // the record.
        std::vector<PortInfo> ports(target.ports().begin(), target.ports().end());
        CardInfo changed = card;
        changed.params = params;
        changed.ports = ports.empty() ? nullptr : ports.data();
        const std::uint32_t status = call_library([&] { return setCardParams(&changed); });
        if (status != KX_SUCCESS && status != KX_SET_FAILED) {
            throw Failure::of_status(status);
        }
        if (status == KX_SET_FAILED) {
            report.take_messages(split_detail(GetErrStr(KX_SET_FAILED)));
        }
    }
    const CardParams after = target.read_again().params;
    return report.tell_result(output, &after);
}

}  // namespace

std::span<const Setting> settings() { return kSettings; }

namespace {

std::vector<Command> set_rows() {
    return {
        {
            .noun = "offload",
            .verb = "set",
            .help = "Change offload and driver settings of a card",
            .about = "Applies the settings, and shows the old value of each setting and the new "
                     "value as read back. A setting that fails does not stop the others; each "
                     "failure has its own line. Settings of the offload engine are saved in "
                     "/etc/sysctl.conf.",
            .arguments = with_lock_options({kLocation, kChanges, kDryRun}),
            .examples =
                {"kxctl offload set 03:00.4 activated=on mss=1460",
                 "kxctl --sim offload set 03:00.4 max_conn=-1 --dry-run"},
            .run = set,
            .settings = [] { return terms_of(settings()); },
        },
    };
}

const TablePart kSetRows(310, set_rows);

}  // namespace
}  // namespace kx::ctl::offload
