/* The lists of adapters with the content of their flash and EEPROM.

   The library owns both lists. Records are packed (no padding) and little-endian; agents rely on
   their offsets and sizes. A text that fills its field has no NUL. */
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
    uint8_t q3_settings[KX_Q3_SETTINGS_SIZE]; /* zero unless the block has its signature */
    uint8_t q3_option_rom[KX_Q3_OPTION_ROM_SIZE];
    uint8_t q3_vpd[KX_Q3_VPD_SIZE];
    uint8_t q4_vpd[KX_Q4_VPD_SIZE]; /* Q5: only name, serial number, MAC and "V5", no tags */
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

/* Statuses in addition to KxStatus; neither has a text. */
enum KxListStatus { KX_NO_ADAPTERS = 244, KX_LIST_NO_MEMORY = 273 };

/* The heads of the two lists; null when there is none. Freeing a list does not clear its head. */
extern KX_EXPORT AdapterRecord* g_KestrixAdapters;
extern KX_EXPORT AdapterInfoRecord* g_KestrixAdapterInfo;

/* Scan the bus and build a list of all adapters, which replaces the previous list.
   *first: the head of the list, which is valid until the next build, its free function or
   cleanup_and_exit. While a list is built, *first is its newest record; when building fails, *first
   does not change, and the global head points to the part that was built.
   Both return 0; 244 when there is no adapter (the previous list stays, *first is not written); 273
   when there was no memory for a record (*first is null); 317 for null.
   Both read each adapter's EEPROM and flash through its register window and close it again. After
   an error there, the affected fields are zero.

   get_adapter_list ends when connect_to_hba or connect_to_hba_Q4 fails, and returns its status.
   Prints "get_adapter_list:: Entered function...", "get_adapter_list: Exit function...", "WARNING:
   vpdcheck failed for Q4 card" for a Q4 or Q5 adapter without VPD, and the bytes of a Q4's product
   name and MAC address.

   get_adapterinfo_list continues with the next adapter instead, and returns the status of the last
   adapter with VPD. Prints "get_adapterinfo_list: Enter function..." and "get_adapterinfo_list:
   Exit function...". */
KX_EXPORT uint32_t get_adapter_list(AdapterRecord** first);
KX_EXPORT uint32_t get_adapterinfo_list(AdapterInfoRecord** first);

/* Free a list from its first record, or the end of a list from any record; the records before it
   stay in the library's list. Null is accepted. Return 0. */
KX_EXPORT uint32_t adapter_list_free(AdapterRecord* first);
KX_EXPORT uint32_t adapterinfo_list_free(AdapterInfoRecord* first);

/* Fill a zeroed record of get_adapterinfo_list from VPD and flash of an adapter of the generation
   in the function's name; cap is the offset of its VPD capability. Return 0, or the status of the
   connect when the window cannot be opened (the fields from VPD are filled then). -22 for null. */
KX_EXPORT int32_t q4_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record);
KX_EXPORT int32_t q5_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record);
KX_EXPORT int32_t q3_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record);

/* The number of ports of a product, by the first 4 characters of its device id as "%x" prints it,
   the id's third digit (0x0F00) cleared; 0 for an unknown product. */
KX_EXPORT uint8_t getPortsQ4(const char* device_id);

/* The MAC address of the first port of the card at a PCI bus location ("%02x:%02x.%x").
   mac: 32 bytes. Returns 1; 0 when there is no such card or port, and then mac is not written.
   Prints the cards and ports that it checks. The inventory that it builds is not freed. */
KX_EXPORT int32_t findMac(const char* location, char* mac);

/* Close the register window, free the bus scan and both lists. Returns code. */
KX_EXPORT int32_t cleanup_and_exit(int32_t code);

KX_END_DECLS

#endif
