#include "cases.hpp"

#include <kxlinhw/kxlinhw.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "floor/floor.hpp"
#include "scenario.hpp"

namespace bench {
namespace {

constexpr char kPort[] = "eth0";

std::vector<char>& buffer() {
    static std::vector<char> bytes(std::size_t{4} << 20);
    return bytes;
}

uint32_t written;

void expect_success(uint32_t status) {
    if (status != KX_SUCCESS) {
        std::fprintf(stderr, "the call failed with status %u\n", status);
        std::exit(1);
    }
}

void card_info() { expect_success(GetCardInfo(buffer().data(), &written)); }
void card_info_floor() { floor::card_info(buffer().data(), &written); }

void port_info() { expect_success(GetPortInfo(kCard, buffer().data(), &written)); }
void port_info_floor() { floor::port_info(buffer().data(), &written); }

void port_stat() { expect_success(GetPortStat(kCard, 1, buffer().data(), &written)); }
void port_stat_floor() { floor::port_stat(buffer().data(), &written); }

// Without an installed module the inventory is empty, which is a status.
void driver_details() { GetDriverDetails(buffer().data(), &written); }
void driver_details_floor() { floor::driver_details(buffer().data(), &written); }

PortInfo& port_record() {
    std::memset(buffer().data(), 0, sizeof(PortInfo));
    auto& port = *reinterpret_cast<PortInfo*>(buffer().data());
    std::memcpy(port.interface_name, kPort, sizeof kPort);
    written = KX_PORT_COPY;
    return port;
}

void address() { expect_success(getAddress(kPort, &port_record())); }
void address_floor() { floor::address(kPort, &port_record()); }

// The same data about one port as nine command-line tools give: by its name, without reading the
// bus.
void one_port() {
    PortInfo& port = port_record();
    expect_success(getAddress(kPort, &port));
    expect_success(getPortParameters(kPort, &port));
}
void one_port_floor() { floor::one_port(kPort, &port_record()); }

// Settings that these interfaces accept. The values are recorded in a file of the measured machine,
// not of the real one.
void set_port() {
    PortInfo& port = port_record();
    PortSettings& settings = port.settings;
    settings.change_mask =
        KX_PORT_MTU | KX_PORT_TSO | KX_PORT_GSO | KX_PORT_SCATTER_GATHER | KX_PORT_TX_CHECKSUM;
    std::memcpy(settings.mtu, "1500", 5);
    std::memcpy(settings.scatter_gather, "1", 2);
    std::memcpy(settings.tx_checksum, "1", 2);
    settings.tso = 1;
    settings.gso = 1;
    expect_success(setPortParams(&port));
}

// All parameters except the one that the driver lacks.
void set_iwarp() {
    IwarpProps props{};
    std::memcpy(props.module, "iw_zfab4", 9);
    props.change_mask = 0x7FFFFFFF & ~uint64_t{KX_IWARP_ZFAB4_FORBIDDEN};
    expect_success(SetIwarpProps(&props));
}

constexpr std::array kCases{
    Case{"GetCardInfo", card_info, card_info_floor},
    Case{"GetPortInfo", port_info, port_info_floor},
    Case{"GetPortStat", port_stat, port_stat_floor},
    Case{"GetDriverDetails", driver_details, driver_details_floor},
    Case{"getAddress", address, address_floor},
    Case{"getPortParameters", one_port, one_port_floor},
    Case{"setPortParams", set_port, nullptr},
    Case{"SetIwarpProps", set_iwarp, nullptr},
};

}  // namespace

std::span<const Case> cases() { return kCases; }

const Case* find_case(std::string_view name) {
    for (const Case& row : kCases) {
        if (row.name == name) {
            return &row;
        }
    }
    return nullptr;
}

std::string_view answer() {
    char* const bytes = buffer().data();
    if (written != 0 && written % KX_CARD_COPY == 0 && written % KX_PORT_COPY != 0) {
        for (uint32_t at = 0; at < written; at += KX_CARD_COPY) {
            auto& card = *reinterpret_cast<CardInfo*>(bytes + at);
            card.stats = nullptr;
            card.ports = nullptr;
        }
    }
    return {bytes, written};
}

}  // namespace bench
