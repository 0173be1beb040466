/* The serial flash of an adapter, driven through two registers of its flash controller: a data
   register and an operation register that starts a transfer of 1 to 4 bytes.

   The register window must be open (connect_to_hba_Q4, connect_to_hba). Statuses are KxFlashStatus;
   0 is success. Messages of the q4_ functions go to standard output, those of the q3_ functions to
   standard error. The functions retry nothing. After an error, sectors may stay partly erased and
   pages partly written.

   Words and data may be at any address. Null words or data give -22 before anything is sent. */
#ifndef KXLINHW_FLASH_H
#define KXLINHW_FLASH_H

#include <kxlinhw/export.h>

KX_BEGIN_DECLS

enum KxFlashStatus {
    KX_FLASH_MISMATCH = -5,     /* Q4: a page does not read back as it was written */
    KX_FLASH_TIMED_OUT = -11,   /* the flash or the controller was not ready in time */
    KX_FLASH_BUSY = -16,        /* the controller is running a transfer */
    KX_FLASH_INVALID = -22,     /* wrong byte count, address or size, or an unknown flash */
    KX_FLASH_BAD_SIZE = -27,    /* a boot image with a wrong size or address */
    KX_Q3_FLASH_READ = 247,     /* Q3: a read transfer did not complete */
    KX_Q3_FLASH_TIMED_OUT = 248 /* Q3: a transfer did not complete, or a download failed */
};

enum {
    KX_FLASH_PAGE = 256,           /* bytes that one program command can write */
    KX_Q3_FLASH_SIZE = 512 * 1024, /* of every Q3 adapter */
    KX_FLASH_MANUFACTURER = 0x20   /* first byte of the identification */
};

/* Poll a register until (value & mask) is non-zero (polarity 1) or zero (polarity 0), at most
   attempts times, delay_us microseconds apart. *value, unless null, receives the register's last
   value on success. 0 attempts mean 2^32.
   q4: 0 or -11. q3: 0 or 248, then with the message
   "ERROR: timed out waiting for serial flash to complete command!\n". */
KX_EXPORT int32_t q4_wait_op_done_val(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us,
    uint32_t* value);
KX_EXPORT int32_t q4_wait_op_done(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us);
KX_EXPORT int32_t q3_wait_op_done_val(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us,
    uint32_t* value);
KX_EXPORT int32_t q3_wait_op_done(
    uint8_t adapter, uint32_t reg, uint32_t mask, int polarity, int attempts, int delay_us);

/* One transfer of 1 to 4 bytes, the least significant byte of the value first. cont: keep the flash
   selected, so that the next transfer continues the command. lock: keep the controller reserved for
   this host. *value is stored on success only.
   q4: 0, -22 byte count, -16 busy, -11 not complete after 10 polls 5 us apart. Silent.
   q3: 0, -22 with "ERROR: wrong byte count of %d to write!\n" (on reads too), -16 with "ERROR:
   adapter serial flash controller busy!\n"; when not complete after 5 polls 10 us apart, 248 with
   "ERROR: write to serial flash failed!\n" or 247 with "ERROR: could not read from serial
   flash!\n", after the message of the poll. */
KX_EXPORT int32_t
q4_sf1_write(uint8_t adapter, uint32_t byte_count, int cont, int lock, uint32_t value);
KX_EXPORT int32_t
q4_sf1_read(uint8_t adapter, uint32_t byte_count, int cont, int lock, uint32_t* value);
KX_EXPORT int32_t q3_sf1_write(uint8_t adapter, uint32_t byte_count, int cont, uint32_t value);
KX_EXPORT int32_t q3_sf1_read(uint8_t adapter, uint32_t byte_count, int cont, uint32_t* value);

/* Wait until the flash has finished writing: read its status at most attempts times, delay_ms
   milliseconds apart. 0, -11, or the status of a failing transfer. */
KX_EXPORT int32_t q4_flash_wait_op(uint8_t adapter, int attempts, int delay_ms);
KX_EXPORT int32_t q3_flash_wait_op(uint8_t adapter, int attempts, int delay_ms);

/* Identify the flash. get_flash_params: its size in bytes, 1 << capacity code (the shift counts
   modulo 32). get_flash_params_sf_nsec: its number of sectors; -22 for a capacity code other than
   20 to 24. Both: -22 for a manufacturer other than KX_FLASH_MANUFACTURER, or the status of a
   failing transfer. Silent. */
KX_EXPORT int32_t get_flash_params(uint8_t adapter);
KX_EXPORT int32_t get_flash_params_sf_nsec(uint8_t adapter);

/* Erase the sectors first to last, which begin 64 KiB apart; none when first is above last. Waits
   at most 14 (Q3: 5) times 500 ms for each. Stops at the first error.
   q4: prints "erase of flash sector %d failed, error %d\n".
   q3: silent; a negative sector ends it with 0. */
KX_EXPORT int32_t q4_flash_erase_sectors(uint8_t adapter, int first, int last);
KX_EXPORT int32_t q3_flash_erase_sectors(uint8_t adapter, int first, int last);

/* Erase the sectors that contain size bytes from start: the first sector is counted in units of 64
   KiB, and the number of sectors in sectors of the flash. Prints "sf_size %d sf_nsec %d\n".
   Returns 0 or -22, with "get flash params sf_size failed", "get flash params sf_nsec failed", or
   "q4_erase failed" and "Error: q4_erase sizeof conf data %d\n". */
KX_EXPORT int32_t q4_erase(uint8_t adapter, uint32_t start, uint32_t size);

/* Read nwords 32-bit words from address, a multiple of 4. q4 with byte_oriented: the bytes of each
   word are reversed. The words may be partly filled after an error.
   q4: 0, -22 outside the flash or for an unknown flash, or the status of a failing transfer; on an
   error the controller stays reserved. Silent.
   q3: the same, with "ERROR: invalid address, outside of flash size!\n", "ERROR: could not
   write/read from serial flash!\n" or "ERROR: could not read from serial flash!\n". */
KX_EXPORT int32_t q4_read_flash(
    uint8_t adapter, uint32_t address, uint32_t nwords, uint32_t* words, int byte_oriented);
KX_EXPORT int32_t
q3_read_flash(uint8_t adapter, uint32_t address, uint32_t nwords, uint32_t* words);

/* Program n bytes within one page of 256. Programming only changes bits from 1 to 0, so erase
   first.
   q4: reads the page back and compares; byte_oriented as in q4_read_flash. Without it, n must be a
   multiple of 4; otherwise zeros are sent for the last word, which the comparison reports as a
   mismatch. Returns 0, -22 with "get_flash_params failed" or "invalid sf_size", -5 with "failed to
   correctly write the flash page at %#x\n", or the status of what failed with "q4_sf1_write
   failed", "q4_flash_wait_op failed" or "read flash failed during verify".
   q3: does not read back. 0, -22 with "ERROR: write offset outside of flash size: 0x%x\n" (the end
   of the data within the page), or the status of what failed. */
KX_EXPORT int32_t q4_write_flash(
    uint8_t adapter, uint32_t address, uint32_t n, const uint8_t* data, int byte_oriented);
KX_EXPORT int32_t
q3_write_flash(uint8_t adapter, uint32_t address, uint32_t n, const uint8_t* data);

KX_END_DECLS

#endif
