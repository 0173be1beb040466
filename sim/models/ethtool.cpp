// Trigger: a SIOCETHTOOL request. Effect: a reading command copies the answer from the interface's
// record, a setting command stores it there, for every process of the session. Counters grow by
// their steps after each reading while there is a link. What can be made to fail: each command of
// each interface, by a refusal; the numbers of counters that the driver reports.
//
// To add a command, add a row to kCommands.
#include "models/ethtool.hpp"

#include <linux/ethtool.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kxsim::models {
namespace {

using state::Counter;
using state::Interface;
using state::Network;

constexpr __s8 kMaskWords = 3;  // of a mask of link modes, as in kernels of today

// A command of one interface, with the caller's record.
struct Request {
    Network& network;
    Interface& interface;
    std::uint32_t command;
    void* data;

    template <class Record>
    [[nodiscard]] Record asked() const {
        Record record;
        std::memcpy(&record, data, sizeof record);
        return record;
    }

    template <class Record>
    void answer(Record record) const {
        record.cmd = command;
        std::memcpy(data, &record, sizeof record);
    }

    // The data after the head of a record whose length the caller chose.
    [[nodiscard]] char* behind(std::size_t head) const { return static_cast<char*>(data) + head; }

    [[nodiscard]] Counter* counters() const { return network.counters + interface.counters.first; }
};

using Run = int (*)(const Request&);  // returns an errno, or 0

std::uint32_t told(std::int64_t instead, std::uint32_t truth) {
    return instead < 0 ? truth : static_cast<std::uint32_t>(instead);
}

bool has_link(const Interface& interface) {
    return (interface.flags & IFF_UP) != 0 && interface.nic.link != 0;
}

int get_driver_info(const Request& request) {
    const Interface& interface = request.interface;
    ethtool_drvinfo info{};
    std::memcpy(info.driver, interface.driver, sizeof info.driver);
    std::memcpy(info.version, interface.driver_version, sizeof info.version);
    std::memcpy(info.fw_version, interface.firmware, sizeof info.fw_version);
    std::memcpy(info.bus_info, interface.bus_info, sizeof info.bus_info);
    info.n_stats = told(interface.counters.announced, interface.counters.count);
    request.answer(info);
    return 0;
}

int get_link(const Request& request) {
    const bool up = (request.interface.flags & IFF_UP) != 0;
    request.answer(ethtool_value{.cmd = 0, .data = up ? request.interface.nic.link : 0});
    return 0;
}

// Settings that are separate records: read and written as a whole.
template <auto kSetting>
int get(const Request& request) {
    request.answer(request.interface.nic.*kSetting);
    return 0;
}

template <auto kSetting>
int set(const Request& request) {
    auto& setting = request.interface.nic.*kSetting;
    setting = request.asked<std::remove_reference_t<decltype(setting)>>();
    return 0;
}

// Settings that are numbers.
template <auto kSetting>
int get_number(const Request& request) {
    request.answer(ethtool_value{.cmd = 0, .data = request.interface.nic.*kSetting});
    return 0;
}

template <auto kSetting>
int set_number(const Request& request) {
    request.interface.nic.*kSetting = request.asked<ethtool_value>().data;
    return 0;
}

template <auto kSetting>
int set_switch(const Request& request) {
    request.interface.nic.*kSetting = request.asked<ethtool_value>().data != 0 ? 1 : 0;
    return 0;
}

// Nobody can set the supported modes and the transceiver of a port.
int set_link_settings(const Request& request) {
    auto wanted = request.asked<ethtool_cmd>();
    ethtool_cmd& link = request.interface.nic.link_settings;
    wanted.supported = link.supported;
    wanted.transceiver = link.transceiver;
    wanted.lp_advertising = link.lp_advertising;
    link = wanted;
    return 0;
}

// What follows the record that has room for every link mode. The modes of the older record are the
// first word of each mask.
struct ModeMasks {
    std::uint32_t supported[kMaskWords];
    std::uint32_t advertising[kMaskWords];
    std::uint32_t lp_advertising[kMaskWords];
};

// A caller first asks without words for the masks, and learns their number as a negative one.
int get_link_modes(const Request& request) {
    const bool knows_words =
        request.asked<ethtool_link_settings>().link_mode_masks_nwords == kMaskWords;
    ethtool_link_settings head{};
    if (!knows_words) {
        head.link_mode_masks_nwords = -kMaskWords;
        request.answer(head);
        return 0;
    }
    const ethtool_cmd& link = request.interface.nic.link_settings;
    head.link_mode_masks_nwords = kMaskWords;
    head.speed = ethtool_cmd_speed(&link);
    head.duplex = link.duplex;
    head.port = link.port;
    head.phy_address = link.phy_address;
    head.autoneg = link.autoneg;
    head.mdio_support = link.mdio_support;
    head.eth_tp_mdix = link.eth_tp_mdix;
    head.eth_tp_mdix_ctrl = link.eth_tp_mdix_ctrl;
    head.transceiver = link.transceiver;
    request.answer(head);
    ModeMasks masks{};
    masks.supported[0] = link.supported;
    masks.advertising[0] = link.advertising;
    masks.lp_advertising[0] = link.lp_advertising;
    std::memcpy(request.behind(sizeof head), &masks, sizeof masks);
    return 0;
}

int set_link_modes(const Request& request) {
    const auto head = request.asked<ethtool_link_settings>();
    if (head.link_mode_masks_nwords != kMaskWords) {
        return EINVAL;
    }
    ModeMasks masks;
    std::memcpy(&masks, request.behind(sizeof head), sizeof masks);
    ethtool_cmd& link = request.interface.nic.link_settings;
    ethtool_cmd_speed_set(&link, head.speed);
    link.duplex = head.duplex;
    link.port = head.port;
    link.phy_address = head.phy_address;
    link.autoneg = head.autoneg;
    link.eth_tp_mdix_ctrl = head.eth_tp_mdix_ctrl;
    link.advertising = masks.advertising[0];
    return 0;
}

// A driver takes only multiples of some number: sizes are rounded up, times down.
std::uint32_t rounded_up(std::uint32_t size, std::uint32_t multiple, std::uint32_t most) {
    const std::uint32_t rest = size % multiple;
    const std::uint32_t missing = rest == 0 ? 0 : multiple - rest;
    return missing > most - size ? most : size + missing;
}

int set_coalescing(const Request& request) {
    auto wanted = request.asked<ethtool_coalesce>();
    const std::uint32_t multiple = request.interface.nic.usecs_multiple;
    wanted.rx_coalesce_usecs -= wanted.rx_coalesce_usecs % multiple;
    wanted.tx_coalesce_usecs -= wanted.tx_coalesce_usecs % multiple;
    request.interface.nic.coalescing = wanted;
    return 0;
}

int set_rings(const Request& request) {
    auto wanted = request.asked<ethtool_ringparam>();
    ethtool_ringparam& rings = request.interface.nic.rings;
    if (wanted.rx_pending > rings.rx_max_pending ||
        wanted.rx_mini_pending > rings.rx_mini_max_pending ||
        wanted.rx_jumbo_pending > rings.rx_jumbo_max_pending ||
        wanted.tx_pending > rings.tx_max_pending) {
        return EINVAL;
    }
    wanted.rx_max_pending = rings.rx_max_pending;
    wanted.rx_mini_max_pending = rings.rx_mini_max_pending;
    wanted.rx_jumbo_max_pending = rings.rx_jumbo_max_pending;
    wanted.tx_max_pending = rings.tx_max_pending;
    const std::uint32_t multiple = request.interface.nic.ring_multiple;
    wanted.rx_pending = rounded_up(wanted.rx_pending, multiple, rings.rx_max_pending);
    wanted.rx_mini_pending =
        rounded_up(wanted.rx_mini_pending, multiple, rings.rx_mini_max_pending);
    wanted.rx_jumbo_pending =
        rounded_up(wanted.rx_jumbo_pending, multiple, rings.rx_jumbo_max_pending);
    wanted.tx_pending = rounded_up(wanted.tx_pending, multiple, rings.tx_max_pending);
    rings = wanted;
    return 0;
}

int negotiate_again(const Request& request) {
    if (request.interface.nic.link_settings.autoneg == AUTONEG_DISABLE) {
        return EINVAL;
    }
    ++request.interface.nic.negotiations;
    return 0;
}

int get_strings(const Request& request) {
    auto head = request.asked<ethtool_gstrings>();
    if (head.string_set != ETH_SS_STATS) {
        return EOPNOTSUPP;
    }
    const state::CounterRange& range = request.interface.counters;
    const std::uint32_t fitting = std::min(head.len, range.count);
    for (std::uint32_t i = 0; i < fitting; ++i) {
        std::memcpy(
            request.behind(sizeof head + std::size_t{i} * ETH_GSTRING_LEN),
            request.counters()[i].name, ETH_GSTRING_LEN);
    }
    head.len = told(range.named, range.count);
    std::memcpy(request.data, &head, sizeof head);
    return 0;
}

int get_counters(const Request& request) {
    auto head = request.asked<ethtool_stats>();
    const state::CounterRange& range = request.interface.counters;
    const std::uint32_t fitting = std::min(head.n_stats, range.count);
    const bool moving = has_link(request.interface);
    for (std::uint32_t i = 0; i < fitting; ++i) {
        Counter& counter = request.counters()[i];
        std::memcpy(
            request.behind(sizeof head + i * sizeof counter.value), &counter.value,
            sizeof counter.value);
        counter.value += moving ? counter.step : 0;
    }
    head.n_stats = told(range.valued, range.count);
    std::memcpy(request.data, &head, sizeof head);
    return 0;
}

struct Command {
    std::uint32_t command;
    Run run;
};

using Settings = NicSettings;

constexpr Command kCommands[] = {
    {ETHTOOL_GSET, get<&Settings::link_settings>},
    {ETHTOOL_SSET, set_link_settings},
    {ETHTOOL_GLINKSETTINGS, get_link_modes},
    {ETHTOOL_SLINKSETTINGS, set_link_modes},
    {ETHTOOL_GDRVINFO, get_driver_info},
    {ETHTOOL_GWOL, get<&Settings::wake_on_lan>},
    {ETHTOOL_GMSGLVL, get_number<&Settings::message_level>},
    {ETHTOOL_SMSGLVL, set_number<&Settings::message_level>},
    {ETHTOOL_NWAY_RST, negotiate_again},
    {ETHTOOL_GLINK, get_link},
    {ETHTOOL_GCOALESCE, get<&Settings::coalescing>},
    {ETHTOOL_SCOALESCE, set_coalescing},
    {ETHTOOL_GRINGPARAM, get<&Settings::rings>},
    {ETHTOOL_SRINGPARAM, set_rings},
    {ETHTOOL_GPAUSEPARAM, get<&Settings::pause>},
    {ETHTOOL_SPAUSEPARAM, set<&Settings::pause>},
    {ETHTOOL_GRXCSUM, get_number<&Settings::rx_checksum>},
    {ETHTOOL_SRXCSUM, set_switch<&Settings::rx_checksum>},
    {ETHTOOL_GTXCSUM, get_number<&Settings::tx_checksum>},
    {ETHTOOL_STXCSUM, set_switch<&Settings::tx_checksum>},
    {ETHTOOL_GSG, get_number<&Settings::scatter_gather>},
    {ETHTOOL_SSG, set_switch<&Settings::scatter_gather>},
    {ETHTOOL_GSTRINGS, get_strings},
    {ETHTOOL_GSTATS, get_counters},
    {ETHTOOL_GTSO, get_number<&Settings::tso>},
    {ETHTOOL_STSO, set_switch<&Settings::tso>},
    {ETHTOOL_GGSO, get_number<&Settings::gso>},
    {ETHTOOL_SGSO, set_switch<&Settings::gso>},
};

}  // namespace

int run_ethtool(Network& network, Interface& interface, std::uint32_t command, void* data) {
    for (const Command& row : kCommands) {
        if (row.command == command) {
            return row.run({network, interface, command, data});
        }
    }
    return EOPNOTSUPP;
}

}  // namespace kxsim::models
