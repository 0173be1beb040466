/* Vital product data (VPD) of an adapter, and the serial EEPROM that contains them.

   The EEPROM is read through the PCI VPD capability at offset cap of configuration space
   (vpd_setup). Q4 and Q5 adapters share a layout. Buffers may be at any address; null has no
   effect. */
#ifndef KXLINHW_VPD_H
#define KXLINHW_VPD_H

#include <kxlinhw/export.h>

KX_BEGIN_DECLS

enum {
    KX_Q3_EEPROM_SIZE = 8192, /* bytes of an EEPROM image */
    KX_Q4_EEPROM_SIZE = 32768,
    KX_VPD_READ_SIZE = 512,   /* bytes of VPD in an EEPROM image */
    KX_VPD_MOST_ENTRIES = 169 /* the most that parse_vpd can find */
};

/* The meaning of an entry of parse_vpd. */
enum KxVpdIndex {
    KX_VPD_PRODUCT = 0, /* the identifier string */
    KX_VPD_PART = 1,    /* "PN" */
    KX_VPD_SERIAL = 2,  /* "SN" */
    KX_VPD_MAC = 3,     /* "NA" */
    KX_VPD_V0 = 4,
    KX_VPD_V5 = 5
};

#pragma pack(push, 1)
typedef struct KxVpdEntry {
    uint8_t index;   /* a KxVpdIndex */
    char value[256]; /* NUL-terminated */
} KxVpdEntry;
#pragma pack(pop)

/* Read the parts of the EEPROM that are in use, each dword once, to their addresses in the image:
   Q4 0x400 to 0x5FF and 0x7C00 to 0x7FFF, a millisecond before each dword; Q3 0xC00 to 0xDFF and
   0x1000 to 0x1FFF. The rest of the image does not change; with cap 0 nothing changes. Prints a
   newline. */
KX_EXPORT void eeprom_rd_all_Q4(uint8_t adapter, uint32_t cap, void* eeprom);
KX_EXPORT void eeprom_rd_all_Q3(uint8_t adapter, uint32_t cap, void* eeprom);

/* Copy the 512 bytes of VPD out of an EEPROM image. */
KX_EXPORT void eeprom2vpd_Q4(const void* eeprom, void* vpd);
KX_EXPORT void eeprom2vpd_Q3(const void* eeprom, void* vpd);

/* Copy the serial configuration out of an EEPROM image: 1024 bytes (Q4), 4096 bytes (Q3). */
KX_EXPORT void eeprom2sercfg_Q4(const void* eeprom, void* serial_configuration);
KX_EXPORT void eeprom2sercfg_Q3(const void* eeprom, void* serial_configuration);

/* Write the tags, keywords and lengths of the generation over VPD (685 bytes Q4, 512 bytes Q3) and
   clear its reserved areas. The values do not change. */
KX_EXPORT void vpd_init_Q4(void* vpd);
KX_EXPORT void vpd_init_Q3(void* vpd);

/* Store the checksum: the complement of the sum of all bytes before it. */
KX_EXPORT void vpd_chksum_Q4(void* vpd);
KX_EXPORT void vpd_chksum_Q3(void* vpd);

/* Read the EEPROM into eeprom (an image), copy VPD and serial configuration out of it, write the
   template over the VPD, and store the checksum: all of the above in one call. */
KX_EXPORT void get_Q4(
    uint8_t adapter, uint32_t cap, void* eeprom, void* vpd, void* serial_configuration);
KX_EXPORT void get_Q3(
    uint8_t adapter, uint32_t cap, void* eeprom, void* vpd, void* serial_configuration);

/* Find the product name and the keywords with a KxVpdIndex in VPD without a fixed layout. vpd: 512
   bytes. entries: room for KX_VPD_MOST_ENTRIES; the product name comes first. *count receives their
   number. Lengths that reach past the VPD are cut. */
KX_EXPORT void parse_vpd(const void* vpd, void* entries, uint32_t* count);

/* Copy the value of each entry into its field of an AdapterInfoRecord, cut at the field's end. */
KX_EXPORT void copy_vpd_fields(const void* entries, uint32_t count, void* record);

KX_END_DECLS

#endif
