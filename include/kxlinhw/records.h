/* The inventory records. Every record is packed (no padding) and little-endian; agents rely on its
   offsets and size. A text ends with a NUL within its field unless its comment says otherwise.

   The last field of each record is the chain's next pointer. Query functions copy a record without
   it, so an agent steps through the copies by the KX_..._COPY constants. Do not follow pointers
   inside a copied record (stats, ports): the library has freed what they point to. */
#ifndef KXLINHW_RECORDS_H
#define KXLINHW_RECORDS_H

#include <kxlinhw/export.h>

KX_BEGIN_DECLS

#pragma pack(push, 1)

/* One counter of a card or a port; 47 bytes, the first 39 are copied to the agent. */
typedef struct StatEntry {
    uint8_t group;          /* card statistics: 1 or 2; port statistics: 0 */
    char name[30];          /* a port counter's name of 30 or more characters has no NUL */
    uint64_t value;         /* the counter */
    struct StatEntry* next; /* not copied */
} StatEntry;

/* One known driver module; 265 bytes, the first 257 are copied to the agent. */
typedef struct DriverEntry {
    char module[32];          /* kernel module name */
    char unused[32];          /* always "N/A" */
    char version[64];         /* from the module file; last byte always NUL */
    char description[128];    /* from the module file; last byte always NUL */
    uint8_t loaded;           /* 1 loaded, 0 not loaded, 63 module list unreadable */
    struct DriverEntry* next; /* not copied */
} DriverEntry;

/* Offload-engine and driver-module parameters of a card, 231 bytes: read by GetCardInfo, and the
   input of SetCardParam. Each field has the name of its control file. */
typedef struct CardParams {
    uint8_t state;                         /* 6 discovered, 2 no offload control files */
    uint32_t change_mask;                  /* which fields SetCardParam applies */
    uint8_t reserved5[64];                 /* not used */
    int64_t max_host_sndbuf;               /* bytes */
    int64_t tx_hold_thres;                 /* bytes */
    int16_t max_wr;                        /* work requests; also written as max_wr_credits */
    int64_t rx_credit_thres;               /* bytes */
    int8_t failover_alg;                   /* -1 to 3 */
    int32_t mss;                           /* bytes */
    int8_t delayed_ack;                    /* 0 to 3 */
    int64_t max_conn;                      /* connections, -1 for no limit */
    int8_t soft_backlog_limit;             /* 0 or 1 */
    int8_t ddp;                            /* 0 or 1 */
    int64_t kseg_ddp;                      /* as the driver counts it */
    int64_t ddp_thres;                     /* bytes */
    uint8_t reserved127[8];                /* not used */
    int64_t ddp_push_wait;                 /* as the driver counts it */
    int64_t ddp_rcvcoalesce;               /* as the driver counts it */
    int64_t zcopy_sendmsg_partial_thres;   /* bytes */
    int64_t zcopy_sendmsg_partial_copy;    /* bytes */
    int64_t zcopy_sendmsg_thres;           /* bytes */
    int64_t zcopy_sendmsg_copy;            /* bytes */
    int64_t zcopy_sendmsg_ret_pending_dma; /* bytes */
    int8_t activated;                      /* 1 offload engine on, 0 off */
    int8_t cop_managed_offloading;         /* 0 or 1 */
    int8_t recvmsg_spin_us;                /* microseconds */
    int8_t tx_coal;                        /* parameter of the Ethernet driver module */
    uint8_t reserved195[36];               /* not used */
} CardParams;

/* Ring sizes in descriptors; the order is the same in every record. */
typedef struct RingSizes {
    uint32_t rx;
    uint32_t rx_mini;
    uint32_t rx_jumbo;
    uint32_t tx;
} RingSizes;

/* Settings of a port, 240 bytes at offset 1137 of PortInfo: filled by GetPortInfo, and the agent's
   input area for SetPortParam. Offsets in the names of reserved fields count from the block. */
