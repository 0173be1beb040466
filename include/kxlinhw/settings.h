/* Changing the settings of ports and cards, and keeping them in configuration files.

   Settings are applied by change mask: every bit that is set has its field applied, in a fixed
   order, and a failing setting never stops the ones behind it. Each failure appends a message that
   ends in "; " to errStr (fetch it with GetErrStr(70)). What was applied is recorded in a
   configuration file; that a setting could not be recorded is never reported.

   A null record, block, name or path gives 317 unless said otherwise. */
#ifndef KXLINHW_SETTINGS_H
#define KXLINHW_SETTINGS_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* Where port settings are recorded: lines "INTERFACE.KEY = VALUE", values in decimal. The library
   creates the file (mode 0644 at most) but not its directory. `kxctl restore` applies them again
   after a reboot. */
#define KX_PORT_PARAMETER_FILE "/etc/kestrix-plexo/kxportparams.conf"

/* Where offload settings are recorded: lines "toe.toeN_tom.NAME = VALUE" among others. */
#define KX_SYSCTL_FILE "/etc/sysctl.conf"

/* Port change mask, PortSettings.change_mask: the setting that each bit applies. */
enum KxPortChange {
    KX_PORT_LINK = 0x2,                 /* autoneg, speed, duplex */
    KX_PORT_MTU = 0x4,                  /* mtu */
    KX_PORT_RX_PAUSE = 0x20,            /* rx_pause */
    KX_PORT_TX_PAUSE = 0x40,            /* tx_pause */
    KX_PORT_TSO = 0x400,                /* tso */
    KX_PORT_TX_CHECKSUM = 0x800,        /* tx_checksum */
    KX_PORT_RX_CHECKSUM = 0x1000,       /* rx_checksum */
    KX_PORT_SCATTER_GATHER = 0x100000,  /* scatter_gather */
    KX_PORT_GSO = 0x200000,             /* gso */
    KX_PORT_MESSAGE_LEVEL = 0x400000,   /* message_level */
    KX_PORT_RX_USECS = 0x800000,        /* rx_usecs */
    KX_PORT_PAUSE_AUTONEG = 0x1000000,  /* pause_autoneg */
    KX_PORT_ADVERTISE = 0x2000000,      /* advertise */
    KX_PORT_RING_RX = 0x4000000,        /* rings.rx */
    KX_PORT_RING_RX_MINI = 0x8000000,   /* rings.rx_mini */
    KX_PORT_RING_RX_JUMBO = 0x10000000, /* rings.rx_jumbo */
    KX_PORT_RING_TX = 0x20000000        /* rings.tx */
};
/* Bit 31 restarts auto-negotiation; as an enumerator it would not fit an int. */
#define KX_PORT_RESTART_AUTONEG 0x80000000U

/* Card change mask, CardParams.change_mask. Bits 1 to 22 are offload settings; any other bit sends
   the block to setDriverParams, which acts on KX_CARD_TX_COAL only. KX_CARD_MAX_WR_CREDITS is an
   offload setting all the same: it is applied when another offload bit is set beside it. */
enum KxCardChange {
    KX_CARD_ACTIVATED = 0x2,
    KX_CARD_MAX_HOST_SNDBUF = 0x4,
    KX_CARD_TX_HOLD_THRES = 0x8,
    KX_CARD_MAX_WR = 0x10,
    KX_CARD_RX_CREDIT_THRES = 0x20,
    KX_CARD_FAILOVER_ALG = 0x40,
    KX_CARD_MSS = 0x80,
    KX_CARD_DELAYED_ACK = 0x100,
    KX_CARD_MAX_CONN = 0x200,
    KX_CARD_SOFT_BACKLOG_LIMIT = 0x400,
    KX_CARD_DDP = 0x800,
    KX_CARD_DDP_THRES = 0x1000,
    KX_CARD_RECVMSG_SPIN_US = 0x2000,
    KX_CARD_DDP_PUSH_WAIT = 0x4000,
    KX_CARD_DDP_RCVCOALESCE = 0x8000,
    KX_CARD_ZCOPY_SENDMSG_PARTIAL_THRES = 0x10000,
    KX_CARD_ZCOPY_SENDMSG_PARTIAL_COPY = 0x20000,
    KX_CARD_ZCOPY_SENDMSG_THRES = 0x40000,
    KX_CARD_ZCOPY_SENDMSG_COPY = 0x80000,
    KX_CARD_ZCOPY_SENDMSG_RET_PENDING_DMA = 0x100000,
    KX_CARD_KSEG_DDP = 0x200000,
    KX_CARD_COP_MANAGED_OFFLOADING = 0x400000,
    KX_CARD_MAX_WR_CREDITS = 0x800000,
    KX_CARD_TX_COAL = 0x1000000,
    KX_CARD_OFFLOAD_BITS = 0x7ffffe
};

