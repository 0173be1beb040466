/* Query functions. Each builds a new inventory, copies the requested records into the agent's
   buffer as a flat array, and frees the inventory.

   length receives the number of bytes written; it is set to 0 before anything can fail. The caller
   passes no buffer size, so the buffer must have room for every record. location is the text
   "%02x:%02x.%x" of bus, device and function; null names no card (65). A null length gives 317; a
   null buffer gives 317 when there is a record to copy.

   In addition to the statuses given here, every query returns those of InitAndFillInfo_Kxcard. */
#ifndef KXLINHW_QUERY_H
#define KXLINHW_QUERY_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* Every card, 555 bytes each, with its offload and driver parameters. Returns 0. */
KX_EXPORT uint32_t GetCardInfo(void* buffer, uint32_t* length);

/* The statistics of a card, 39 bytes each. Returns 0, 65 no such card, 71 no statistics. */
KX_EXPORT uint32_t GetCardStats(const char* location, void* buffer, uint32_t* length);

/* Every port of a card with addresses and parameters, 1385 bytes each.
   Returns 0, 65 no such card, 72 no port. */
KX_EXPORT uint32_t GetPortInfo(const char* location, void* buffer, uint32_t* length);

/* The counters of a port, 39 bytes each. instance counts from 1; above 255 it never matches.
   Returns 0 (with length 0 when the driver returned no counters), 65 no such card, 64 no such
   port. */
KX_EXPORT uint32_t
GetPortStat(const char* location, uint32_t instance, void* buffer, uint32_t* length);

/* Every known driver module that is installed, 257 bytes each. No Ethernet driver needs to be
   loaded. Returns 0, or 62 when none is installed. */
KX_EXPORT uint32_t GetDriverDetails(void* buffer, uint32_t* length);

/* Copy a chain of records into destination: record_size bytes of each record. The next pointer of a
   record directly follows these bytes. Returns the number of bytes written; 0 for a null chain or
   destination. */
KX_EXPORT uint32_t ConstructBuffer(void* destination, uint32_t record_size, const void* first);

/* The first card at a location (compared over 16 characters), or null. */
KX_EXPORT CardInfo* lookupCardInfo(CardList* list, const char* location);

/* The first port with that instance, or null; an instance above 255 never matches. */
KX_EXPORT PortInfo* lookupPortInCard(CardInfo* card, uint32_t instance);

/* The management buffer. The agent's command wrapper writes the output of the maker's command-line
   tool into it. Null and 0 at first. */
extern KX_EXPORT char* g_MXdataBuffer;         /* heap block */
extern KX_EXPORT int32_t g_MXdataBufferSize;   /* its size in bytes */
extern KX_EXPORT int32_t g_MXdataBufferOffset; /* bytes of output in it */

/* Allocate the buffer with 16384 bytes; the offset does not change. Returns 0; 273 when the
   allocation failed (the buffer is null then). Does not free a previous block. */
KX_EXPORT uint32_t InitMXBuffer(void);

/* Free the buffer; the pointer keeps its value. Returns 0. */
KX_EXPORT uint32_t ReleaseMXBuffer(void);

/* Enlarge the buffer by 16384 bytes, for output that does not fit. Returns 0; 417 when that failed
   (buffer and size do not change). */
KX_EXPORT uint32_t ReallocMXbuffer(void);

/* Run the maker's command-line tool through the agent's mx_cmd_wraper.
   arguments: a 32-bit count at byte 32, argument texts of 64 bytes each from byte 36 on; at most
   nine are passed on. *output receives a copy of what the tool printed (not terminated), *length
   its bytes; the caller frees it with free.
   Returns 0, also when the tool failed; 66 when there was no memory for the copy; 317 for null.
   Prints "MX Data buffer allocation failed" when there was no memory for the management buffer. */
KX_EXPORT uint32_t run_cmd_zfab(const void* arguments, char** output, uint32_t* length);

/* Ask the driver to bring up the offload device of an interface. Returns 0; 1 when the socket or
   the request failed; 317 for null. Prints nothing. */
KX_EXPORT uint32_t zfabtool_devup(const char* interface_name);

KX_END_DECLS

#endif
