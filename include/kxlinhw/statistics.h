/* Counters of cards and ports, as chains of StatEntry, and two small helpers around them.

   A reader that is given no chain (a null slot) builds one from the C allocator; it then belongs to
   the record that holds it, and Close_Kxcard frees it with its inventory. A chain that is already
   there is overwritten entry by entry and keeps its length: counters beyond its end are dropped,
   entries that get no counter keep what they held.

   Counter names are the drivers' own. A line of a counter file reads "Name: value" with a name of
   letters only; a line that does not gives an entry with as much of the name as there is and the
   value 0. */
#ifndef KXLINHW_STATISTICS_H
#define KXLINHW_STATISTICS_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* Counters of a Q3 card: the first 25 lines of /proc/net/zfab3/DEVICE/snmp, in pieces of 119
   characters, the first 13 of them in group 1 and the rest in group 2. device_name is the card's
   offload device text. slot: where the chain's first pointer stands; it may be unaligned.
   Returns 0; 1 when the file cannot be opened (the slot keeps its value); 66 out of memory (the
   chain holds what was read); 317 for null. Prints "In getCardStats". */
KX_EXPORT uint32_t getCardStats(KxStatEntryPtr* slot, const char* device_name);

/* Counters of a Q4 or Q5 card into card->stats: lines 2 to 25 of the card's file
   /proc/driver/zfab4/ENTRY/tcp_stats, all in group 2, where ENTRY is the first directory entry
   whose name contains the card's location.
   Returns 0, also when there is no such entry (the chain stays as it was); 0xFFFFFFFF when the
   directory or the file cannot be read (card->stats becomes null, and a chain that stood there is
   not freed) or when memory is short (the chain holds what was read); 317 for null.
   Prints the line "cardInfo->PCIBusLocation: LOCATION", then "NAME<tab>VALUE" for each counter, the
   value as a signed number. */
KX_EXPORT uint32_t getQ4CardStats(CardInfo* card);

/* Counters of an interface's driver into port->stats, in the driver's order, group 0. Names are cut
   at 30 characters, without NUL then. There are as many counters as the driver announces; what it
   then leaves out has an empty name and the value 0.
   Returns 0; 1 when the socket or a request failed or the driver has no counters; 66 out of memory
   (a new chain holds what was read); 317 for null. Prints nothing on standard output; when the
   driver refuses the names, "Cannot get stats strings information" and the reason on standard
   error. */
KX_EXPORT uint32_t getTxRxStats(const char* interface_name, PortInfo* port);

/* The value of the first counter of a chain whose name agrees with name in all but the last
   character of name: "rx_bytes" also finds "rx_byteX" and "rx_bytes_ok", and a name of one
   character finds the first entry. Returns 0; 69 when none does or name is empty (*value_out stays
   as it was); 317 for a null name or value_out. Prints nothing. */
KX_EXPORT uint32_t stat_lookup(StatEntry* first, const char* name, uint64_t* value_out);

/* How many adapters of the maker are on the PCI bus, without building an inventory. An adapter
   counts when both its bus and its device number differ from those of the maker's function before
   it, so two adapters on one bus count once. 0 also when the bus cannot be read. Prints nothing. */
KX_EXPORT uint32_t getCardCount(void);

KX_END_DECLS

#endif
