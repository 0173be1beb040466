// offload: the settings of a card's offload engine and Ethernet driver.
#include <fmt/core.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include <algorithm>

#include "commands/nouns.hpp"
#include "failure/failure.hpp"
#include "library/call.hpp"
#include "library/query.hpp"
#include "output/output.hpp"
#include "settings/change_report.hpp"
#include "settings/configuration_lock.hpp"

namespace kx::ctl::offload {
namespace {

constexpr const char* kOfThirtyTwoBits = "-2147483648 to 2147483647";
constexpr const char* kOfThirtyOneBits = "0 to 2147483647";

// A row whose field bears its name.
#define KX_NAMED(field, help, bit) \
    { #field, help, bit, offsetof(CardParams, field), sizeof(CardParams::field), Form::kSigned }

constexpr Setting kSettings[] = {
    {"activated", "offload engine, on or off", KX_CARD_ACTIVATED, offsetof(CardParams, activated),
     sizeof(CardParams::activated), Form::kSigned, kOnOff},
    KX_NAMED(max_host_sndbuf, kOfThirtyOneBits, KX_CARD_MAX_HOST_SNDBUF),
    KX_NAMED(tx_hold_thres, kOfThirtyOneBits, KX_CARD_TX_HOLD_THRES),
    KX_NAMED(max_wr, "3 to 32767", KX_CARD_MAX_WR),
    {"max_wr_credits", "3 to 32767, beside another offload setting; the same value as max_wr",
     KX_CARD_MAX_WR_CREDITS, offsetof(CardParams, max_wr), sizeof(CardParams::max_wr),
     Form::kSigned, kNoWords, false},
    KX_NAMED(rx_credit_thres, "1 to 2147483647", KX_CARD_RX_CREDIT_THRES),
    KX_NAMED(failover_alg, "-1 to 3", KX_CARD_FAILOVER_ALG),
    KX_NAMED(mss, "1 to 1048576", KX_CARD_MSS),
    KX_NAMED(delayed_ack, "0 to 3", KX_CARD_DELAYED_ACK),
    KX_NAMED(max_conn, "-1 (no limit) to 2147483647", KX_CARD_MAX_CONN),
    KX_NAMED(soft_backlog_limit, "0 or 1", KX_CARD_SOFT_BACKLOG_LIMIT),
    KX_NAMED(ddp, "0 or 1", KX_CARD_DDP),
    KX_NAMED(ddp_thres, kOfThirtyTwoBits, KX_CARD_DDP_THRES),
    KX_NAMED(recvmsg_spin_us, "-128 to 127", KX_CARD_RECVMSG_SPIN_US),
    KX_NAMED(ddp_push_wait, kOfThirtyTwoBits, KX_CARD_DDP_PUSH_WAIT),
    KX_NAMED(ddp_rcvcoalesce, kOfThirtyTwoBits, KX_CARD_DDP_RCVCOALESCE),
    KX_NAMED(zcopy_sendmsg_partial_thres, kOfThirtyTwoBits, KX_CARD_ZCOPY_SENDMSG_PARTIAL_THRES),
    KX_NAMED(zcopy_sendmsg_partial_copy, kOfThirtyTwoBits, KX_CARD_ZCOPY_SENDMSG_PARTIAL_COPY),
    KX_NAMED(zcopy_sendmsg_thres, kOfThirtyTwoBits, KX_CARD_ZCOPY_SENDMSG_THRES),
    KX_NAMED(zcopy_sendmsg_copy, kOfThirtyTwoBits, KX_CARD_ZCOPY_SENDMSG_COPY),
    KX_NAMED(
        zcopy_sendmsg_ret_pending_dma, kOfThirtyTwoBits, KX_CARD_ZCOPY_SENDMSG_RET_PENDING_DMA),
    KX_NAMED(kseg_ddp, kOfThirtyTwoBits, KX_CARD_KSEG_DDP),
    KX_NAMED(cop_managed_offloading, "0 or 1", KX_CARD_COP_MANAGED_OFFLOADING),
    KX_NAMED(tx_coal, "parameter of the Ethernet driver zfab4, -128 to 127", KX_CARD_TX_COAL),
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

}  // namespace

std::span<const Setting> settings() { return kSettings; }

ExitCode set(const Arguments& arguments, Output& output) {
    std::string location = arguments.get("LOCATION");
    const std::vector<Change> changes = parse_changes(kSettings, arguments.all("KEY=VALUE"));
    const auto lock = lock_unless_planning(arguments);
    const CardInfo card = query_card(location);
    CardParams params = card.params;
    const ChangeReport report(Json{{"location", location}}, changes, &params);
    const std::uint64_t mask = apply_changes(changes, &params);
    check_credits(changes, mask);
    if ((mask & KX_CARD_OFFLOAD_BITS) != 0) {
        must_have_engine(card);
    }
    params.change_mask = static_cast<std::uint32_t>(mask);
    if (arguments.has("--dry-run")) {
        return report.tell_plan(output);
    }
    const std::uint32_t status =
        call_library([&] { return SetCardParam(&params, location.data()); });
    if (status != KX_SUCCESS && status != KX_SET_FAILED) {
        throw Failure::of_status(status);
    }
    const std::vector<std::string> messages = status == KX_SET_FAILED
                                                  ? split_detail(GetErrStr(KX_SET_FAILED))
                                                  : std::vector<std::string>();
    const CardParams after = query_card(location).params;
    return report.tell_result(output, &after, messages, Privilege::kOwnFiles);
}

}  // namespace kx::ctl::offload
