/* Building the inventory: cards from the PCI bus, ports from the host's interfaces, and the groups
   that a fill mask selects. The C allocator allocates each record; the CardList that contains a
   record owns it. */
#ifndef KXLINHW_INVENTORY_H
#define KXLINHW_INVENTORY_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* Fill mask: the groups that an inventory contains in addition to its cards and ports. */
enum KxFill {
    KX_FILL_DRIVERS = 2,       /* driver inventory of the list */
    KX_FILL_CARD_PARAMS = 4,   /* driver-module and offload parameters; turns card statistics off */
    KX_FILL_CARD_STATS = 8,    /* card statistics */
    KX_FILL_CARD_STATS_2 = 16, /* the same */
    KX_FILL_ADDRESSES = 32,    /* MAC, IPv4, IPv6 and MTU of each port */
    KX_FILL_PORT_PARAMS = 64,  /* link and Ethernet parameters of each port */
    KX_FILL_PORT_STATS = 128   /* counters of each port */
};

/* Build a new inventory and fill the groups of mask (KxFill bits; others have no effect).
   On success *list is the new inventory; free it with Close_Kxcard.
   Returns 0; 62 when neither Ethernet driver is loaded (prints a line, does not change *list).
   Every other failure frees what was built and sets *list to null: 66 out of memory, 1
   /sys/class/net unreadable, 60 no physical function of the maker, or a code of FillInfo_Kxcard.
   317 for null. */
KX_EXPORT uint32_t InitAndFillInfo_Kxcard(CardList** list, uint32_t mask);

/* Fill the groups of mask of an existing inventory.
   Returns 0; 62 when mask selects the driver inventory and it is empty, or when neither Ethernet
   driver is loaded (prints a line); the failure of the last Q3 card's statistics (1 or 66;
   everything else is filled); 317 for a null list. Prints "Card of type: TYPE" for each card whose
   statistics it reads, and what the functions that read them print. For a group of statistics that
   mask does not select, it sets the pointers to null without freeing the statistics. */
KX_EXPORT uint32_t FillInfo_Kxcard(CardList** list, uint32_t mask);

/* Free an inventory with all its records; null is accepted. Returns 0. */
KX_EXPORT uint32_t Close_Kxcard(CardList* list);

/* Fill MAC, IPv4 address and netmask, IPv6 address and MTU of one port from its interface. Of
   several addresses of a family it keeps the last one. When the MAC or MTU file is missing, the
   field does not change. Returns 0; 1 when the interface addresses cannot be read; 317 for null.
   Prints nothing. */
KX_EXPORT uint32_t getAddress(const char* interface_name, PortInfo* port);

KX_END_DECLS

#endif
