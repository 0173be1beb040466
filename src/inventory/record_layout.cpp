// The inventory records' offsets and sizes. Agents rely on these numbers when they read copies of
// the records. When a check fails, correct the record, not the number.
#include <kxlinhw/records.h>

#include <cstddef>

namespace {

// NOLINTBEGIN(bugprone-sizeof-expression): the sizes of the pointers themselves are intended

#define KX_FIELD(record, field, offset, width)                                   \
    static_assert(                                                               \
        offsetof(record, field) == (offset) && sizeof(record::field) == (width), \
        #record "::" #field " must be at " #offset " and be " #width " bytes wide")

KX_FIELD(CardList, card_count, 0, 1);
KX_FIELD(CardList, drivers, 1, 8);
KX_FIELD(CardList, cards, 9, 8);
static_assert(sizeof(CardList) == 17);

KX_FIELD(CardInfo, pci_bus_location, 0, 16);
KX_FIELD(CardInfo, vendor_id, 16, 4);
KX_FIELD(CardInfo, device_id, 20, 4);
KX_FIELD(CardInfo, port_count, 24, 2);
KX_FIELD(CardInfo, firmware, 26, 32);
KX_FIELD(CardInfo, chip_type, 58, 5);
KX_FIELD(CardInfo, model, 63, 64);
KX_FIELD(CardInfo, reserved127, 127, 33);
KX_FIELD(CardInfo, offload_device, 160, 10);
KX_FIELD(CardInfo, pci_class, 170, 4);
KX_FIELD(CardInfo, irq, 174, 4);
KX_FIELD(CardInfo, reserved178, 178, 130);
KX_FIELD(CardInfo, params, 308, 231);
KX_FIELD(CardInfo, stats, 539, 8);
KX_FIELD(CardInfo, ports, 547, 8);
KX_FIELD(CardInfo, next, 555, 8);
static_assert(sizeof(CardInfo) == 563 && offsetof(CardInfo, next) == KX_CARD_COPY);

KX_FIELD(CardParams, state, 0, 1);
KX_FIELD(CardParams, change_mask, 1, 4);
KX_FIELD(CardParams, reserved5, 5, 64);
KX_FIELD(CardParams, max_host_sndbuf, 69, 8);
KX_FIELD(CardParams, tx_hold_thres, 77, 8);
KX_FIELD(CardParams, max_wr, 85, 2);
KX_FIELD(CardParams, rx_credit_thres, 87, 8);
KX_FIELD(CardParams, failover_alg, 95, 1);
KX_FIELD(CardParams, mss, 96, 4);
KX_FIELD(CardParams, delayed_ack, 100, 1);
KX_FIELD(CardParams, max_conn, 101, 8);
KX_FIELD(CardParams, soft_backlog_limit, 109, 1);
KX_FIELD(CardParams, ddp, 110, 1);
KX_FIELD(CardParams, kseg_ddp, 111, 8);
KX_FIELD(CardParams, ddp_thres, 119, 8);
KX_FIELD(CardParams, reserved127, 127, 8);
KX_FIELD(CardParams, ddp_push_wait, 135, 8);
KX_FIELD(CardParams, ddp_rcvcoalesce, 143, 8);
KX_FIELD(CardParams, zcopy_sendmsg_partial_thres, 151, 8);
KX_FIELD(CardParams, zcopy_sendmsg_partial_copy, 159, 8);
KX_FIELD(CardParams, zcopy_sendmsg_thres, 167, 8);
KX_FIELD(CardParams, zcopy_sendmsg_copy, 175, 8);
KX_FIELD(CardParams, zcopy_sendmsg_ret_pending_dma, 183, 8);
KX_FIELD(CardParams, activated, 191, 1);
KX_FIELD(CardParams, cop_managed_offloading, 192, 1);
KX_FIELD(CardParams, recvmsg_spin_us, 193, 1);
KX_FIELD(CardParams, tx_coal, 194, 1);
KX_FIELD(CardParams, reserved195, 195, 36);
static_assert(sizeof(CardParams) == 231);

KX_FIELD(RingSizes, rx, 0, 4);
KX_FIELD(RingSizes, rx_mini, 4, 4);
KX_FIELD(RingSizes, rx_jumbo, 8, 4);
KX_FIELD(RingSizes, tx, 12, 4);
static_assert(sizeof(RingSizes) == 16);

KX_FIELD(PortInfo, instance, 0, 1);
KX_FIELD(PortInfo, link_detected, 1, 1);
KX_FIELD(PortInfo, mac, 2, 32);
KX_FIELD(PortInfo, ipv4_address, 34, 32);
KX_FIELD(PortInfo, ipv4_netmask, 66, 32);
KX_FIELD(PortInfo, reserved98, 98, 255);
KX_FIELD(PortInfo, interface_name, 353, 64);
KX_FIELD(PortInfo, ipv6_address, 417, 32);
KX_FIELD(PortInfo, supported_connectors, 449, 64);
KX_FIELD(PortInfo, connector, 513, 25);
KX_FIELD(PortInfo, wol_supported, 538, 25);
KX_FIELD(PortInfo, wol_enabled, 563, 25);
KX_FIELD(PortInfo, supported_modes, 588, 255);
KX_FIELD(PortInfo, advertised_modes, 843, 255);
KX_FIELD(PortInfo, autoneg_supported, 1098, 1);
KX_FIELD(PortInfo, autoneg_advertised, 1099, 1);
KX_FIELD(PortInfo, ring_maxima, 1100, 16);
KX_FIELD(PortInfo, phy_address, 1116, 4);
KX_FIELD(PortInfo, transceiver, 1120, 16);
KX_FIELD(PortInfo, link_detected_again, 1136, 1);
KX_FIELD(PortInfo, settings, 1137, 240);
KX_FIELD(PortInfo, stats, 1377, 8);
KX_FIELD(PortInfo, next, 1385, 8);
static_assert(sizeof(PortInfo) == 1393 && offsetof(PortInfo, next) == KX_PORT_COPY);

KX_FIELD(PortSettings, state, 0, 1);
KX_FIELD(PortSettings, change_mask, 1, 4);
KX_FIELD(PortSettings, reserved5, 5, 20);
KX_FIELD(PortSettings, port_instance, 25, 4);
KX_FIELD(PortSettings, mtu, 29, 8);
KX_FIELD(PortSettings, tx_checksum, 37, 2);
KX_FIELD(PortSettings, rx_checksum, 39, 2);
KX_FIELD(PortSettings, scatter_gather, 41, 2);
KX_FIELD(PortSettings, tx_pause, 43, 2);
KX_FIELD(PortSettings, rx_pause, 45, 2);
KX_FIELD(PortSettings, reserved47, 47, 98);
KX_FIELD(PortSettings, tso, 145, 1);
KX_FIELD(PortSettings, gso, 146, 1);
KX_FIELD(PortSettings, message_level, 147, 4);
KX_FIELD(PortSettings, rx_usecs, 151, 4);
KX_FIELD(PortSettings, autoneg, 155, 1);
KX_FIELD(PortSettings, speed, 156, 2);
KX_FIELD(PortSettings, duplex, 158, 1);
KX_FIELD(PortSettings, advertise, 159, 4);
KX_FIELD(PortSettings, rings, 163, 16);
KX_FIELD(PortSettings, pause_autoneg, 179, 1);
KX_FIELD(PortSettings, reserved180, 180, 60);
static_assert(sizeof(PortSettings) == 240);

KX_FIELD(StatEntry, group, 0, 1);
KX_FIELD(StatEntry, name, 1, 30);
KX_FIELD(StatEntry, value, 31, 8);
KX_FIELD(StatEntry, next, 39, 8);
static_assert(sizeof(StatEntry) == 47 && offsetof(StatEntry, next) == KX_STAT_COPY);

KX_FIELD(DriverEntry, module, 0, 32);
KX_FIELD(DriverEntry, unused, 32, 32);
KX_FIELD(DriverEntry, version, 64, 64);
KX_FIELD(DriverEntry, description, 128, 128);
KX_FIELD(DriverEntry, loaded, 256, 1);
KX_FIELD(DriverEntry, next, 257, 8);
static_assert(sizeof(DriverEntry) == 265 && offsetof(DriverEntry, next) == KX_DRIVER_COPY);

#undef KX_FIELD

// NOLINTEND(bugprone-sizeof-expression)

}  // namespace
