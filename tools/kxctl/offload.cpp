// offload: the parameters of a card's offload engine.
#include <fmt/core.h>
#include <kxlinhw/offload.h>
#include <kxlinhw/status.h>

#include "failure.hpp"
#include "library_call.hpp"
#include "library_query.hpp"
#include "nouns.hpp"
#include "output.hpp"
#include "record_text.hpp"
#include "table.hpp"

namespace kx::ctl::offload {
namespace {

constexpr std::uint8_t kNoControlFiles = 2;

struct Parameter {
    const char* name;
    std::int64_t (*value)(const CardParams&);
    const char* unit;  // empty for switches and for what only the driver knows to count
};

constexpr char kBytes[] = "bytes";

constexpr Parameter kParameters[] = {
    {"activated", [](const CardParams& p) -> std::int64_t { return p.activated; }, ""},
    {"max_host_sndbuf", [](const CardParams& p) -> std::int64_t { return p.max_host_sndbuf; },
     kBytes},
    {"tx_hold_thres", [](const CardParams& p) -> std::int64_t { return p.tx_hold_thres; }, kBytes},
    {"max_wr", [](const CardParams& p) -> std::int64_t { return p.max_wr; }, "work requests"},
    {"rx_credit_thres", [](const CardParams& p) -> std::int64_t { return p.rx_credit_thres; },
     kBytes},
    {"failover_alg", [](const CardParams& p) -> std::int64_t { return p.failover_alg; }, ""},
    {"mss", [](const CardParams& p) -> std::int64_t { return p.mss; }, kBytes},
    {"delayed_ack", [](const CardParams& p) -> std::int64_t { return p.delayed_ack; }, ""},
    {"max_conn", [](const CardParams& p) -> std::int64_t { return p.max_conn; }, "connections"},
    {"soft_backlog_limit", [](const CardParams& p) -> std::int64_t { return p.soft_backlog_limit; },
     ""},
    {"ddp", [](const CardParams& p) -> std::int64_t { return p.ddp; }, ""},
    {"kseg_ddp", [](const CardParams& p) -> std::int64_t { return p.kseg_ddp; }, ""},
    {"ddp_thres", [](const CardParams& p) -> std::int64_t { return p.ddp_thres; }, kBytes},
    {"ddp_push_wait", [](const CardParams& p) -> std::int64_t { return p.ddp_push_wait; }, ""},
    {"ddp_rcvcoalesce", [](const CardParams& p) -> std::int64_t { return p.ddp_rcvcoalesce; }, ""},
    {"zcopy_sendmsg_partial_thres",
     [](const CardParams& p) -> std::int64_t { return p.zcopy_sendmsg_partial_thres; }, kBytes},
    {"zcopy_sendmsg_partial_copy",
     [](const CardParams& p) -> std::int64_t { return p.zcopy_sendmsg_partial_copy; }, kBytes},
    {"zcopy_sendmsg_thres",
     [](const CardParams& p) -> std::int64_t { return p.zcopy_sendmsg_thres; }, kBytes},
    {"zcopy_sendmsg_copy", [](const CardParams& p) -> std::int64_t { return p.zcopy_sendmsg_copy; },
     kBytes},
    {"zcopy_sendmsg_ret_pending_dma",
     [](const CardParams& p) -> std::int64_t { return p.zcopy_sendmsg_ret_pending_dma; }, kBytes},
    {"recvmsg_spin_us", [](const CardParams& p) -> std::int64_t { return p.recvmsg_spin_us; },
     "us"},
    {"cop_managed_offloading",
     [](const CardParams& p) -> std::int64_t { return p.cop_managed_offloading; }, ""},
    {"tx_coal", [](const CardParams& p) -> std::int64_t { return p.tx_coal; }, ""},
};

// The library leaves the parameters of a card empty when it cannot find the engine's device, so
// that is asked for here. A card without a port is served by the first device.
int device_of(const CardInfo& card, const std::string& location) {
    int index = 0;
    if (card.port_count > 0) {
        const std::string interface = field_text(query_port(location, 1).interface_name);
        check(call_library([&] { return getTOEDeviceIndex(interface.c_str(), &index); }));
    }
    return index;
}

}  // namespace

ExitCode show(const Arguments& arguments, Output& output) {
    const std::string location = arguments.get("LOCATION");
    const CardInfo card = query_card(location);
    if (field_text(card.offload_device).starts_with("nic")) {
        check(KX_NIC_ONLY);
    }
    const int device = device_of(card, location);
    if (card.params.state == kNoControlFiles) {
        check(KX_RESOURCE_UNAVAILABLE);
    }
    Json parameters = Json::array();
    Table table({{"PARAMETER"}, {"VALUE", Align::kRight}, {"UNIT"}});
    for (const Parameter& parameter : kParameters) {
        const std::int64_t value = parameter.value(card.params);
        parameters.push_back(
            {{"name", parameter.name}, {"value", value}, {"unit", text_or_null(parameter.unit)}});
        table.add_row({parameter.name, fmt::format("{}", value), parameter.unit});
    }
    if (output.wants_json()) {
        output.json(Json{{"location", location}, {"device", device}, {"parameters", parameters}});
    } else {
        output.table(table);
    }
    return ExitCode::kDone;
}

}  // namespace kx::ctl::offload
