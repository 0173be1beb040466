/* Changing the settings of ports and cards, and recording them in configuration files.

   A change mask selects the settings: each bit that is set applies its field. The order is fixed,
   and a setting that fails does not stop the settings after it. Each failure appends a message that
   ends in "; " to errStr (GetErrStr(70) returns it). Applied settings are recorded in a
   configuration file. The library never reports that it could not record a setting.

   A null record, block, name or path gives 317 unless said otherwise. */
#ifndef KXLINHW_SETTINGS_H
#define KXLINHW_SETTINGS_H

#include <kxlinhw/records.h>

KX_BEGIN_DECLS

/* The file of recorded port settings: lines "INTERFACE.KEY = VALUE", values in decimal. The library
   creates the file (mode 0644 at most) but not its directory. `kxctl restore` applies them again
   after a reboot. */
#define KX_PORT_PARAMETER_FILE "/etc/kestrix-plexo/kxportparams.conf"

/* The file of recorded offload settings: lines "toe.toeN_tom.NAME = VALUE" among other lines. */
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

/* Card change mask, CardParams.change_mask. Bits 1 to 22 are offload settings. For any other bit
   the block is passed to setDriverParams, which uses KX_CARD_TX_COAL only. KX_CARD_MAX_WR_CREDITS
   is also an offload setting, but it is applied only when another offload bit is set too. */
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
   portRecord: a PortInfo that the caller owns, its settings and change_mask filled in; the library
   writes the port's interface_name and mac into it. cardLocation: "%02x:%02x.%x" of bus, device and
   function. portIndex counts from 1.
   Returns 0 when everything was applied; 70 when a setting failed (the others are applied); 64 no
   such port; 65 no such card, or null (64 and 65 change neither errStr nor the record); or a status
   of InitAndFillInfo_Kxcard. */
KX_EXPORT uint32_t SetPortParam(void* portRecord, char* cardLocation, int portIndex);

/* Apply a CardParams block (231 bytes; not a whole card record) to a card.
   Returns 0 when everything was applied, 70 when a setting failed, 65 no such card, or a status of
   InitAndFillInfo_Kxcard. */
KX_EXPORT uint32_t SetCardParam(void* cardBlock, char* cardLocation);

/* Apply the settings block of a port of an inventory: clear errStr, then run the groups of setters
   whose bits are set: MTU, offloads, rings, link settings, pause, coalescing, restart of
   auto-negotiation. Returns 0, or 70 when a group failed. */
KX_EXPORT uint32_t setPortParams(PortInfo* port);

/* Apply the settings block of a card of an inventory: clear errStr, then the offload settings, then
   the driver-module setting. No offload setting is applied to a card without an offload engine
   ("nic" in its offload device), to a card without a port or whose first port is not in the list of
   offload devices, and to a card without control files; but "activated" is tried before the control
   files are found missing. With "activated" 1 the device is brought up before the search for it.
   Returns 0 or 70. */
KX_EXPORT uint32_t setCardParams(CardInfo* card);

/* The port with that instance number of the card at that location, or null. */
KX_EXPORT PortInfo* lookupPortInfo(CardList* list, char* cardLocation, uint32_t portNumber);

/* 1 for 0 and 1, else 0. */
KX_EXPORT int isBool(int v);

/* A pointer to the first character of a text that is neither a blank nor a tab, or to its NUL; null
   for null. */
KX_EXPORT char* trim(char* text);

/* ---- Setter groups of a port ----

   Each group opens a socket and returns 1 when that fails. Requests contain the first 15 characters
   of interface_name. Statuses: 0; 61 when a value is outside its range; 1 when the driver refused a
   request; -1 for the same, where said. Accepted values are recorded with savePortParam. */

/* Set the MTU from its text: a leading number, decimal, 0x hexadecimal or 0 octal, 22 to 10222.
   Ignores mask. Returns 0, 1 or 61; does not change errStr. */