/* ---- Entry points ---- */

/* Apply the settings block of a port record to a port.
   portRecord: a PortInfo that the caller owns, its settings and change_mask filled in; the
   library writes the port's interface_name and mac into it. cardLocation: "%02x:%02x.%x" of bus,
   device and function. portIndex counts from 1.
   Returns 0 when everything was applied; 70 when a setting failed, the others being applied all
   the same; 64 no such port, 65 no such card (null names none), both leaving errStr and the record
   as they were; or a status of InitAndFillInfo_Kxcard. */
KX_EXPORT uint32_t SetPortParam(void* portRecord, char* cardLocation, int portIndex);

/* Apply a CardParams block (231 bytes; not a whole card record) to a card.
   Returns 0 when everything was applied, 70 when a setting failed, 65 no such card, or a status of
   InitAndFillInfo_Kxcard. */
KX_EXPORT uint32_t SetCardParam(void* cardBlock, char* cardLocation);

/* Apply the settings block of a port of an inventory: clear errStr, then run the setter groups
   whose bits are present: MTU, offloads, rings, link settings, pause, coalescing, restart of
   auto-negotiation. Returns 0, or 70 when a group failed. */
KX_EXPORT uint32_t setPortParams(PortInfo* port);

/* Apply the settings block of a card of an inventory: clear errStr, then the offload settings, then
   the driver-module setting. A card without offload ("nic" in its offload device), one whose first
   port is not in the list of offload devices (or that has no port), and one without control files
   get none of them applied when an offload bit is set; only "activated" is tried before control
   files are found missing. With "activated" 1 the device is brought up before it is looked for.
   Returns 0 or 70. */
KX_EXPORT uint32_t setCardParams(CardInfo* card);

/* The port with that instance number on the card at that location, or null. */
KX_EXPORT PortInfo* lookupPortInfo(CardList* list, char* cardLocation, uint32_t portNumber);

/* 1 for 0 and 1, else 0. */
KX_EXPORT int isBool(int v);

/* The first character of a text that is neither a blank nor a tab (its NUL at the latest); null
   for null. */
KX_EXPORT char* trim(char* text);

/* ---- Setter groups of a port ----

   Each opens a socket of its own and returns 1 when there is none. interface_name is cut at 15
   characters in requests. Statuses: 0; 61 a value is out of its range; 1 a request was refused;
   -1 likewise, where said. A value that was accepted is recorded with savePortParam. */

/* Set the MTU from its text: a leading number, decimal, 0x hexadecimal or 0 octal, 22 to 10222.
   Looks at no bit of mask. Returns 0, 1 or 61; leaves errStr to its caller. */
