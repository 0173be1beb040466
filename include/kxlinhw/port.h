/* Link state and Ethernet parameters of one network interface, as its driver reports them through
   the ethtool request. */
#ifndef KXLINHW_PORT_H
#define KXLINHW_PORT_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* The link of an interface: 1 detected, 0 not detected (or another value that the driver returns).
   0xFFFFFFFF when the driver does not answer, there is no such interface or the name is null. 1
   also when no socket could be opened. Prints nothing. */
KX_EXPORT uint32_t checkLinkStatus(const char* interface_name);

/* Fill the parameters of a port from its interface: link, speed, duplex, auto-negotiation, link
   modes, connectors, checksum, segmentation, wake-on-LAN, coalescing, rings and pause. Instance,
   addresses, MTU, statistics and the fields that only set calls use do not change. Makes thirteen
   requests. When the driver refuses a request, its fields do not change, except that the texts of
   the link settings (connectors, modes, transceiver) become empty.
   Wake-on-LAN letters: p PHY activity, u unicast, m multicast, b broadcast, a ARP, g magic packet,
   s secured magic packet, d none.
   Returns 0; 1 when no socket could be opened or the driver refused every request (the port does
   not change); 66 out of memory; 317 for null. Prints nothing. */
KX_EXPORT uint32_t getPortParameters(const char* interface_name, PortInfo* port);

KX_END_DECLS

#endif
