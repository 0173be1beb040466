// The answers of a simulated network interface's driver to ethtool commands; setting commands
// change them. Every answer is a record of the kernel, with the fields and units of
// <linux/ethtool.h>; the `cmd` fields have no meaning.
#pragma once

#include <linux/ethtool.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kxsim {

// The defaults of an adapter's port.
[[nodiscard]] constexpr ethtool_cmd default_link_settings() {
    ethtool_cmd link{};
    link.supported = SUPPORTED_10baseT_Half | SUPPORTED_10baseT_Full | SUPPORTED_100baseT_Half |
                     SUPPORTED_100baseT_Full | SUPPORTED_1000baseT_Full |
                     SUPPORTED_10000baseT_Full | SUPPORTED_Autoneg | SUPPORTED_FIBRE |
                     SUPPORTED_Pause;
    link.advertising = ADVERTISED_1000baseT_Full | ADVERTISED_10000baseT_Full | ADVERTISED_Autoneg |
                       ADVERTISED_Pause;
    link.speed = SPEED_10000;
    link.duplex = DUPLEX_FULL;
    link.port = PORT_FIBRE;
    link.autoneg = AUTONEG_ENABLE;
    return link;
}

[[nodiscard]] constexpr ethtool_wolinfo default_wake_on_lan() {
    ethtool_wolinfo wake{};
    wake.supported = WAKE_MAGIC | WAKE_BCAST;
    return wake;
}

[[nodiscard]] constexpr ethtool_coalesce default_coalescing() {
    ethtool_coalesce coalescing{};
    coalescing.rx_coalesce_usecs = 5;
    coalescing.rx_max_coalesced_frames = 8;
    coalescing.tx_coalesce_usecs = 50;
    coalescing.tx_max_coalesced_frames = 32;
    return coalescing;
}

[[nodiscard]] constexpr ethtool_ringparam default_rings() {
    ethtool_ringparam rings{};
    rings.rx_max_pending = 16384;
    rings.rx_mini_max_pending = 16384;
    rings.rx_jumbo_max_pending = 16384;
    rings.tx_max_pending = 16384;
    rings.rx_pending = 1024;
    rings.rx_mini_pending = 512;
    rings.rx_jumbo_pending = 256;
    rings.tx_pending = 2048;
    return rings;
}

[[nodiscard]] constexpr ethtool_pauseparam default_pause() {
    ethtool_pauseparam pause{};
    pause.autoneg = 1;
    pause.rx_pause = 1;
    pause.tx_pause = 1;
    return pause;
}

struct NicSettings {
    std::uint32_t link =
        1;  // the link while the interface is up; an interface that is down has no link
    ethtool_cmd link_settings = default_link_settings();
    std::uint32_t message_level = 0x7;
    std::uint32_t rx_checksum = 1;
    std::uint32_t tx_checksum = 1;
    std::uint32_t scatter_gather = 1;
    std::uint32_t tso = 1;
    std::uint32_t gso = 1;
    ethtool_wolinfo wake_on_lan = default_wake_on_lan();
    ethtool_coalesce coalescing = default_coalescing();
    ethtool_ringparam rings = default_rings();
    ethtool_pauseparam pause = default_pause();
    std::uint32_t ring_multiple = 1;   // the driver rounds ring sizes up to a multiple of it
    std::uint32_t usecs_multiple = 1;  // and coalescing times down; neither of them is 0
    std::uint32_t negotiations = 0;    // how often auto-negotiation was restarted
};

struct NicCounter {
    std::string name;  // up to 32 characters; 32 of them leave no room for a NUL
    std::uint64_t value = 0;
    std::uint64_t step = 0;  // increase after each reading while there is a link
};

// A few counters that grow like those of a port with traffic.
[[nodiscard]] std::vector<NicCounter> default_counters();

struct Nic : NicSettings {
    std::vector<NicCounter> counters = default_counters();

    // A driver that reports wrong numbers of counters: in its driver information, its names and its
    // values. It never writes more than the caller has room for.
    std::optional<std::uint32_t> announced_counters = {};
    std::optional<std::uint32_t> named_counters = {};
    std::optional<std::uint32_t> valued_counters = {};
};

}  // namespace kxsim