typedef struct PortSettings {
    uint8_t state;           /* 2 on a discovered port */
    uint32_t change_mask;    /* which settings SetPortParam applies */
    uint8_t reserved5[20];   /* not used */
    uint32_t port_instance;  /* only for set calls: for the recording functions */
    char mtu[8];             /* bytes, as text */
    char tx_checksum[2];     /* "1" or "0" */
    char rx_checksum[2];     /* "1" or "0" */
    char scatter_gather[2];  /* "1" or "0" */
    char tx_pause[2];        /* "1" or "0" */
    char rx_pause[2];        /* "1" or "0" */
    uint8_t reserved47[98];  /* not used */
    uint8_t tso;             /* TCP segmentation offload, 0 or 1 */
    uint8_t gso;             /* generic segmentation offload, 0 or 1 */
    uint32_t message_level;  /* message bits of the driver; a set call takes them as signed */
    uint32_t rx_usecs;       /* receive interrupt coalescing, microseconds */
    uint8_t autoneg;         /* link auto-negotiation, 0 or 1 */
    uint16_t speed;          /* Mb/s */
    uint8_t duplex;          /* 0 half, 1 full */
    uint32_t advertise;      /* only for set calls: ADVERTISED_* bits */
    RingSizes rings;         /* current ring sizes */
    uint8_t pause_autoneg;   /* 0 or 1 */
    uint8_t reserved180[60]; /* not used */
} PortSettings;

/* One port of a card; 1393 bytes, the first 1385 are copied to the agent. */
typedef struct PortInfo {
    uint8_t instance;              /* 1-based number of the port within its card */
    uint8_t link_detected;         /* 1 up, 0 down */
    char mac[32];                  /* six colon-separated hexadecimal pairs */
    char ipv4_address[32];         /* dotted, empty if none */
    char ipv4_netmask[32];         /* dotted, empty if none */
    uint8_t reserved98[255];       /* not used */
    char interface_name[64];       /* such as eth2 */
    char ipv6_address[32];         /* the last address that fits; otherwise empty */
    char supported_connectors[64]; /* such as "TP FIBRE " */
    char connector[25];            /* current connector */
    char wol_supported[25];        /* wake-on-LAN modes, as letters */
    char wol_enabled[25];          /* wake-on-LAN modes, as letters */
    char supported_modes[255];     /* link modes */
    char advertised_modes[255];    /* link modes */
    uint8_t autoneg_supported;     /* 0 or 1 */
    uint8_t autoneg_advertised;    /* 0 or 1 */
    RingSizes ring_maxima;         /* largest ring sizes */
    uint32_t phy_address;          /* as the driver reports it */
    char transceiver[16];          /* "Internal", "External" or "Unknown" */
    uint8_t link_detected_again;   /* as link_detected, from a second request */
    PortSettings settings;         /* see above */
    StatEntry* stats;              /* null unless statistics were requested */
    struct PortInfo* next;         /* not copied */
} PortInfo;

/* One adapter function; 563 bytes, the first 555 are copied to the agent. */
typedef struct CardInfo {
    char pci_bus_location[16]; /* "%02x:%02x.%x" of bus, device and function: the card's key */
    uint32_t vendor_id;        /* PCI vendor id, zero-extended */
    uint32_t device_id;        /* PCI device id, zero-extended */
    uint16_t port_count;       /* interfaces attached to the card */
    char firmware[32];         /* the driver's firmware text; may fill the field without a NUL */
    char chip_type[5];         /* "Q3", "Q4", "Q5"; the NUL of "Q4-VF" and "Q5-VF" is in model */
    char model[64];            /* product name; empty for Q4, Q5 and virtual functions */
    uint8_t reserved127[33];   /* zero */
    char offload_device[10];   /* "OffloadCard" (its last 2 bytes are in pci_class), a device name
                                  such as "toe0", or "nic_dev" */
    uint32_t pci_class;        /* PCI device class; see offload_device */
    uint32_t irq;              /* PCI interrupt line; 0 for virtual functions */
    uint8_t reserved178[130];  /* zero */
    CardParams params;         /* offload and driver parameters */
    StatEntry* stats;          /* null if none */
    PortInfo* ports;           /* null if the card has no port */
    struct CardInfo* next;     /* not copied */
} CardInfo;

/* Head of one inventory, 17 bytes; never copied to the agent. */
typedef struct CardList {
    uint8_t card_count;   /* physical functions found, at most 255 */
    DriverEntry* drivers; /* null unless the driver inventory was requested */
    CardInfo* cards;      /* in libpci's device order */
} CardList;

#pragma pack(pop)

/* A pointer at any address, aligned or not, such as a list head inside a packed record. */
typedef DriverEntry* KxDriverEntryPtr __attribute__((aligned(1)));
typedef StatEntry* KxStatEntryPtr __attribute__((aligned(1)));

/* Bytes of each record that the query functions copy. */
enum { KX_STAT_COPY = 39, KX_DRIVER_COPY = 257, KX_PORT_COPY = 1385, KX_CARD_COPY = 555 };

KX_END_DECLS

#endif
