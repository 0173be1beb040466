/* The lists of adapters with what their flash and EEPROM hold.

   The library owns both lists. Records are byte-packed and little-endian; their offsets and sizes
   are a contract with the agent. Texts that fill their field carry no NUL. */
#ifndef KXLINHW_ADAPTER_LISTS_H
#define KXLINHW_ADAPTER_LISTS_H

#include <kxlinhw/boot_config.h>
#include <kxlinhw/export.h>

KX_BEGIN_DECLS

/* Chip class of a record: the generation by the first hexadecimal digit of the device id. */
enum KxChipClass { KX_CLASS_Q3 = 0, KX_CLASS_Q4 = 1, KX_CLASS_Q5 = 2 };

enum {
    KX_Q3_SETTINGS_SIZE = 444,    /* bytes of the settings block that are read back */
    KX_Q3_OPTION_ROM_SIZE = 16,   /* "$DM$" block or "$PXE" version record */
    KX_Q3_VPD_SIZE = 512,         /* Q3 VPD template */
    KX_Q4_VPD_SIZE = 685,         /* Q4 and Q5 VPD template */
    KX_SERIAL_CONFIG_SIZE = 4096, /* Q3; Q4 fills KX_Q4_SERIAL_CONFIG_SIZE of it */
    KX_Q4_SERIAL_CONFIG_SIZE = 1024
};

#pragma pack(push, 1)

/* One adapter of get_adapter_list, 7509 bytes. */
typedef struct AdapterRecord {
    uint8_t adapter; /* adapter index */
    uint16_t domain; /* PCI location */
    uint8_t bus;
    uint8_t device;
    uint8_t function;
    uint16_t vendor_id;
    uint16_t device_id;
    char product_name[16];  /* Q3 and Q4; may fill its field */
    char serial_number[16]; /* Q3; may fill its field */
    uint8_t factory_mac[6]; /* Q3 and Q4 */
    uint8_t port_count;
    uint8_t q3_settings[KX_Q3_SETTINGS_SIZE]; /* zero unless it bears its signature */
    uint8_t q3_option_rom[KX_Q3_OPTION_ROM_SIZE];
    uint8_t q3_vpd[KX_Q3_VPD_SIZE];
    uint8_t q4_vpd[KX_Q4_VPD_SIZE]; /* Q5: name, serial number, MAC and "V5" only, no tags */
    uint8_t serial_configuration[KX_SERIAL_CONFIG_SIZE]; /* Q3 and Q4 */
    uint8_t reserved5802[32];                            /* zero */
    uint8_t chip_class;                                  /* KxChipClass */
    uint8_t option_rom_valid;       /* Q4 and Q5: 1 when the flash holds an option ROM */
    uint8_t default_config_version; /* Q4 and Q5: get_default_config_version */
    Q4BootConfig boot_config;       /* Q4 and Q5 */
    struct AdapterRecord* next;     /* null in the last */
} AdapterRecord;

/* One adapter of get_adapterinfo_list, 1810 bytes. */
typedef struct AdapterInfoRecord {
    uint8_t adapter; /* adapter index */
    uint16_t domain; /* PCI location */
    uint8_t bus;
    uint8_t device;
    uint8_t function;
    uint16_t vendor_id;
    uint16_t device_id;
    uint8_t reserved10;             /* zero */
    uint8_t chip_class;             /* KxChipClass */
    uint8_t default_config_version; /* Q4 and Q5: get_default_config_version */
    uint8_t option_rom_valid;       /* Q4 and Q5: 1 when the flash holds an option ROM */
    char product_name[32];          /* texts of the VPD; each may fill its field */
    char serial_number[32];
    char part_number[32];
    char mac[12]; /* 12 hexadecimal digits */
    char v0[8];
    char v5[8]; /* Q3: the 2 bytes of "V7" */
    union {
        Q4BootConfig boot_config; /* Q4 and Q5 */
        struct {
            uint8_t settings[KX_Q3_SETTINGS_SIZE];
            uint8_t option_rom[KX_Q3_OPTION_ROM_SIZE];
        } q3;
    } boot;
    struct AdapterInfoRecord* next; /* null in the last */
} AdapterInfoRecord;

#pragma pack(pop)

/* The heads of the two lists; null when there is none. */
extern KX_EXPORT AdapterRecord* g_KestrixAdapters;
extern KX_EXPORT AdapterInfoRecord* g_KestrixAdapterInfo;

KX_END_DECLS

#endif
