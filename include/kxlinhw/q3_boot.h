/* The settings block and the boot option ROM in the flash of Q3 adapters.

       0x00000  boot option ROM, sectors 0 to 2; its first 16-bit word is 0xAA55
       0x30000  settings block, sector 3; begins with "CIB" and NUL

   Every function opens the register window itself unless it is open for that adapter: a window that
   is open for another adapter is closed first, and the status of connect_to_hba is returned when it
   fails. The functions that read leave the window open.

   Statuses are those of the q3_ functions of <kxlinhw/flash.h> and the one below. Messages go to
   standard error, as do those of the flash functions, unless said otherwise. */
#ifndef KXLINHW_Q3_BOOT_H
#define KXLINHW_Q3_BOOT_H

#include <kxlinhw/export.h>

KX_BEGIN_DECLS

enum {
    KX_Q3_BAD_IMAGE = 254, /* a boot image with a wrong size or without its signature */
    KX_Q3_BOOT_IMAGE_MIN = 28,
    KX_Q3_BOOT_IMAGE_MAX = 192 * 1024
};

#pragma pack(push, 1)

/* The settings block as it is written; 444 bytes of it are read back. */
typedef struct Q3Settings {
    char signature[4]; /* "CIB" and NUL */
    uint8_t byte4;     /* never 0 */
    uint16_t length;   /* 444 */
    uint8_t data[441];
} Q3Settings;

/* The identification of the option ROM: either 16 bytes that begin with its "$DM$" mark, or this
   record. */
typedef struct Q3OptionRomVersion {
    char signature[4]; /* "$PXE" */
    uint16_t version;  /* major << 8 | minor */
    uint8_t build;
    uint8_t reserved7[9];
} Q3OptionRomVersion;

#pragma pack(pop)

/* Erase the settings. The window stays open. */
KX_EXPORT int32_t erase_hba_settings(uint8_t adapter);

/* Erase the settings, set signature, byte 4 and length of the block, and write it.
   block: 448 bytes (Q3Settings); changed in place. Closes the window, also after a failed write.
   Returns 0, -22 for null, the status of the erase, or that of the write with "ERROR: Saving
   settings failed, error %d\n". */
KX_EXPORT int32_t save_hba_settings(uint8_t adapter, void* block);

/* Erase the option ROM. Prints "done." or "failed!" to standard output; closes the window. */
KX_EXPORT int32_t erase_option_rom(uint8_t adapter);

/* Download a boot image of size bytes. Closes the window.
   Returns 0; 254, before the adapter is touched, with "ERROR: Boot image has wrong size, probably
   corrupted!\n" or "ERROR: Boot image missing signature, probably corrupted!\n"; 248 with "ERROR:
   Boot image download failed, error 248\n" when any step failed; the status of connect_to_hba; -22
   for null, when the size is valid. */
KX_EXPORT int32_t q3_load_boot(uint8_t adapter, const uint8_t* image, uint32_t size);

/* Read the settings. out: 444 bytes. Returns 0, the status of connect_to_hba (out is not written
   then), or -22 with "ERROR: Could not read settings
   data!\n"; out may be partly written then. */
KX_EXPORT int32_t q3_read_settings(uint8_t adapter, void* out);

/* Inspect the first 512 bytes of the option ROM. out: 16 bytes, cleared first. q3_get_dm_signature
   copies the 16 bytes that begin at the "$DM$" mark. get_pxe_oprom_version makes a
   Q3OptionRomVersion of the version text after "PXE-2.0"; it prints its name and the version on
   standard output.
   Return 0; -22 for null; the status of connect_to_hba; -22 when there is no mark or no complete
   version text; -22 with "ERROR: Could not find valid Option ROM!\n"; the status of a failing read
   with "ERROR: Could not read data at start of Option ROM!\n". */
KX_EXPORT int32_t q3_get_dm_signature(uint8_t adapter, void* out);
KX_EXPORT int32_t get_pxe_oprom_version(uint8_t adapter, void* out);

KX_END_DECLS

#endif
