// Numbers are as in <linux/ethtool.h>: masks as its bits, sizes in descriptors, times in
// microseconds. The order of rings is receive, receive mini, receive jumbo, transmit.
#include "scenario/nic_keys.hpp"

#include <array>
#include <limits>
#include <stdexcept>

namespace kxsim {
namespace {

template <class Field>
void read_number(TableReader& table, std::string_view key, Field& field) {
    unsigned number = field;
    table.number(key, number, std::numeric_limits<Field>::max());
    field = static_cast<Field>(number);
}

// A field that is 1 or 0.
template <class Field>
void read_switch(TableReader& table, std::string_view key, Field& field) {
    bool on = field != 0;
    table.flag(key, on);
    field = on ? 1 : 0;
}

void read_told(TableReader& table, std::string_view key, std::optional<std::uint32_t>& number) {
    table.allow(key);
    if (table.has(key)) {
        number = 0;
        table.number(key, *number);
    }
}

void read_duplex(TableReader& table, std::uint8_t& duplex) {
    std::string name;
    table.text("duplex", name, [&](const std::string& given) {
        if (given != "half" && given != "full" && given != "unknown") {
            throw std::invalid_argument(
                "duplex is \"" + given + "\", expected half, full or unknown");
        }
        duplex = given == "half" ? DUPLEX_HALF : given == "full" ? DUPLEX_FULL : DUPLEX_UNKNOWN;
    });
}

void read_link(TableReader& table, Nic& nic) {
    ethtool_cmd& link = nic.link_settings;
    read_switch(table, "link", nic.link);
    unsigned speed = ethtool_cmd_speed(&link);
    table.number("speed", speed);
    ethtool_cmd_speed_set(&link, speed);
    read_duplex(table, link.duplex);
    read_switch(table, "autoneg", link.autoneg);
    read_number(table, "supported", link.supported);
    read_number(table, "advertising", link.advertising);
    read_number(table, "connector", link.port);
    read_number(table, "phy_address", link.phy_address);
    read_number(table, "transceiver", link.transceiver);
}

void read_offloads(TableReader& table, Nic& nic) {
    read_switch(table, "rx_checksum", nic.rx_checksum);
    read_switch(table, "tx_checksum", nic.tx_checksum);
    read_switch(table, "scatter_gather", nic.scatter_gather);
    read_switch(table, "tso", nic.tso);
    read_switch(table, "gso", nic.gso);
}

void read_pause(TableReader& table, ethtool_pauseparam& pause) {
    read_switch(table, "pause_autoneg", pause.autoneg);
    read_switch(table, "rx_pause", pause.rx_pause);
    read_switch(table, "tx_pause", pause.tx_pause);
}

// Four sizes, in the usual order of rings.
void read_ring_sizes(
    TableReader& table, std::string_view key, const std::array<std::uint32_t*, 4>& sizes) {
    table.allow(key);
    if (!table.has(key)) {
        return;
    }
    std::vector<unsigned> given;
    table.numbers(key, given, UINT32_MAX);
    if (given.size() != sizes.size()) {
        table.complain(
            key, "holds " + std::to_string(given.size()) +
                     " numbers, expected four: receive, mini, jumbo, transmit");
    }
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        *sizes[i] = given[i];
    }
}

void read_rings(TableReader& table, ethtool_ringparam& rings) {
    read_ring_sizes(
        table, "rings",
        {&rings.rx_pending, &rings.rx_mini_pending, &rings.rx_jumbo_pending, &rings.tx_pending});
    read_ring_sizes(
        table, "ring_maxima",
        {&rings.rx_max_pending, &rings.rx_mini_max_pending, &rings.rx_jumbo_max_pending,
         &rings.tx_max_pending});
}

void read_multiple(TableReader& table, std::string_view key, std::uint32_t& multiple) {
    table.number(key, multiple);
    if (multiple == 0) {
        table.complain(key, "is 0, expected at least 1");
    }
}

void check_counter_name(const std::string& name) {
    if (name.empty() || name.size() > ETH_GSTRING_LEN) {
        throw std::invalid_argument("counter name \"" + name + "\", expected 1 to 32 characters");
    }
}

void read_counters(TableReader& table, Nic& nic) {
    table.allow("counter");
    if (!table.has("counter")) {
        return;
    }
    nic.counters.clear();
    table.tables("counter", [&](TableReader& entry) {
        NicCounter counter;
        entry.required("name")
            .text("name", counter.name, check_counter_name)
            .number("value", counter.value, INT64_MAX)
            .number("step", counter.step, INT64_MAX);
        entry.finish();
        nic.counters.push_back(counter);
    });
}

}  // namespace

void read_nic(TableReader& table, Nic& nic) {
    read_link(table, nic);
    read_number(table, "message_level", nic.message_level);
    read_offloads(table, nic);
    read_number(table, "wake_supported", nic.wake_on_lan.supported);
    read_number(table, "wake_enabled", nic.wake_on_lan.wolopts);
    read_number(table, "rx_usecs", nic.coalescing.rx_coalesce_usecs);
    read_rings(table, nic.rings);
    read_multiple(table, "ring_multiple", nic.ring_multiple);
    read_multiple(table, "usecs_multiple", nic.usecs_multiple);
    read_pause(table, nic.pause);
    read_counters(table, nic);
    read_told(table, "announced_counters", nic.announced_counters);
    read_told(table, "named_counters", nic.named_counters);
    read_told(table, "valued_counters", nic.valued_counters);
    table.finish();
}

}  // namespace kxsim