KX_EXPORT int setMTU(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Switch the checksum, scatter-gather and segmentation offloads of mask. Prints what strToBool
   prints. Returns the mask bits of the offloads that failed, ORed. */
KX_EXPORT int setOffloads(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Set the ring sizes of mask. A size above the driver's limit (always 16384 for the mini ring) is
   refused; the other sizes are set. Returns 0, 1 when the driver returns no sizes, or 61. */
KX_EXPORT int setRingParams(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Set auto-negotiation or a forced speed (10, 100, 1000, 10000) and duplex, the advertised modes
   (only with auto-negotiation on), and the driver's message level (0 or more, as signed). Returns
   0, 1 when the driver returns no settings, 61, or -1 when the driver refuses the new ones. */
KX_EXPORT int setLinkSettings(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Set pause auto-negotiation and the pause directions. For a driver without pause parameters it
   returns 0 and prints nothing. Prints what strToBool prints, and a refused rx_pause. Returns 0, 1
   or 61. */
KX_EXPORT int setPauseParams(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Set the receive coalescing delay; all other coalescing fields do not change. Prints a line on
   success. Returns 0, 1 when the driver returns no coalescing values, -1 when it refuses the new
   ones. */
KX_EXPORT int setCoalesce(const char* interface_name, PortSettings* settings, uint32_t mask);

/* Restart auto-negotiation; ignores settings and mask. Returns 0, 1 or -1. */
KX_EXPORT int resetAutoneg(const char* interface_name, PortSettings* settings, uint32_t mask);

/* 1 for "1", 0 for "0", 255 for any other text and for null. Prints four lines. */
KX_EXPORT uint8_t strToBool(const char* text);

/* ---- Recording ----

   While the library changes one of these files it holds the lock of the file's directory (flock on
   a descriptor of the directory), so that agents that record at the same time lose no line. An
   agent that changes the files itself should hold the lock too. When another agent holds the lock
   for 5 seconds, the result is that of a file that cannot be written. When a file is a symbolic
   link, the link stays: the library follows it, locks the directory of the last file and changes
   that file; the temporary files of a rewrite are in the same directory. Links that form a circle
   are a failure. A setting that is reported as recorded has been flushed to the disk. */

/* Record a port setting in KX_PORT_PARAMETER_FILE as "INTERFACE.KEY = VALUE". Every line that
   contains "INTERFACE.KEY" (its first 31 characters) anywhere is replaced; without such a line the
   new line is appended. portInstance is not used. Returns 0 or 1; prints "not able to open conf
   file". */
KX_EXPORT int savePortParam(
    const char* key, const char* interface_name, uint32_t portInstance, int value);

/* Replace every line that contains searchKey by newLine (which ends in a newline); other lines lose
   their leading blanks and tabs. PATH must be a regular file. Mode and owner do not change; when
   the agent may not change the owner, it becomes the owner, and nobody else gets more permissions.
   The new text is written to "PATH.tmp" and flushed; PATH is renamed to "PATH.bk" and "PATH.tmp" to
   PATH; then the backup is removed. When the second rename fails, the first one is undone. Returns
   0; 1 when it failed, with the file unchanged. Prints newLine. */
KX_EXPORT int replacePortConfLine(const char* path, const char* newLine, const char* searchKey);

/* ---- Offload settings ---- */

/* Write one offload setting to /proc/sys/toe/toeN_tom/NAME and record it. Returns 0; 70 with a
   message in errStr (cut at 63 characters) when the value is out of [min, max], the file cannot be
   opened or refuses the value. The card that messages name is the last one of setCardParams. */
KX_EXPORT uint32_t
setTOEParam(char* name, int deviceIndex, int64_t value, int64_t min, int64_t max);

/* Apply the offload settings of mask except "activated". Returns 0, or 70 when one failed. */
KX_EXPORT uint32_t setTOEParams(CardParams* block, uint32_t mask, int deviceIndex);

/* The sysctl key of a control file: the path without its leading "/proc/sys/", with "." for every
   "/". key has room for size bytes, including the NUL. Returns 0; 1 when the key does not fit (it
   is cut then), or for null. */
KX_EXPORT int sysctlPathToKey(const char* path, char* key, int size);

/* Record an offload setting in KX_SYSCTL_FILE as "KEY = VALUE". Every line that begins with the key
   (after blanks and tabs) and a blank or "=" is replaced; without such a line the new line is
   appended. Returns 0 or 1. Prints nothing. */
KX_EXPORT int saveSysctlParam(const char* path, int64_t value);

/* As replacePortConfLine, for lines that begin with the first keyLength characters of key and a
   blank or "=". Prints nothing. */
KX_EXPORT int replaceSysctlLine(
    const char* file, const char* key, const char* newLine, int keyLength);

KX_END_DECLS

#endif
