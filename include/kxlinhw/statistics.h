/* Counters of cards and ports, as chains of StatEntry, and two helper functions.

   When the chain is null, a function that reads counters builds one with the C allocator. The chain
   then belongs to its record, and Close_Kxcard frees it with the inventory. An existing chain is
   overwritten entry by entry and keeps its length: counters beyond its end are dropped, and entries
   without a counter do not change.

   The names of counters come from the drivers. A line of a counter file has the form "Name: value";
   the name has only letters. Any other line gives an entry with the letters at its start as the
   name, and the value 0. */
#ifndef KXLINHW_STATISTICS_H
#define KXLINHW_STATISTICS_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* Counters of a Q3 card: the first 25 lines of /proc/net/zfab3/DEVICE/snmp, in pieces of 119
   characters; the first 13 are in group 1 and the others in group 2. device_name is the card's
   offload device text. slot: the address of the chain's first pointer; it may be unaligned. Returns
   0; 1 when the file cannot be opened (the slot does not change); 66 out of memory (the chain
   contains what was read); 317 for null. Prints "In getCardStats". */
KX_EXPORT uint32_t getCardStats(KxStatEntryPtr* slot, const char* device_name);

/* Counters of a Q4 or Q5 card into card->stats: lines 2 to 25 of the card's file
   /proc/driver/zfab4/ENTRY/tcp_stats, all in group 2, where ENTRY is the first directory entry
   whose name contains the card's location.
   Returns 0, also when there is no such entry (the chain does not change); 0xFFFFFFFF when the
   directory or the file cannot be read (card->stats becomes null, and an existing chain is not
   freed) or when memory runs out (the chain contains what was read); 317 for null.
   Prints the line "cardInfo->PCIBusLocation: LOCATION", then "NAME<tab>VALUE" for each counter, the
   value as a signed number. */
KX_EXPORT uint32_t getQ4CardStats(CardInfo* card);

/* Counters of an interface's driver into port->stats, in the driver's order, group 0. Names are cut
   after 30 characters and then have no NUL. There are as many counters as the driver announces; a
   counter that it then leaves out has an empty name and the value 0.
   Returns 0; 1 when the socket or a request failed or the driver has no counters; 66 out of memory
   (a new chain contains what was read); 317 for null. Prints nothing on standard output. When the
   driver refuses the names, prints "Cannot get stats strings information" and the reason on
   standard error. */
KX_EXPORT uint32_t getTxRxStats(const char* interface_name, PortInfo* port);

/* The value of the first counter in a chain whose name begins with name without its last character:
   "rx_bytes" also finds "rx_byteX" and "rx_bytes_ok", and a name of one character finds the first
   entry. Returns 0; 69 when no counter matches or name is empty (*value_out does not change); 317
   for a null name or value_out. Prints nothing. */
KX_EXPORT uint32_t stat_lookup(StatEntry* first, const char* name, uint64_t* value_out);

/* The number of adapters of the maker on the PCI bus; builds no inventory. A function counts as a
   new adapter when both its bus and its device number differ from those of the maker's previous
   function, so two adapters on one bus count once. 0 also when the bus cannot be read. Prints
   nothing. */
KX_EXPORT uint32_t getCardCount(void);

KX_END_DECLS

#endif
