/* Query entry points: each builds a fresh inventory, copies the records asked for into the agent's
   buffer as a flat array, and frees the inventory.

   length receives the number of bytes written and is set to 0 before anything can fail. No size is
   passed and none is checked: the buffer must hold every record. location is the text
   "%02x:%02x.%x" of bus, device and function; null names no card (65). A null length gives
   317, and so does a null buffer when there is a record to copy.

   Beside the codes given here every query returns those of InitAndFillInfo_Kxcard. */
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
   Returns 0 (with length 0 when the driver gave no counters), 65 no such card, 64 no such port. */
KX_EXPORT uint32_t
GetPortStat(const char* location, uint32_t instance, void* buffer, uint32_t* length);

/* Every known driver module that is installed, 257 bytes each; asks no Ethernet driver to be
   loaded. Returns 0, or 62 when none is installed. */
KX_EXPORT uint32_t GetDriverDetails(void* buffer, uint32_t* length);

/* Copy a chain of records into destination: record_size bytes of each, whose next pointer follows
   right behind them. Returns the bytes written; 0 for a null chain or destination. */
KX_EXPORT uint32_t ConstructBuffer(void* destination, uint32_t record_size, const void* first);

/* The first card at a location (compared over 16 characters), or null. */
KX_EXPORT CardInfo* lookupCardInfo(CardList* list, const char* location);

/* The first port of that instance, or null; an instance above 255 never matches. */
KX_EXPORT PortInfo* lookupPortInCard(CardInfo* card, uint32_t instance);

/* The management buffer, into which the agent's command wrapper puts the output of the maker's
   command-line tool. Null and 0 at first. */
extern KX_EXPORT char* g_MXdataBuffer;         /* heap block */
extern KX_EXPORT int32_t g_MXdataBufferSize;   /* its capacity in bytes */
extern KX_EXPORT int32_t g_MXdataBufferOffset; /* bytes of output in it */

/* Allocate the buffer with 16384 bytes; the offset is not touched. Returns 0; 273 when the
   allocation failed (the buffer is null then). A block already there is not freed. */
KX_EXPORT uint32_t InitMXBuffer(void);

/* Free the buffer; the pointer keeps its value. Returns 0. */
KX_EXPORT uint32_t ReleaseMXBuffer(void);

/* Grow the buffer by 16384 bytes, for the writer whose output does not fit. Returns 0; 417 when
   that failed (buffer and size stay as they were). */
KX_EXPORT uint32_t ReallocMXbuffer(void);

/* Run the maker's command-line tool through the agent's mx_cmd_wraper.
   arguments: a 32-bit count at byte 32, argument texts of 64 bytes each from byte 36 on; at most
   nine are passed. *output receives a copy of what the tool printed (not terminated), *length its
   bytes; the caller frees it with free.
   Returns 0, also when the tool failed; 66 when the copy could not be allocated; 317 for null.
   Prints "MX Data buffer allocation failed" when the management buffer could not be had. */
KX_EXPORT uint32_t run_cmd_zfab(const void* arguments, char** output, uint32_t* length);

/* Ask the driver to bring an interface's offload device up. Returns 0; 1 when the socket or the
   request failed; 317 for null. Prints nothing. */
KX_EXPORT uint32_t zfabtool_devup(const char* interface_name);

KX_END_DECLS

#endif
