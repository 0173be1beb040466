/* Kernel modules: which are loaded, and the version and description in their files. */
#ifndef KXLINHW_MODULES_H
#define KXLINHW_MODULES_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* Is a module loaded? 1 when a line of /proc/modules begins with name (a prefix is enough: "zfab4"
   also finds "zfab4vf"), 0 when no line does, 63 when /proc/modules cannot be opened, 317 for null.
   A long line is compared in pieces of 63 characters, each of which may match. Prints nothing. */
KX_EXPORT uint32_t lsmod(const char* name);

/* Is one module loaded? Results as for lsmod. */
KX_EXPORT uint32_t isFCOELoaded(void);    /* kxstor, storage driver */
KX_EXPORT uint32_t isOffedLoaded(void);   /* iw_zfab3, iWARP of Q3 */
KX_EXPORT uint32_t isq4OffedLoaded(void); /* iw_zfab4, iWARP of Q4 and Q5 */
KX_EXPORT uint32_t isIscsiQ3Loaded(void); /* kxiscsi_q3 */
KX_EXPORT uint32_t isIscsiQ4Loaded(void); /* kxiscsi_q4 */
KX_EXPORT uint32_t isIscsiLoaded(void);   /* kxiscsi_base */
KX_EXPORT uint32_t isTOELoaded(void);     /* toecore, TCP offload */
KX_EXPORT uint32_t isq4TOELoaded(void);   /* q4_tom */
KX_EXPORT uint32_t isq3TOELoaded(void);   /* q3_tom */
KX_EXPORT uint32_t isZfab4Loaded(void);   /* zfab4, Ethernet driver of Q4 and Q5 */
KX_EXPORT uint32_t isBondingLoaded(void); /* /proc/net/bonding exists, else lsmod("bonding") */
KX_EXPORT uint32_t isZfab3Loaded(void);   /* /proc/net/zfab3 exists, else lsmod("zfab3") */

/* Build the list of known modules that have a module file, with version, description and loaded
   state. slot: the address of the list's first pointer; it may be unaligned (in a CardList it is at
   byte 1). An existing list is freed first. The caller frees the list with freelist. Returns 0; 62
   when no known module has a file (the slot is null then); 317 for null. */
KX_EXPORT uint32_t getDriverInfo(KxDriverEntryPtr* slot);

/* Free a list of getDriverInfo; null is accepted. */
KX_EXPORT void freelist(DriverEntry* first);

/* Where getModinfo searches: 1 only in the "updates" directory of the running kernel, 0 in its
   whole module tree. getModinfo sets it; it is 1 after a success and 0 after a failure. */
extern KX_EXPORT uint8_t modfound;

/* Read the version and the description in the file of a module.
   moduleName: a module name ("-" and "_" are the same), or the path of a module file. The search
   tries that path, then /lib/modules/RELEASE/updates, then /lib/modules/RELEASE; NAME.ko and
   NAME.ko.gz match (a compressed file gives no texts). versionOut, descriptionOut: at least 255
   bytes each; they do not change when the file lacks the text. A version of 255 characters or more
   fills its 255 bytes without a NUL; a description is cut after 63 characters. Returns 0 when a
   file was found, 62 when no file was found, 1 when the host's byte order is unknown, 317 for null.
   Prints nothing; a damaged file gives 0 and no texts. */
KX_EXPORT uint32_t getModinfo(char* moduleName, char* versionOut, char* descriptionOut);

/* Map a whole regular file, private, readable and writable. Returns its address and stores its
   length in bytes, or returns null (errno says why; ENODEV when it is not a regular file; an empty
   file cannot be mapped). Never waits for a writer of a named pipe. Unmap it with release_file. */
KX_EXPORT void* grab_file(const char* path, size_t* length);

/* Unmap what grab_file mapped; null is accepted. */
KX_EXPORT void release_file(void* address, size_t length);

KX_END_DECLS

#endif
