// The ring sizes of a port: all are read, the requested ones are changed, all are written.
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <array>

#include "settings/port_setter.hpp"

namespace kx::settings {
namespace {

// The limit of the mini ring, whatever the driver reports.
constexpr uint32_t kMiniRingLimit = 16384;

struct Ring {
    uint32_t bit;
    const char* name;  // in messages and in the port-parameter file
    uint32_t (*wanted)(const PortSettings&);
    uint32_t (*limit)(const ethtool_ringparam&);
    uint32_t ethtool_ringparam::*pending;
};

// The order in which sizes are checked; the last one is recorded first.
constexpr std::array<Ring, 4> kRings{{
    {KX_PORT_RING_RX, "ring_rx", [](const PortSettings& s) { return s.rings.rx; },
     [](const ethtool_ringparam& r) { return r.rx_max_pending; }, &ethtool_ringparam::rx_pending},
    {KX_PORT_RING_RX_MINI, "ring_rx_mini", [](const PortSettings& s) { return s.rings.rx_mini; },
     [](const ethtool_ringparam&) { return kMiniRingLimit; }, &ethtool_ringparam::rx_mini_pending},
    {KX_PORT_RING_RX_JUMBO, "ring_rx_jumbo", [](const PortSettings& s) { return s.rings.rx_jumbo; },
     [](const ethtool_ringparam& r) { return r.rx_jumbo_max_pending; },
     &ethtool_ringparam::rx_jumbo_pending},
    {KX_PORT_RING_TX, "ring_tx", [](const PortSettings& s) { return s.rings.tx; },
     [](const ethtool_ringparam& r) { return r.tx_max_pending; }, &ethtool_ringparam::tx_pending},
}};

// The order of the lines that the first recording appends.
constexpr std::array<std::size_t, 4> kRecordingOrder{3, 0, 1, 2};

// Put the sizes of mask into the request. Returns the bits of the sizes that the limits allow.
uint32_t accept(
    const PortSetter& port, const PortSettings& settings, uint32_t mask, ethtool_ringparam& rings) {
    uint32_t accepted = 0;
    for (const Ring& ring : kRings) {
        if ((mask & ring.bit) == 0) {
            continue;
        }
        const uint32_t wanted = ring.wanted(settings);
        if (wanted > ring.limit(rings)) {
            port.report(ring.name, "Invalid argument");
        } else {
            rings.*ring.pending = wanted;
            accepted |= ring.bit;
        }
    }
    return accepted;
}

void save(const PortSetter& port, const PortSettings& settings, uint32_t accepted) {
    for (const std::size_t row : kRecordingOrder) {
        const Ring& ring = kRings.at(row);
        if ((accepted & ring.bit) != 0) {
            port.save(ring.name, static_cast<int>(ring.wanted(settings)));
        }
    }
}

constexpr uint32_t kAllRings = [] {
    uint32_t bits = 0;
    for (const Ring& ring : kRings) {
        bits |= ring.bit;
    }
    return bits;
}();

}  // namespace
}  // namespace kx::settings

extern "C" {

int setRingParams(const char* interface_name, PortSettings* settings, uint32_t mask) {
    using namespace kx::settings;
    if (interface_name == nullptr || settings == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const PortSetter port(interface_name, settings->port_instance);
    ethtool_ringparam rings{};
    rings.cmd = ETHTOOL_GRINGPARAM;
    if (!port || port.request(&rings) != 0) {
        return kRefused;
    }
    const uint32_t accepted = accept(port, *settings, mask, rings);
    // Always sent, also when every size was refused.
    rings.cmd = ETHTOOL_SRINGPARAM;
    if (port.request(&rings) != 0) {
        port.report("Ethtool ring parameter", system_reason());
        return KX_INVALID_SET_VALUE;
    }
    save(port, *settings, accepted);
    return accepted == (mask & kAllRings) ? KX_SUCCESS : KX_INVALID_SET_VALUE;
}

}  // extern "C"
