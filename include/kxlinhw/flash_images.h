/* The two boot images in the flash of Q4 and Q5 adapters: the boot option ROM and the boot
   configuration record.

       0x00000  boot option ROM, sectors 0 to 5; begins with 0x55 0xAA, BIOS version at 16 to 19
       0x70000  configuration record, sector 7; begins with "CBIO"
       0x80000  firmware; a boot image must end below 0x90000

   The register window must be open (connect_to_hba_Q4). Statuses are KxFlashStatus of
   <kxlinhw/flash.h>. Messages go to standard output, as do those of the flash functions. Nothing is
   undone: a failed write leaves its sectors erased or partly written. */
#ifndef KXLINHW_FLASH_IMAGES_H
#define KXLINHW_FLASH_IMAGES_H

#include <kxlinhw/boot_config.h>

KX_BEGIN_DECLS

enum {
    KX_BOOT_IMAGE_MIN = 28,         /* bytes of the smallest boot image */
    KX_BOOT_IMAGE_MAX = 512 * 1024, /* and of the largest */
    KX_BOOT_CONFIG_BUFFER = 1668,   /* bytes that read_flash_for_config writes */
    KX_BOOT_DUMP_WORDS = 256,       /* words of read_flash_for_boot's buffer */
    KX_BIOS_VERSION_UNKNOWN = 1     /* result of read_q4biosversion_from_boot on an error */
};

/* The option ROM's BIOS version: major in the low byte, then minor, build, revision; all four 0xFF
   without an option ROM. 1 when it cannot be read. Prints "Q4 Bios Version: %d.%d.%d.%d\n" or "Q4
   Bios version read error from flash". */
KX_EXPORT uint32_t read_q4biosversion_from_boot(uint8_t adapter);

/* Read the configuration record and the 4 bytes that follow it in flash, and then store the option
   ROM's BIOS version in bytes 12 to 15 when there is one.
   buffer: KX_BOOT_CONFIG_BUFFER bytes, at any address; may be partly written after an error.
   Returns 0, also when the BIOS version is missing; -22 with "flash read error sizeof conf data
   417\n". Prints "Warning: Unable to get the Q4 bios version for the adapter: %d\n", "Valid Option
   Rom is not presented for adapter index: %d\n" or "Q4 Adapter %d bios version: %d.%d.%d.%d\n". */
KX_EXPORT int32_t read_flash_for_config(uint8_t adapter, void* buffer);

/* Erase the configuration's sector and write the record.
   Returns 0 or -22. Prints "sf_size %d sf_nsec %d\n", then on failure "get flash params sf_size
   failed", "get flash params sf_nsec failed", "q4_flash_erase_sectors failed" and "flash write
   error sizeof conf data 1664\n". */
KX_EXPORT int32_t write_flash_for_config(uint8_t adapter, const void* record);

/* Is there a configuration record ("CBIO", followed by anything)? 0 with "Valid Config header
   presented"; -22 with "Is_Valid_q4config_Present Failed 1" when there is none, "... Failed 2" when
   it cannot be read. */
KX_EXPORT int32_t Is_Valid_q4config_Present(uint8_t adapter);

/* Is there a boot option ROM? 0 with "Valid OPROM presented"; -22 with "No Valid OPROM presented"
   or "flash read error sizeof conf data 53760\n". */
KX_EXPORT int32_t Is_Valid_q4oprom_Present(uint8_t adapter);

/* Write a default configuration record for an adapter of nports ports. The record has room for 4
   ports; further ports overwrite the fields after them, but nothing past the record.
   Returns 0, also when nothing was written because there is no option ROM (see
   read_flash_for_config for the printed lines); -22 with "Error: q4_load_default_config failed". */
KX_EXPORT int32_t q4_load_default_config(uint8_t adapter, uint32_t nports);

/* Repair a configuration record in place: fields with the value 0xFF get their defaults. */
KX_EXPORT void Set_q4config_property_with_Default_Settings(void* record);

/* Write the iSCSI initiator name of a configuration record: length bytes of base, then 12 bytes of
   suffix, which begin over the last byte of base, and a NUL. Nothing is written past the record.
   Negative lengths and null have no effect. */
KX_EXPORT void CopyInitiatorName(void* record, const char* base, const char* suffix, int length);

/* Erase the boot option ROM's or the configuration record's sectors. Returns 0, or -22 with "Error:
   q4_erase_boot failed" or "Error: q4_erase_config failed". */
KX_EXPORT int32_t q4_erase_boot(uint8_t adapter);
KX_EXPORT int32_t q4_erase_config(uint8_t adapter);

/* Download a boot image of size bytes to start_kb KiB. Whole pages are written, the last one filled
   with 0xFF. The first page is written last, so that an interrupted download leaves no valid image.
   Returns 0; -22 when the size of the flash is unknown; -27 with "boot image too small/large" or
   "boot image encroaching on firmware region"; -22 for null, when size and address are valid;
   otherwise the status of the failed step, with "q4_flash_erase_sectors failed" or "q4_write_flash
   failed" and "boot image download failed, error %d\n". */
KX_EXPORT int32_t
q4_load_boot(uint8_t adapter, const uint8_t* image, uint32_t start_kb, uint32_t size);

/* Print the option ROM as words, eight in each line, in 210 passes. Each pass prints 256 words and
   begins 256 bytes after the previous one. words: KX_BOOT_DUMP_WORDS words, which contain the last
   pass afterwards. Returns 0, or -22 with "flash read error sizeof conf data 53760\n". */
KX_EXPORT int32_t read_flash_for_boot(uint8_t adapter, uint32_t* words);

/* The version of the default configuration file /lib/firmware/zfab4/q4-config.txt: 0 to 4, from the
   device id in its first line with "version = ". 0 also when there is no file or no such line. -1
   for a chip class other than Q4 and Q5. Prints "Found the Conf File[%s] Signature: %s\n" with the
   path and the last line read, its own line end included. */
KX_EXPORT int32_t get_default_config_version(uint8_t chip_class);

/* Name and version of the boot part. out: at least 24 bytes; bytes 0 to 9 receive "libkxboot" and
   its NUL, bytes 20 to 23 the version 0x00060002. Returns 0; 317 for null. */
KX_EXPORT uint32_t GetBootLibVersion(void* out);

KX_END_DECLS

#endif
