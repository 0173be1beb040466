// Makes the ports of the cards from the host's network interfaces.
#include "inventory/port_discovery.hpp"

#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

#include "inventory/paths.hpp"
#include "support/handle.hpp"
#include "support/interface_socket.hpp"
#include "support/text.hpp"

namespace kx::inventory {
namespace {

constexpr uint8_t kPortDiscovered = 2;
constexpr uint8_t kUnnumbered = 255;      // an interface that is not named "eth" and a number
constexpr std::size_t kDomainPrefix = 5;  // "0000:" before the bus in a driver's bus text
constexpr std::size_t kLocationWidth = sizeof(CardInfo::pci_bus_location);

// VLANs and bonds report the bus of the adapter below them, so they are skipped, like "." and "..".
bool is_stacked(std::string_view name) {
    return name.find('.') != name.npos || name.find("vlan") != name.npos ||
           name.find("bond") != name.npos;
}

// The ports of one card are in ascending order of their number; agents count them in this order. A
// port with the number of the head is placed after the head; otherwise a port is placed before
// ports with the same number.
class PortChain {
public:
    explicit PortChain(CardInfo& card) : card_(card) {}

    // The card keeps the firmware text of the port that was attached last.
    void attach(Block<PortInfo> port, const char (&firmware)[ETHTOOL_FWVERS_LEN]) {
        static_assert(sizeof card_.firmware == sizeof firmware);
        std::memcpy(card_.firmware, firmware, sizeof firmware);
        PortInfo* const added = port.release();
        PortInfo* const before = place(added->instance);
        if (before == nullptr) {
            added->next = card_.ports;
            card_.ports = added;
        } else {
            added->next = before->next;
            before->next = added;
        }
        PortInfo*& last = last_[added->instance];
        if (last == nullptr || last == before) {
            last = added;
        }
        ++card_.port_count;
    }

private:
    // The port after which a port with that number is inserted; null when it becomes the head.
    PortInfo* place(uint8_t number) const {
        if (card_.ports == nullptr || number < card_.ports->instance) {
            return nullptr;
        }
        if (number == card_.ports->instance) {
            return card_.ports;
        }
        std::size_t smaller = number;
        do {
            --smaller;
        } while (last_[smaller] == nullptr);
        return last_[smaller];
    }

    CardInfo& card_;
    std::array<PortInfo*, 256> last_{};  // the last port of each number
};

// Cards by their location; when several cards have one location, the first one counts.
class CardIndex {
public:
    explicit CardIndex(const CardList& list) {
        for (CardInfo* card = list.cards; card != nullptr; card = card->next) {
            chains_.try_emplace(std::string(field_text(card->pci_bus_location)), *card);
        }
    }

    PortChain* find(std::string_view location) {
        const auto found = chains_.find(std::string(location.substr(0, kLocationWidth)));
        return found == chains_.end() ? nullptr : &found->second;
    }

private:
    std::unordered_map<std::string, PortChain> chains_;
};

Block<PortInfo> make_port(const char* interface_name) {
    Block<PortInfo> port = allocate_record<PortInfo>();
    if (port) {
        copy_text(port->interface_name, interface_name);
        port->settings.state = kPortDiscovered;
        // The number fills the record's first four bytes; its low byte orders the ports.
        unsigned number = 0;
        if (std::sscanf(interface_name, "eth%u", &number) == 1) {
            std::memcpy(port.get(), &number, sizeof number);
        } else {
            port->instance = kUnnumbered;
        }
    }
    return port;
}

}  // namespace

uint32_t discover_ports(CardList& list) {
    const Directory directory = open_directory(kInterfaces);
    if (!directory) {
        return KX_UNKNOWN_ERROR;
    }
    const InterfaceSocket socket;
    CardIndex cards(list);
    while (const dirent* entry = readdir(directory.get())) {
        ethtool_drvinfo info{};
        info.cmd = ETHTOOL_GDRVINFO;
        if (is_stacked(entry->d_name) || !socket.ethtool(entry->d_name, &info)) {
            continue;
        }
        const std::string_view bus = field_text(info.bus_info);
        PortChain* const chain =
            bus.size() < kDomainPrefix ? nullptr : cards.find(bus.substr(kDomainPrefix));
        if (chain == nullptr) {
            continue;
        }
        Block<PortInfo> port = make_port(entry->d_name);
        if (!port) {
            return KX_NO_MEMORY;
        }
        chain->attach(std::move(port), info.fw_version);
    }
    return KX_SUCCESS;
}

}  // namespace kx::inventory
