#include "settings/port_settings.hpp"

#include <kxlinhw/settings.h>

namespace kx::ctl {
namespace {

constexpr Setting kSettings[] = {
    {"mtu", "largest packet in bytes, 22 to 10222", KX_PORT_MTU, offsetof(PortSettings, mtu),
     sizeof(PortSettings::mtu), Form::kText},
    {"rx_checksum", "receive checksum offload, on or off", KX_PORT_RX_CHECKSUM,
     offsetof(PortSettings, rx_checksum), sizeof(PortSettings::rx_checksum), Form::kText, kOnOff},
    {"tx_checksum", "transmit checksum offload, on or off", KX_PORT_TX_CHECKSUM,
     offsetof(PortSettings, tx_checksum), sizeof(PortSettings::tx_checksum), Form::kText, kOnOff},
    {"scatter_gather", "on or off", KX_PORT_SCATTER_GATHER, offsetof(PortSettings, scatter_gather),
     sizeof(PortSettings::scatter_gather), Form::kText, kOnOff},
    {"tso", "TCP segmentation offload, on or off", KX_PORT_TSO, offsetof(PortSettings, tso),
     sizeof(PortSettings::tso), Form::kUnsigned, kOnOff},
    {"gso", "generic segmentation offload, on or off", KX_PORT_GSO, offsetof(PortSettings, gso),
     sizeof(PortSettings::gso), Form::kUnsigned, kOnOff},
    {"ring_rx", "receive ring in descriptors, up to the driver's limit", KX_PORT_RING_RX,
     offsetof(PortSettings, rings.rx), sizeof(RingSizes::rx), Form::kUnsigned},
    {"ring_rx_mini", "mini receive ring in descriptors, up to 16384", KX_PORT_RING_RX_MINI,
     offsetof(PortSettings, rings.rx_mini), sizeof(RingSizes::rx_mini), Form::kUnsigned},
    {"ring_rx_jumbo", "jumbo receive ring in descriptors, up to the driver's limit",
     KX_PORT_RING_RX_JUMBO, offsetof(PortSettings, rings.rx_jumbo), sizeof(RingSizes::rx_jumbo),
     Form::kUnsigned},
    {"ring_tx", "transmit ring in descriptors, up to the driver's limit", KX_PORT_RING_TX,
     offsetof(PortSettings, rings.tx), sizeof(RingSizes::tx), Form::kUnsigned},
    {"autoneg", "link auto-negotiation, on or off", KX_PORT_LINK, offsetof(PortSettings, autoneg),
     sizeof(PortSettings::autoneg), Form::kUnsigned, kOnOff},
    {"speed", "10, 100, 1000 or 10000 Mb/s, with autoneg off", KX_PORT_LINK,
     offsetof(PortSettings, speed), sizeof(PortSettings::speed), Form::kUnsigned},
    {"duplex", "half or full, with autoneg off", KX_PORT_LINK, offsetof(PortSettings, duplex),
     sizeof(PortSettings::duplex), Form::kUnsigned, kHalfFull},
    {"advertise", "link modes to advertise (bits of the Ethernet tool interface), with autoneg on",
     KX_PORT_ADVERTISE, offsetof(PortSettings, advertise), sizeof(PortSettings::advertise),
     Form::kUnsigned, kNoWords, false},
    {"message_level", "driver message bits, 0 to 2147483647", KX_PORT_MESSAGE_LEVEL,
     offsetof(PortSettings, message_level), sizeof(PortSettings::message_level), Form::kSigned},
    {"pause_autoneg", "auto-negotiation of pause frames, on or off", KX_PORT_PAUSE_AUTONEG,
     offsetof(PortSettings, pause_autoneg), sizeof(PortSettings::pause_autoneg), Form::kUnsigned,
     kOnOff},
    {"tx_pause", "send pause frames, on or off", KX_PORT_TX_PAUSE, offsetof(PortSettings, tx_pause),
     sizeof(PortSettings::tx_pause), Form::kText, kOnOff},
    {"rx_pause", "obey pause frames, on or off", KX_PORT_RX_PAUSE, offsetof(PortSettings, rx_pause),
     sizeof(PortSettings::rx_pause), Form::kText, kOnOff},
    {"rx_usecs", "receive interrupt delay in microseconds, 0 to 4294967295", KX_PORT_RX_USECS,
     offsetof(PortSettings, rx_usecs), sizeof(PortSettings::rx_usecs), Form::kUnsigned},
    {"restart_autoneg", "on: restart auto-negotiation when all else is applied",
     KX_PORT_RESTART_AUTONEG, 0, 0, Form::kAction, kDo},
};

}  // namespace

std::span<const Setting> port_settings() { return kSettings; }

}  // namespace kx::ctl
