/* iWARP parameters of the RDMA drivers, and the module parameter of the Ethernet driver: read from
   and written to /sys/module/MODULE/parameters. A write runs "echo VALUE > FILE" in the shell. The
   library does not notice a refused write, and a set call is not atomic. */
#ifndef KXLINHW_IWARP_H
#define KXLINHW_IWARP_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

#pragma pack(push, 1)

/* The record of SetIwarpProps and GetIwarpProps; 332 bytes. Each field has the name of its
   parameter file and the driver's unit. Reserved bytes belong to the caller. */
typedef struct IwarpProps {
    uint8_t reserved0[24];
    char module[128];     /* "iw_zfab3" or "iw_zfab4" */
    uint64_t change_mask; /* KxIwarpChange bits; those above bit 30 have no effect */
    uint8_t reserved160[44];
    int32_t db_delay_usecs;
    int32_t ocqp_support;
    uint8_t reserved212[4];
    int32_t fastreg_support;
    int32_t dack_mode;
    int32_t z4iw_max_read_depth;
    int32_t enable_tcp_timestamps;
    int32_t enable_tcp_sack;
    int32_t enable_tcp_window_scaling;
    int32_t z4iw_debug;
    int32_t p2p_type;
    int32_t peer2peer;
    int32_t ep_timeout_secs;
    int32_t mpa_rev;
    int32_t markers_enabled;
    int32_t crc_enabled;
    int32_t rcv_win;
    int32_t snd_win;
    int32_t nocong;
    int32_t cong_flavor;
    int32_t allow_nonroot_rawqps;
    int32_t db_fc_drain_thresh;
    int32_t db_fc_resume_delay;
    int32_t db_fc_resume_size;
    int32_t enable_ecn;
    int32_t inline_threshold;
    int32_t map_udb_as_wc;
    int32_t max_fr_immd;
    int32_t relaxed_ird_negotiation;
    int32_t relaxed_ordering;
    int32_t q5_en_wc;
    int32_t use_dsgl;
} IwarpProps;

#pragma pack(pop)

/* IwarpProps.change_mask: the field that each bit applies. */
enum KxIwarpChange {
    KX_IWARP_ALLOW_NONROOT_RAWQPS = 0x1,
    KX_IWARP_MAX_READ_DEPTH = 0x2,
    KX_IWARP_DEBUG = 0x4,
    KX_IWARP_CONG_FLAVOR = 0x8,
    KX_IWARP_CRC_ENABLED = 0x10,
    KX_IWARP_DACK_MODE = 0x20,
    KX_IWARP_DB_DELAY_USECS = 0x40,
    KX_IWARP_DB_FC_DRAIN_THRESH = 0x80,
    KX_IWARP_DB_FC_RESUME_DELAY = 0x100,
    KX_IWARP_DB_FC_RESUME_SIZE = 0x200,
    KX_IWARP_ENABLE_ECN = 0x400,
    KX_IWARP_ENABLE_TCP_SACK = 0x800,
    KX_IWARP_ENABLE_TCP_TIMESTAMPS = 0x1000,
    KX_IWARP_ENABLE_TCP_WINDOW_SCALING = 0x2000,
    KX_IWARP_EP_TIMEOUT_SECS = 0x4000,
    KX_IWARP_FASTREG_SUPPORT = 0x8000,
    KX_IWARP_INLINE_THRESHOLD = 0x10000,
    KX_IWARP_MAP_UDB_AS_WC = 0x20000,
    KX_IWARP_MARKERS_ENABLED = 0x40000,
    KX_IWARP_MAX_FR_IMMD = 0x80000,
    KX_IWARP_MPA_REV = 0x100000,
    KX_IWARP_NOCONG = 0x200000,
    KX_IWARP_OCQP_SUPPORT = 0x400000,
    KX_IWARP_P2P_TYPE = 0x800000,
    KX_IWARP_PEER2PEER = 0x1000000,
    KX_IWARP_RCV_WIN = 0x2000000,
    KX_IWARP_RELAXED_IRD_NEGOTIATION = 0x4000000,
    KX_IWARP_RELAXED_ORDERING = 0x8000000,
    KX_IWARP_SND_WIN = 0x10000000,
    KX_IWARP_Q5_EN_WC = 0x20000000,
    KX_IWARP_USE_DSGL = 0x40000000,
    KX_IWARP_ZFAB3_FORBIDDEN = 0x6ccbbfe7, /* bits that iw_zfab3 lacks */
    KX_IWARP_ZFAB4_FORBIDDEN = 0x8         /* the bit that iw_zfab4 lacks */
};

/* Write the parameters of change_mask to the files of record's module.
   record: an IwarpProps, not changed.
   Returns 0, also when writes failed; 62 when the module is not loaded; 301 for a loaded module
   with another name; 317 for a bit that the module lacks (nothing is written then), or for null.
   Prints the module's name and what the commands print; logs each failure (service 10). */
KX_EXPORT uint32_t SetIwarpProps(void* record);

/* Read the parameters of record's module into its fields: nine for iw_zfab3, 29 for iw_zfab4 (all
   except cong_flavor and markers_enabled); other bytes do not change. A missing file gives 0.
   record: an IwarpProps with its module filled in. *recordSize: 0 at first, 332 on success. Returns
   0, 62, 301, or 317 for null. Prints the module's name and what read_from_file prints. */
KX_EXPORT uint32_t GetIwarpProps(void* record, uint32_t* recordSize);

/* Write tx_coal to the parameter file of the Ethernet driver zfab4 when mask contains
   KX_CARD_TX_COAL (bit 24). moduleName is not used and may be null. Returns 0; 317 for a null
   block. */
KX_EXPORT uint32_t setDriverParams(CardParams* block, uint32_t mask, const char* moduleName);

/* Read the low 8 bits of that parameter into tx_coal; 0 when the file is missing. moduleName is not
   used and may be null. Returns 0; 317 for a null block. */
KX_EXPORT uint32_t getDriverParams(CardParams* block, const char* moduleName);

/* Run a shell command and print each line of its output as "executeiwarpcommands : LINE" (long
   lines in pieces of 255 characters). Returns 0, whatever the exit status of the command; -1 when
   no pipe could be created, or for null. */
KX_EXPORT int executeCommand(const char* command);

/* Read an unsigned decimal number from a file; a file without a number gives 0.
   Returns 0. When the file cannot be opened: -1 with *value 0, the failure printed on standard
   output and on standard error, and logged (service 4). -1 for null. */
KX_EXPORT int read_from_file(const char* path, uint32_t* value);

KX_END_DECLS

#endif
