// Link state and Ethernet settings of a port, from its driver's answers.
#include <kxlinhw/port.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <new>
#include <string>

#include "inventory/link_texts.hpp"
#include "support/interface_socket.hpp"
#include "support/text.hpp"

namespace {

constexpr uint32_t kNoAnswer = 0xFFFFFFFF;
constexpr uint32_t kNoSocket = 1;  // reads like a detected link; agents rely on it

// A supported or advertising mask: auto-negotiation.
constexpr uint32_t kAutoneg = 0x40;

// Sends requests to one driver through one socket.
class Driver {
public:
    explicit Driver(const char* interface_name) : interface_name_(interface_name) {}

    [[nodiscard]] bool reachable() const { return static_cast<bool>(socket_); }

    // Issue a command; its answer replaces the zeroed record.
    template <class Record>
    [[nodiscard]] bool answers(uint32_t command, Record& record) const {
        record = Record{};
        record.cmd = command;
        return socket_.ethtool(interface_name_, &record);
    }

private:
    const char* interface_name_;
    kx::InterfaceSocket socket_;
};

// The texts of the link settings. They are stored when any request succeeded, so they become empty
// when the driver does not report its link settings.
struct LinkTexts {
    std::string connectors;
    std::string connector;
    std::string supported_modes;
    std::string advertised_modes;
    std::string transceiver;
};

void describe_link(const ethtool_cmd& link, LinkTexts& texts) {
    using namespace kx::inventory;
    texts.connectors = connector_list_text(link.supported);
    texts.connector = connector_text(link.port);
    texts.supported_modes = supported_modes_text(link.supported);
    texts.advertised_modes = advertised_modes_text(link.advertising);
    texts.transceiver = transceiver_text(link.transceiver);
}

bool ask_link_settings(const Driver& driver, PortInfo& port, LinkTexts& texts) {
    ethtool_cmd link;
    if (!driver.answers(ETHTOOL_GSET, link)) {
        return false;
    }
    port.settings.autoneg = link.autoneg != AUTONEG_DISABLE;
    port.settings.duplex = link.duplex;
    port.settings.speed = link.speed;
    port.phy_address = link.phy_address;
    port.autoneg_supported = (link.supported & kAutoneg) != 0;
    port.autoneg_advertised = (link.advertising & kAutoneg) != 0;
    describe_link(link, texts);
    return true;
}

// Most commands return one number. Each of these functions stores it in a field of the port.
using StoreValue = void (*)(uint32_t value, PortInfo& port);

template <uint32_t kCommand, StoreValue kStore>
bool ask_value(const Driver& driver, PortInfo& port, LinkTexts&) {
    ethtool_value answer;
    if (!driver.answers(kCommand, answer)) {
        return false;
    }
    kStore(answer.data, port);
    return true;
}

const char* switch_text(uint32_t value) { return value != 0 ? "1" : "0"; }

void store_link_again(uint32_t value, PortInfo& port) {
    port.link_detected_again = static_cast<uint8_t>(value);
}
void store_message_level(uint32_t value, PortInfo& port) { port.settings.message_level = value; }
void store_link(uint32_t value, PortInfo& port) {
    port.link_detected = static_cast<uint8_t>(value);
}
void store_rx_checksum(uint32_t value, PortInfo& port) {
    kx::copy_text(port.settings.rx_checksum, switch_text(value));
}
void store_tx_checksum(uint32_t value, PortInfo& port) {
    kx::copy_text(port.settings.tx_checksum, switch_text(value));
}
void store_scatter_gather(uint32_t value, PortInfo& port) {
    kx::copy_text(port.settings.scatter_gather, switch_text(value));
}
void store_tso(uint32_t value, PortInfo& port) { port.settings.tso = value != 0; }
void store_gso(uint32_t value, PortInfo& port) { port.settings.gso = value != 0; }

bool ask_wake_on_lan(const Driver& driver, PortInfo& port, LinkTexts&) {
    ethtool_wolinfo wake;
    if (!driver.answers(ETHTOOL_GWOL, wake)) {
        return false;
    }
    kx::copy_text(port.wol_supported, kx::inventory::wake_letters(wake.supported));
    kx::copy_text(port.wol_enabled, kx::inventory::wake_letters(wake.wolopts));
    return true;
}

bool ask_coalescing(const Driver& driver, PortInfo& port, LinkTexts&) {
    ethtool_coalesce coalesce;
    if (!driver.answers(ETHTOOL_GCOALESCE, coalesce)) {
        return false;
    }
    port.settings.rx_usecs = coalesce.rx_coalesce_usecs;
    return true;
}

bool ask_rings(const Driver& driver, PortInfo& port, LinkTexts&) {
    ethtool_ringparam rings;
    if (!driver.answers(ETHTOOL_GRINGPARAM, rings)) {
        return false;
    }
    port.settings.rings = {
        rings.rx_pending, rings.rx_mini_pending, rings.rx_jumbo_pending, rings.tx_pending};
    port.ring_maxima = {
        rings.rx_max_pending, rings.rx_mini_max_pending, rings.rx_jumbo_max_pending,
        rings.tx_max_pending};
    return true;
}

bool ask_pause(const Driver& driver, PortInfo& port, LinkTexts&) {
    ethtool_pauseparam pause;
    if (!driver.answers(ETHTOOL_GPAUSEPARAM, pause)) {
        return false;
    }
    port.settings.pause_autoneg = pause.autoneg != 0;
    kx::copy_text(port.settings.tx_pause, switch_text(pause.tx_pause));
    kx::copy_text(port.settings.rx_pause, switch_text(pause.rx_pause));
    return true;
}

// Makes one request; when it is refused, its fields do not change.
using Request = bool (*)(const Driver& driver, PortInfo& port, LinkTexts& texts);

// The order in which drivers see the requests. The link is requested twice, because agents read it
// in two fields.
constexpr Request kRequests[] = {
    ask_link_settings,
    ask_value<ETHTOOL_GLINK, store_link_again>,
    ask_value<ETHTOOL_GMSGLVL, store_message_level>,
    ask_value<ETHTOOL_GLINK, store_link>,
    ask_value<ETHTOOL_GRXCSUM, store_rx_checksum>,
    ask_value<ETHTOOL_GTXCSUM, store_tx_checksum>,
    ask_value<ETHTOOL_GSG, store_scatter_gather>,
    ask_value<ETHTOOL_GTSO, store_tso>,
    ask_value<ETHTOOL_GGSO, store_gso>,
    ask_wake_on_lan,
    ask_coalescing,
    ask_rings,
    ask_pause,
};
static_assert(std::size(kRequests) == 13);

void copy_texts(const LinkTexts& texts, PortInfo& port) {
    kx::copy_text(port.supported_connectors, texts.connectors);
    kx::copy_text(port.connector, texts.connector);
    kx::copy_text(port.supported_modes, texts.supported_modes);
    kx::copy_text(port.advertised_modes, texts.advertised_modes);
    kx::copy_text(port.transceiver, texts.transceiver);
}

}  // namespace

extern "C" {

uint32_t checkLinkStatus(const char* interface_name) {
    if (interface_name == nullptr) {
        return kNoAnswer;
    }
    const Driver driver(interface_name);
    if (!driver.reachable()) {
        return kNoSocket;
    }
    ethtool_value link;
    return driver.answers(ETHTOOL_GLINK, link) ? link.data : kNoAnswer;
}

uint32_t getPortParameters(const char* interface_name, PortInfo* port) try {
    if (interface_name == nullptr || port == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const Driver driver(interface_name);
    if (!driver.reachable()) {
        return KX_UNKNOWN_ERROR;
    }
    LinkTexts texts;
    bool any_succeeded = false;
    for (const Request request : kRequests) {
        any_succeeded |= request(driver, *port, texts);
    }
    if (!any_succeeded) {
        return KX_UNKNOWN_ERROR;
    }
    copy_texts(texts, *port);
    return KX_SUCCESS;
} catch (const std::bad_alloc&) {
    return KX_NO_MEMORY;
}

}  // extern "C"
