/* The TCP offload engine of a card: its device and its current parameters. */
#ifndef KXLINHW_OFFLOAD_H
#define KXLINHW_OFFLOAD_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* Find the offload device (the N of "toeN") that serves an interface: the first line of
   /proc/net/offload/devices, in pieces of 255 characters, that contains the interface's name.
   Returns 0 and stores the index, which is 0 for a line that does not begin with "toe" and a
   number. 71 when no line contains the name, 1 when the list is missing or unreadable, 66 out of
   memory, 317 for null; *index_out does not change then. Prints nothing. */
KX_EXPORT uint32_t getTOEDeviceIndex(const char* interface_name, int* index_out);

/* Read the offload parameters of a card into its CardParams, from the control files
   /proc/sys/toe/toeN_tom/NAME of the offload device of its first port; for a card without a port
   the device is toe0. When a file cannot be opened, its field does not change. A value is the
   result of atoi for the first 16 bytes of the file, cut to the low bytes of a narrower field.
   Returns 0; a status of getTOEDeviceIndex, with the block unchanged; 63 when the device has no
   directory (the block is set to zero then, and its state to 2); 66 out of memory; 317 for null.
   Prints nothing. */
KX_EXPORT uint32_t getTOEparams(CardInfo* card);

KX_END_DECLS

#endif
