// The offloads of a port: five switches, one row each, in the order in which they are applied.
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "settings/detail_text.hpp"
#include "settings/port_setter.hpp"
#include "support/text.hpp"

namespace kx::settings {
namespace {

constexpr uint8_t kNeither = 255;  // the result of strToBool for a text that is neither "0" nor "1"

// The value of a switch that is sent to the driver, or an invalid value. Texts are recorded as atoi
// reads them, which is the same number for a valid text.
struct Switch {
    bool valid;
    uint8_t value;
};

Switch of_text(const char (&field)[2]) {
    const uint8_t value = strToBool(TerminatedText(field).c_str());
    return {value != kNeither, value};
}

Switch of_byte(uint8_t byte) { return {byte < 2, byte}; }

struct Offload {
    uint32_t bit;
    uint32_t command;
    const char* key;   // in the port-parameter file
    const char* name;  // in messages
    Switch (*read)(const PortSettings&);
};

constexpr Offload kOffloads[] = {
    {KX_PORT_RX_CHECKSUM, ETHTOOL_SRXCSUM, "rxchksum", "RxChecksumOffload",
     [](const PortSettings& settings) { return of_text(settings.rx_checksum); }},
    {KX_PORT_TX_CHECKSUM, ETHTOOL_STXCSUM, "txchksum", "TxChecksumOffload",
     [](const PortSettings& settings) { return of_text(settings.tx_checksum); }},
    {KX_PORT_SCATTER_GATHER, ETHTOOL_SSG, "scattergather", "ScatterGather",
     [](const PortSettings& settings) { return of_text(settings.scatter_gather); }},
    {KX_PORT_TSO, ETHTOOL_STSO, "tcpoffload", "TCPSegmentOffLoad",
     [](const PortSettings& settings) { return of_byte(settings.tso); }},
    {KX_PORT_GSO, ETHTOOL_SGSO, "gso", "GSO",
     [](const PortSettings& settings) { return of_byte(settings.gso); }},
};

int apply(const PortSetter& port, const Offload& offload, const PortSettings& settings) {
    const Switch wanted = offload.read(settings);
    if (!wanted.valid) {
        return KX_INVALID_SET_VALUE;
    }
    ethtool_value command{};
    command.cmd = offload.command;
    command.data = wanted.value;
    if (port.request(&command) != 0) {
        return kRefused;
    }
    port.save(offload.key, wanted.value);
    return KX_SUCCESS;
}

}  // namespace
}  // namespace kx::settings

extern "C" {

int setOffloads(const char* interface_name, PortSettings* settings, uint32_t mask) {
    using namespace kx::settings;
    if (interface_name == nullptr || settings == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const PortSetter port(interface_name, settings->port_instance);
    if (!port) {
        return kRefused;
    }
    uint32_t failed = 0;
    for (const Offload& offload : kOffloads) {
        if ((mask & offload.bit) == 0) {
            continue;
        }
        const int status = apply(port, offload, *settings);
        if (status != KX_SUCCESS) {
            append_detail(PortMessage(
                "Set %s for %s failed: %s; ", offload.name, interface_name, GetErrStr(status)));
            failed |= offload.bit;
        }
    }
    return static_cast<int>(failed);
}

// Agents that watch the library's standard output read its lines.
uint8_t strToBool(const char* text) {
    using kx::settings::kNeither;
    if (text == nullptr) {
        return kNeither;
    }
    const int against_one = std::strcmp(text, "1");
    const int against_zero = std::strcmp(text, "0");
    const char second = text[0] == '\0' ? '\0' : text[1];  // nothing is read after the NUL
    std::printf("str %s\n", text);
    std::printf("strcmp %d\n", against_one);
    std::printf("strcmp %d\n", against_zero);
    std::printf("str[0] %c [1] %c \n", text[0], second);
    if (against_one == 0) {
        return 1;
    }
    return against_zero == 0 ? 0 : kNeither;
}

}  // extern "C"
