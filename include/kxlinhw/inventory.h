/* Building the inventory: cards from the PCI bus, ports from the host's interfaces, and the groups
   that a fill mask asks for. The records come one by one from the C allocator and belong to the
   CardList that holds them. */
#ifndef KXLINHW_INVENTORY_H
#define KXLINHW_INVENTORY_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* Fill mask: which groups an inventory carries beside its cards and ports. */
enum KxFill {
    KX_FILL_DRIVERS = 2,       /* driver inventory of the list */
    KX_FILL_CARD_PARAMS = 4,   /* driver-module and offload parameters; silences card statistics */
    KX_FILL_CARD_STATS = 8,    /* card statistics */
    KX_FILL_CARD_STATS_2 = 16, /* the same */
    KX_FILL_ADDRESSES = 32,    /* MAC, IPv4, IPv6 and MTU of each port */
    KX_FILL_PORT_PARAMS = 64,  /* link and Ethernet parameters of each port */
    KX_FILL_PORT_STATS = 128   /* counters of each port */
};

/* Build a fresh inventory and fill the groups of mask (KxFill bits; others have no effect).
   On success *list is the new inventory, to be freed with Close_Kxcard.
   Returns 0; 62 when neither Ethernet driver is loaded (prints a line, leaves *list alone). Every
   other failure frees what was built and nulls *list: 66 out of memory, 1 /sys/class/net
   unreadable, 60 no physical function of the maker, or a code of FillInfo_Kxcard. 317 for null. */
KX_EXPORT uint32_t InitAndFillInfo_Kxcard(CardList** list, uint32_t mask);

/* Fill the groups of mask into an inventory that is already built.
   Returns 0; 62 when the driver inventory was asked for and is empty, or when neither Ethernet
   driver is loaded (prints a line); the failure of the last Q3 card's statistics (1 or 66, the rest
   is filled all the same); 317 for a null list. Prints "Card of type: TYPE" for each card whose
   statistics it reads, and what the readers print. A group that is not asked for nulls the
   statistics it would have filled, without freeing them. */
KX_EXPORT uint32_t FillInfo_Kxcard(CardList** list, uint32_t mask);

/* Free an inventory with all its records; null is accepted. Returns 0. */
KX_EXPORT uint32_t Close_Kxcard(CardList* list);

/* Fill MAC, IPv4 address and netmask, IPv6 address and MTU of one port from its interface. Of
   several addresses of a family the last one is kept. A missing MAC or MTU file leaves its field.
   Returns 0; 1 when the interface addresses cannot be read; 317 for null. Prints nothing. */
KX_EXPORT uint32_t getAddress(const char* interface_name, PortInfo* port);

KX_END_DECLS

#endif
