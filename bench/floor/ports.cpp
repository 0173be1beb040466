// The answers of GetPortInfo and getAddress.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <kxlinhw/records.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "floor/files.hpp"
#include "floor/floor.hpp"

namespace bench::floor {
namespace {

struct BitText {
    uint32_t bit;
    const char* text;
};

constexpr BitText kConnectors[] = {
    {0x80, "TP "}, {0x100, "AUI "}, {0x800, "BNC "}, {0x200, "MII "}, {0x400, "FIBRE "}};
constexpr BitText kSupported[] = {
    {0x1, "10baseT/Half "},     {0x2, "10baseT/Full "},      {0x4, "100baseT/Half "},
    {0x8, "100baseT/Full "},    {0x10, "1000baseT/Half "},   {0x20, "1000baseT/Full "},
    {0x8000, "2500baseX/Full"}, {0x1000, "10000baseT/Full"},
};
constexpr BitText kAdvertised[] = {
    {0x1, "10baseT/Half "},      {0x2, "10baseT/Full "},       {0x4, "100baseT/Half "},
    {0x8, "100baseT/Full "},     {0x10, "1000baseT/Half "},    {0x20, "1000baseT/Full "},
    {0x8000, "2500baseX/Full "}, {0x1000, "10000baseT/Full "},
};
constexpr const char* kConnector[] = {"Twisted Pair", "AUI", "MII",
                                      "FIBRE",        "BNC", "Direct Attach Copper"};

template <std::size_t Rows>
void append_texts(const BitText (&rows)[Rows], uint32_t mask, char* out, const char* none) {
    char* end = out;
    for (const BitText& row : rows) {
        if ((mask & row.bit) != 0) {
            end = stpcpy(end, row.text);
        }
    }
    if (end == out) {
        stpcpy(out, none);
    }
}

// One socket and one port: a zeroed record for each command, as drivers expect.
struct Asked {
    int socket;
    const char* name;

