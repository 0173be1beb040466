/* Link state and Ethernet parameters of one network interface, as its driver reports them through
   the Ethernet tool request. */
#ifndef KXLINHW_PORT_H
#define KXLINHW_PORT_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* The link of an interface: 1 detected, 0 not (other values as the driver gives them). 0xFFFFFFFF
   when the driver does not answer, there is no such interface or the name is null; 1 also when no
   socket could be opened. Prints nothing. */
KX_EXPORT uint32_t checkLinkStatus(const char* interface_name);

/* Fill the parameters of a port from its interface: link, speed, duplex, auto-negotiation, link
   modes, connectors, checksum, segmentation, wake-on-LAN, coalescing, rings and pause; instance,
   addresses, MTU, statistics and the set side's fields are left alone. Thirteen requests are made;
   the fields of one that the driver refuses keep what they held, except that the texts of the link
   settings (connectors, modes, transceiver) become empty.
   Wake-on-LAN letters: p PHY activity, u unicast, m multicast, b broadcast, a ARP, g magic packet,
   s secured magic packet, d none.
   Returns 0; 1 when no socket could be opened or every request was refused (the port is untouched);
   66 out of memory; 317 for null. Prints nothing. */
KX_EXPORT uint32_t getPortParameters(const char* interface_name, PortInfo* port);

KX_END_DECLS

#endif