KX_EXPORT int setMTU(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Switch the checksum, scatter-gather and segmentation offloads of mask. Prints what strToBool
   prints. Returns the mask bits of those that failed, ORed. */
KX_EXPORT int setOffloads(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Set the ring sizes of mask. A size over the driver's limit (16384 for the mini ring, whatever
   the driver says) is refused alone. Returns 0, 1 when the driver gives no sizes, or 61. */
KX_EXPORT int setRingParams(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Set auto-negotiation or a forced speed (10, 100, 1000, 10000) and duplex, the advertised modes
   (only with auto-negotiation on), and the driver's message level (0 or more, as signed).
   Returns 0, 1 when the driver gives no settings, 61, or -1 when it refuses to take them. */
KX_EXPORT int setLinkSettings(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Set pause auto-negotiation and the pause directions. A driver without pause parameters gives a
   silent 0. Prints what strToBool prints, and a refused rx_pause. Returns 0, 1 or 61. */
KX_EXPORT int setPauseParams(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Set the receive coalescing delay; every other coalescing field stays as it is. Prints a line on
   success. Returns 0, 1 when the driver gives no coalescing, -1 when it refuses to take it. */
KX_EXPORT int setCoalesce(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Restart auto-negotiation; looks at neither settings nor mask. Returns 0, 1 or -1. */
KX_EXPORT int resetAutoneg(const char* interface_name, PortSettings* settings, uint32_t mask);

/* 1 for "1", 0 for "0", 255 for any other text and for null. Prints four lines. */
KX_EXPORT uint8_t strToBool(const char* text);

/* ---- Recording ----

   Whoever changes one of these files holds the lock of its directory (flock on the directory's
   descriptor), so that agents that save at the same time lose no line; an agent that changes them
   in a way of its own should too. A lock that another agent keeps for 5 seconds is a failure as of
   a file that cannot be written. A file that is a symbolic link stays one: the file at the end of
   its links is changed, its directory locked, and the names of a rewrite are beside it. Links that
   go round in a circle are a failure. A setting that is reported recorded has been flushed to the
   disk. */

/* Record a port setting in KX_PORT_PARAMETER_FILE as "INTERFACE.KEY = VALUE". Every line that holds
   "INTERFACE.KEY" (cut at 31 characters) anywhere is replaced; without such a line the new one is
   appended. portInstance is not used. Returns 0 or 1; prints "not able to open conf file". */
KX_EXPORT int savePortParam(
    const char* key, const char* interface_name, uint32_t portInstance, int value);

/* Rewrite a file with newLine (which ends in a newline) for every line that holds searchKey; other
   lines lose their leading blanks and tabs. PATH must be a regular file. Mode and owner are kept; an
   agent that may not give the file away becomes its owner, and nobody else may do more with it than
   before. The new text is written to "PATH.tmp", flushed, PATH renamed to "PATH.bk", "PATH.tmp" to
   PATH, and the backup removed; when the second renaming fails the first is taken back. Returns 0;
   1 with the file as it was. Prints newLine. */
KX_EXPORT int replacePortConfLine(const char* path, const char* newLine, const char* searchKey);

/* ---- Offload settings ---- */

/* Write one offload setting to /proc/sys/toe/toeN_tom/NAME and record it. Returns 0; 70 with a
   message in errStr (cut at 63 characters) when the value is out of [min, max], the file cannot be
   opened or refuses the value. The card that messages name is the last one of setCardParams. */
KX_EXPORT uint32_t
setTOEParam(char* name, int deviceIndex, int64_t value, int64_t min, int64_t max);

/* Apply the offload settings of mask but "activated". Returns 0, or 70 when one failed. */
KX_EXPORT uint32_t setTOEParams(CardParams* block, uint32_t mask, int deviceIndex);

/* The key by which sysctl knows a control file: the path without its leading "/proc/sys/", with
   "." for every "/". key holds size bytes, its NUL included. Returns 0; 1 when the key does not
   fit (it is cut then), or for null. */
KX_EXPORT int sysctlPathToKey(const char* path, char* key, int size);

/* Record an offload setting in KX_SYSCTL_FILE as "KEY = VALUE". Every line that begins with the key
   (behind blanks and tabs) and a blank or "=" is replaced; without such a line the new one is
   appended. Returns 0 or 1. Prints nothing. */
KX_EXPORT int saveSysctlParam(const char* path, int64_t value);

/* As replacePortConfLine, for lines that begin with the first keyLength characters of key and a
   blank or "=". Prints nothing. */
KX_EXPORT int replaceSysctlLine(
    const char* file, const char* key, const char* newLine, int keyLength);

KX_END_DECLS

#endif
