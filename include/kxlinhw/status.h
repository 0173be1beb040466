/* Status codes, their texts, the detail text of set operations, and the library's version. */
#ifndef KXLINHW_STATUS_H
#define KXLINHW_STATUS_H

#include <kxlinhw/export.h>

KX_BEGIN_DECLS

/* What the flat functions return. Codes without a text in ErrStr are marked "no text". */
enum KxStatus {
    KX_SUCCESS = 0,
    KX_UNKNOWN_ERROR = 1,         /* a socket, ioctl, file or directory refused */
    KX_NO_CARDS = 60,             /* the PCI scan found no adapter of the maker */
    KX_INVALID_SET_VALUE = 61,    /* a setting is out of its range */
    KX_DRIVER_NOT_LOADED = 62,    /* no Ethernet driver loaded, or no known module installed */
    KX_RESOURCE_UNAVAILABLE = 63, /* /proc/modules or an offload parameter file is missing */
    KX_INVALID_PORT = 64,         /* the card has no port of that instance */
    KX_NO_SUCH_DEVICE = 65,       /* no card at that PCI bus location */
    KX_NO_MEMORY = 66,            /* a record could not be allocated */
    KX_ZFAB3_NOT_LOADED = 67,
    KX_Q3_TOM_NOT_LOADED = 68,
    KX_NO_SUCH_STAT = 69,          /* no statistic of that name */
    KX_SET_FAILED = 70,            /* no text: the detail stands in errStr */
    KX_NIC_ONLY = 71,              /* no statistics, or no offload device for the interface */
    KX_NO_PORT = 72,               /* the card has no port */
    KX_OUTPUT_ALLOC_FAILED = 273,  /* no text: management buffer could not be allocated */
    KX_UNSUPPORTED_DRIVER = 301,   /* not a module that this operation knows */
    KX_INVALID_PARAMETER = 317,    /* a null argument, or a parameter the module lacks */
    KX_OUTPUT_REALLOC_FAILED = 417 /* no text: management buffer could not be grown */
};

#pragma pack(push, 1)
/* One row of the table of status texts. */
typedef struct ErrStrEntry {
    uint32_t code;    /* a KxStatus; 0xFFFFFFFF ends the table */
    const char* text; /* null in the row that ends the table */
} ErrStrEntry;
#pragma pack(pop)

enum { KX_ERRSTR_ROWS = 17, KX_DETAIL_SIZE = 1024 };

/* The status texts in search order; not sorted by code. Read only. */
extern KX_EXPORT const ErrStrEntry ErrStr[KX_ERRSTR_ROWS];

/* Why the last set operation failed: messages, each ending in "; ". Set operations clear it once
   they have found their target, then append. Fetch it with GetErrStr(70). */
extern KX_EXPORT char errStr[KX_DETAIL_SIZE];

/* Zero; neither read nor written by the library. */
extern KX_EXPORT uint32_t g_err;

/* The text of a status. The result is owned by the library and lives as long as it is loaded.
   code 70: errStr itself, terminated at its last byte (index 1023); an empty text when there is no
   detail. A code without text (273, 417, anything unknown): null. Prints nothing. */
KX_EXPORT const char* GetErrStr(int32_t code);

/* The library's name and version.
   buffer: at least 24 bytes. Bytes 0 to 10 receive "libkxlinhw" and its NUL; bytes 20 to 23 the
   version 0x00060002 (major in the high half, minor in the low half); bytes 11 to 19 stay as they
   were. Returns 0; 317 for a null buffer. Prints nothing. */
KX_EXPORT uint32_t GetLibVersion(void* buffer);

KX_END_DECLS

#endif
