#include "change/host_ports.hpp"

#include <fmt/core.h>
#include <kxlinhw/inventory.h>
#include <kxlinhw/port.h>
#include <kxlinhw/settings.h>

#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string_view>

#include "change/state_file.hpp"
#include "failure/failure.hpp"
#include "library/call.hpp"
#include "library/record_text.hpp"
#include "settings/port_driver.hpp"
#include "settings/port_settings.hpp"
#include "settings/port_values.hpp"

namespace kx::ctl {
namespace {

struct CloseCards {
    void operator()(CardList* list) const { Close_Kxcard(list); }
};

std::unique_ptr<CardList, CloseCards> read_cards() {
    forget_driver_answers();
    CardList* list = nullptr;
    const std::uint32_t status = call_library(
        [&list] { return InitAndFillInfo_Kxcard(&list, KX_FILL_ADDRESSES | KX_FILL_PORT_PARAMS); });
    std::unique_ptr<CardList, CloseCards> cards(list);
    check(status);
    return cards;
}

using InterfacesByName = std::map<std::string, HostInterface, std::less<>>;

InterfacesByName interfaces_by_name() {
    InterfacesByName found;
    for (HostInterface& each : host_interfaces()) {
        found.emplace(each.name, std::move(each));
    }
    return found;
}

Port port_of_record(const PortInfo& record) {
    Port port{record, driver_answers(field_text(record.interface_name)), std::nullopt};
    port.PortInfo::stats = nullptr;
    port.PortInfo::next = nullptr;
    return port;
}

// A number is certain where the kernel lists the same interfaces at the same function.
void keep_certain_numbers(
    std::vector<HostPort>& ports, const std::map<std::string, std::size_t>& listed) {
    std::map<std::string, std::set<std::string>> answering;
    for (const HostPort& port : ports) {
        answering[port.identity.location->text()].insert(port.identity.location->full_text());
    }
    std::map<std::string, std::size_t> counts;
    for (const HostPort& port : ports) {
        ++counts[port.identity.location->full_text()];
    }
    for (HostPort& port : ports) {
        const std::string place = port.identity.location->full_text();
        const bool one_domain = answering[port.identity.location->text()].size() == 1;
        const auto all = listed.find(place);
        if (!one_domain || all == listed.end() || all->second != counts[place]) {
            port.instance = 0;
        }
    }
}

}  // namespace

std::string HostPort::text() const {
    return instance == 0
               ? fmt::format("{} ({})", identity.name, identity.location->text())
               : fmt::format("{} ({} port {})", identity.name, identity.location->text(), instance);
}

HostPorts read_host_ports() {
    HostPorts found;
    const auto cards = read_cards();
    const InterfacesByName interfaces = interfaces_by_name();
    std::set<std::string> locations;
    std::set<std::string> names;
    for (const CardInfo* card = cards->cards; card != nullptr; card = card->next) {
        locations.insert(field_text(card->pci_bus_location));
        for (const PortInfo* record = card->ports; record != nullptr; record = record->next) {
            const auto interface = interfaces.find(field_text(record->interface_name));
            if (interface == interfaces.end() || !interface->second.location) {
                continue;  // it went away between the two readings
            }
            names.insert(interface->first);
            HostPort& port = found.ports.emplace_back();
            port.identity = interface->second;
            port.permanent_mac = PortDriver(interface->first).permanent_mac();
            port.chip = field_text(card->chip_type);
            port.model = field_text(card->model);
            port.instance = record->instance;
            port.record = port_of_record(*record);
        }
    }
    std::map<std::string, std::size_t> listed;
    for (const auto& [name, interface] : interfaces) {
        if (!interface.location || is_stacked(name)) {
            continue;
        }
        ++listed[interface.location->full_text()];
        if (locations.contains(interface.location->text()) && !names.contains(name)) {
            found.silent.push_back(interface);
        }
    }
    keep_certain_numbers(found.ports, listed);
    return found;
}

std::optional<std::int64_t> state_value(const Setting& setting, const Port& port) {
    const bool follows = setting.change_bit == KX_PORT_LINK && &leader_of(setting) != &setting;
    if (!is_state(setting) || (follows && port.settings.autoneg != 0)) {
        return std::nullopt;
    }
    const auto value = known_value(setting, port);
    return value && setting.holds(*value) ? value : std::nullopt;
}

// The addresses of all interfaces of the host are not read again.
Port read_port_again(const std::string& interface_name) {
    forget_driver_answers();
    PortInfo record{};
    interface_name.copy(record.interface_name, sizeof record.interface_name - 1);
    call_library([&] { return getPortParameters(interface_name.c_str(), &record); });
    std::ifstream file(fmt::format("/sys/class/net/{}/mtu", interface_name));
    std::string mtu;
    file >> mtu;
    mtu.copy(record.settings.mtu, sizeof record.settings.mtu - 1);
    return port_of_record(record);
}

}  // namespace kx::ctl
