/* Status codes, their texts, the detail text of set operations, and the library's version. */
#ifndef KXLINHW_STATUS_H
#define KXLINHW_STATUS_H

#include <kxlinhw/export.h>

KX_BEGIN_DECLS

/* The statuses that the flat functions return. "No text": ErrStr has no text for the status. */
enum KxStatus {
    KX_SUCCESS = 0,
    KX_UNKNOWN_ERROR = 1,         /* the kernel refused a socket, request, file or directory */
    KX_NO_CARDS = 60,             /* the PCI scan found no adapter of the maker */
    KX_INVALID_SET_VALUE = 61,    /* a setting is outside its range */
    KX_DRIVER_NOT_LOADED = 62,    /* no Ethernet driver loaded, or no known module installed */
    KX_RESOURCE_UNAVAILABLE = 63, /* /proc/modules or an offload parameter file is missing */
    KX_INVALID_PORT = 64,         /* the card has no port with that instance */
    KX_NO_SUCH_DEVICE = 65,       /* no card at that PCI bus location */
    KX_NO_MEMORY = 66,            /* a record could not be allocated */
    KX_ZFAB3_NOT_LOADED = 67,
    KX_Q3_TOM_NOT_LOADED = 68,
    KX_NO_SUCH_STAT = 69,          /* no counter with that name */
    KX_SET_FAILED = 70,            /* no text: errStr has the details */
    KX_NIC_ONLY = 71,              /* no statistics, or no offload device for the interface */
    KX_NO_PORT = 72,               /* the card has no port */
    KX_OUTPUT_ALLOC_FAILED = 273,  /* no text: no memory for the management buffer */
    KX_UNSUPPORTED_DRIVER = 301,   /* this operation does not support the module */
    KX_INVALID_PARAMETER = 317,    /* a null argument, or the module lacks a parameter */
    KX_OUTPUT_REALLOC_FAILED = 417 /* no text: no memory to enlarge the management buffer */
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

/* Why the last set operation failed: messages, each of which ends in "; ". A set operation clears
   the text when it has found its target, and then appends messages. GetErrStr(70) returns it. */
extern KX_EXPORT char errStr[KX_DETAIL_SIZE];

/* Not used: the library neither reads nor writes it. It is 0. */
extern KX_EXPORT uint32_t g_err;

/* The text of a status. The library owns the result, which is valid while the library is loaded.
   For code 70 it is errStr itself, terminated at its last byte (index 1023); the text is empty when
   there are no details. For a code without a text (273, 417, any unknown code) the result is null.
   Prints nothing. */
KX_EXPORT const char* GetErrStr(int32_t code);

/* The library's name and version.
   buffer: at least 24 bytes. Bytes 0 to 10 receive "libkxlinhw" and its NUL; bytes 20 to 23 receive
   the version 0x00060002 (major in the high half, minor in the low half); bytes 11 to 19 do not
   change. Returns 0; 317 for a null buffer. Prints nothing. */
KX_EXPORT uint32_t GetLibVersion(void* buffer);

KX_END_DECLS

#endif