    template <class Record>
    bool operator()(uint32_t command, Record& record) const {
        record = Record{};
        record.cmd = command;
        return request(socket, name, &record);
    }
    // Answers that are one number.
    bool value(uint32_t command, uint32_t& out) const {
        ethtool_value record;
        const bool answered = (*this)(command, record);
        out = record.data;
        return answered;
    }
};

void put_switch(char (&field)[2], uint32_t value) { field[0] = value != 0 ? '1' : '0'; }

void link_settings(const Asked& ask, PortInfo& port) {
    ethtool_cmd link;
    if (!ask(ETHTOOL_GSET, link)) {
        return;
    }
    port.settings.autoneg = link.autoneg != 0;
    port.settings.duplex = link.duplex;
    port.settings.speed = link.speed;
    port.phy_address = link.phy_address;
    port.autoneg_supported = (link.supported & 0x40) != 0;
    port.autoneg_advertised = (link.advertising & 0x40) != 0;
    append_texts(kConnectors, link.supported, port.supported_connectors, "N/A");
    append_texts(kSupported, link.supported, port.supported_modes, "Not Reported");
    append_texts(kAdvertised, link.advertising, port.advertised_modes, "Not reported");
    stpcpy(port.connector, link.port < std::size(kConnector) ? kConnector[link.port] : "Other");
    stpcpy(port.transceiver, link.transceiver == 0 ? "Internal" : "External");
}

void rings_and_pause(const Asked& ask, PortInfo& port) {
    ethtool_coalesce coalescing;
    if (ask(ETHTOOL_GCOALESCE, coalescing)) {
        port.settings.rx_usecs = coalescing.rx_coalesce_usecs;
    }
    ethtool_ringparam rings;
    if (ask(ETHTOOL_GRINGPARAM, rings)) {
        port.settings.rings = {
            rings.rx_pending, rings.rx_mini_pending, rings.rx_jumbo_pending, rings.tx_pending};
        port.ring_maxima = {
            rings.rx_max_pending, rings.rx_mini_max_pending, rings.rx_jumbo_max_pending,
            rings.tx_max_pending};
    }
    ethtool_pauseparam pause;
    if (ask(ETHTOOL_GPAUSEPARAM, pause)) {
        port.settings.pause_autoneg = pause.autoneg != 0;
        put_switch(port.settings.tx_pause, pause.tx_pause);
        put_switch(port.settings.rx_pause, pause.rx_pause);
    }
}

void parameters(int socket, PortInfo& port) {
    const Asked ask{socket, port.interface_name};
    uint32_t value = 0;
    link_settings(ask, port);
    if (ask.value(ETHTOOL_GLINK, value)) {
        port.link_detected_again = static_cast<uint8_t>(value);
    }
    if (ask.value(ETHTOOL_GMSGLVL, value)) {
        port.settings.message_level = value;
    }
    if (ask.value(ETHTOOL_GLINK, value)) {
        port.link_detected = static_cast<uint8_t>(value);
    }
    if (ask.value(ETHTOOL_GRXCSUM, value)) {
        put_switch(port.settings.rx_checksum, value);
    }
    if (ask.value(ETHTOOL_GTXCSUM, value)) {
        put_switch(port.settings.tx_checksum, value);
    }
    if (ask.value(ETHTOOL_GSG, value)) {
        put_switch(port.settings.scatter_gather, value);
    }
    if (ask.value(ETHTOOL_GTSO, value)) {
        port.settings.tso = value != 0;
    }
    if (ask.value(ETHTOOL_GGSO, value)) {
        port.settings.gso = value != 0;
    }
    ethtool_wolinfo wake;
    ask(ETHTOOL_GWOL, wake);  // refused by these interfaces
    rings_and_pause(ask, port);
}

// Stores addresses of ports by the number of the port; skips other interfaces.
void copy_address(const ifaddrs& entry, PortInfo& port) {
    if (entry.ifa_addr == nullptr) {
        return;
    }
    const auto text = [](const sockaddr* address, char* out) {
        sockaddr_in copy;
        std::memcpy(&copy, address, sizeof copy);
        inet_ntop(AF_INET, &copy.sin_addr, out, 32);
    };
    if (entry.ifa_addr->sa_family == AF_INET) {
        text(entry.ifa_addr, port.ipv4_address);
        text(entry.ifa_netmask, port.ipv4_netmask);
    } else if (entry.ifa_addr->sa_family == AF_INET6) {
        sockaddr_in6 copy;
        std::memcpy(&copy, entry.ifa_addr, sizeof copy);
        inet_ntop(AF_INET6, &copy.sin6_addr, port.ipv6_address, 32);
    }
}

void files(PortInfo& port) {
    char path[96];
    const auto first_line = [&](const char* file, char* field, std::size_t size) {
        char text[32];
        std::snprintf(path, sizeof path, "/sys/class/net/%s/%s", port.interface_name, file);
        const std::size_t length = read_text(path, text);
        if (length > 0) {
            std::memcpy(field, text, std::min(length - 1, size - 1));
        }
    };
    first_line("address", port.mac, sizeof port.mac);
    first_line("mtu", port.settings.mtu, sizeof port.settings.mtu);
}

}  // namespace

void address(const char* interface_name, PortInfo* port) {
    ifaddrs* first = nullptr;
    getifaddrs(&first);
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (std::strcmp(entry->ifa_name, interface_name) == 0) {
            copy_address(*entry, *port);
        }
    }
    freeifaddrs(first);
    stpcpy(port->interface_name, interface_name);
    files(*port);
}

void one_port(const char* interface_name, PortInfo* port) {
    address(interface_name, port);
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    parameters(socket, *port);
    close(socket);
}

void port_info(void* buffer, uint32_t* length) {
    is_loaded(loaded_modules(), "zfab4");
    find_adapters();
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    char firmware[ETHTOOL_FWVERS_LEN];
    const auto ports = find_ports(socket, firmware);
    ifaddrs* first = nullptr;
    getifaddrs(&first);
    static PortInfo* records[256];
    auto* out = static_cast<char*>(buffer);
    std::memset(out, 0, ports.size() * KX_PORT_COPY);
    for (std::size_t i = 0; i < ports.size(); ++i) {
        auto* const port = reinterpret_cast<PortInfo*>(out + i * KX_PORT_COPY);
        stpcpy(port->interface_name, ports[i].name);
        port->instance = static_cast<uint8_t>(i + 1);
        port->settings.state = 2;
        records[ports[i].number] = port;
    }
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        unsigned number = 0;
        for (const char* digit = entry->ifa_name + 3; *digit >= '0' && *digit <= '9'; ++digit) {
            number = number * 10 + static_cast<unsigned>(*digit - '0');
        }
        if (entry->ifa_name[0] == 'e' && number < ports.size()) {
            copy_address(*entry, *records[number]);
        }
    }
    freeifaddrs(first);
    for (std::size_t i = 0; i < ports.size(); ++i) {
        auto& port = *reinterpret_cast<PortInfo*>(out + i * KX_PORT_COPY);
        files(port);
        parameters(socket, port);
    }
    close(socket);
    *length = static_cast<uint32_t>(ports.size()) * KX_PORT_COPY;
}

}  // namespace bench::floor
