/* Adapters on the PCI bus, and the two ways to access one: its register window and its
   configuration space.

   The first argument of every function is the adapter's index in the table that scan_hbas fills.
   The process has one bus scan and one open window. An index without an adapter is refused (-22),
   reads 0 or has no effect.

   Messages go to standard error, "NO PCI devices" to standard output. */
#ifndef KXLINHW_ADAPTER_H
#define KXLINHW_ADAPTER_H

#include <kxlinhw/export.h>

struct pci_access;
struct pci_dev;

KX_BEGIN_DECLS

enum {
    KX_MOST_ADAPTERS = 20,
    KX_ADAPTER_INVALID = -22, /* connecting or finding VPD failed; the message says why */
    KX_VPD_CAPABILITY = 3,    /* PCI capability id of Vital Product Data */
    KX_VF_RECORD_SIZE = 3     /* bytes of a record of scan_vfhbas */
};

/* The result of the last scan. The devices belong to the libpci handle, which the next scan or
   cleanup_and_exit frees. */
extern KX_EXPORT struct pci_access* pci_access_p; /* null before the first scan */
extern KX_EXPORT struct pci_dev* kestrix_hbas[KX_MOST_ADAPTERS];
extern KX_EXPORT uint8_t g_adapter_count; /* valid entries; set by the list builders */

/* The register window. A host that opens windows itself stores them here: its descriptor is closed
   with the window; the library does not check the bounds of its memory. The library closes a
   descriptor number only once: a host's descriptor with the number that the library closed last
   stays open, and the host closes it. */
extern KX_EXPORT int32_t memfd;         /* /dev/mem, as the last connect opened it: above 2; 0 at
                                           first. Keeps its value when the library has closed it. */
extern KX_EXPORT uint64_t mmapd_addr;   /* where the window begins; 0 when none is open */
extern KX_EXPORT uint8_t mmapd_adapter; /* whose window it is, or was last */
extern KX_EXPORT uint32_t mmapd_len;    /* its length in bytes, or that of the last one */

/* Scan all PCI buses and fill the table with the physical functions of the maker, in libpci's
   order: Q3 adapters (device ids 1 to 999) on function 0, all others on function 4 unless their id
   has bit 0x0800 or is 0xA007. Returns their number, at most 20; does not store it.
   Prints "NO PCI devices" when the bus is empty. */
KX_EXPORT uint8_t scan_hbas(void);

/* List the virtual functions: the maker's devices without a Q3 id, on any slot except 0.
   Empties the adapter table, g_adapter_count and both list heads; lists are not freed.
   *count: number of records; *records: 3 bytes each (bus, device, function) in one block that the
   caller frees with free(). Records are counted from the old g_adapter_count, and those before it
   are never written; at 64 the scan stops. Without any virtual function both are 0.
   Returns 0; 1 for an empty bus (prints "NO PCI devices") or null; 99 when memory ran out. On
   failure the outputs do not change. */
KX_EXPORT uint8_t scan_vfhbas(uint32_t* count, uint8_t** records);

/* 4 for device ids 0x4..., 5 for 0x5..., 3 for smaller ids; the id's first digit in general. */
KX_EXPORT int32_t get_chip_revision(uint8_t adapter);

/* Map the register window through /dev/mem: 4 KiB for Q3, 128 KiB for Q4 and Q5, the page that
   contains the adapter's serial-flash controller. Close it with disconnect_from_hba: a second
   connect leaves the first descriptor open. BARs above 4 GiB are cut to their low 32 bits.
   Returns 0 or -22, with one of
       "Sorry, cannot map the top 4K page\n"
       "Aligned addr+len exceeds top of address space\n"
       "open /dev/mem failed!"
       "mmap() failed: %s\n" (errno's text; the descriptor is closed, memfd keeps its number). */
KX_EXPORT int32_t connect_to_hba(uint8_t adapter);
KX_EXPORT int32_t connect_to_hba_Q4(uint8_t adapter);

/* Close the window and its descriptor. The mapping stays in the process. */
KX_EXPORT void disconnect_from_hba(uint8_t adapter);

/* Read or write the register at a byte offset from the window's start, as one 32-bit access. Reads
   return 0 for any adapter except mmapd_adapter, and outside the window that a connect opened.
   q3_write_reg ignores other adapters; q4_write_reg writes to the open window for any adapter. */
KX_EXPORT uint32_t q4_read_reg(uint8_t adapter, uint32_t offset);
KX_EXPORT void q4_write_reg(uint8_t adapter, uint32_t offset, uint32_t value);
KX_EXPORT int32_t q3_read_reg(uint8_t adapter, uint32_t offset);
KX_EXPORT void q3_write_reg(uint8_t adapter, uint32_t offset, uint32_t value);

/* One 32-bit load or store at an address of the process. The library makes every register access
   through these three functions; a host may replace them. */
KX_EXPORT uint32_t readl(uint64_t address);
KX_EXPORT void writel(uint32_t value, uint64_t address);    /* Q3 */
KX_EXPORT void writel_Q4(uint32_t value, uint64_t address); /* Q4 and Q5 */

/* Read or write a dword of PCI configuration space. Offsets that libpci refuses (odd ones, those
   past the end) read as all ones, and are not written. */
KX_EXPORT void pci_config_read(uint8_t adapter, uint32_t offset, uint32_t* out);
KX_EXPORT void pci_config_write(uint8_t adapter, uint32_t offset, uint32_t value);

/* The offset of a capability in configuration space, or 0 with the message "ERROR: Capability %02x
   not found.\n". The search ends also in a list that forms a circle. */
KX_EXPORT uint32_t find_pci_capability(uint8_t adapter, uint8_t id);

/* Read a dword of the serial EEPROM through the VPD capability at offset cap. Bits 2 to 12 of
   address count. Waits for the adapter without a limit. Reads all ones when the request cannot be
   written; does nothing when cap is 0. */
KX_EXPORT void vpd_read_dword(uint8_t adapter, uint32_t cap, uint32_t address, uint32_t* out);

/* Does the VPD data register keep a written value? 0 yes, 1 no, with the message "ERROR: PCI
   configuration write/read check failed.\n". */
KX_EXPORT int32_t vpd_rw_check(uint8_t adapter, uint32_t cap);

/* Find the VPD capability and check it. *cap: its offset, 0 when there is none; stored even when
   the check fails. Returns 0 or -22. */
KX_EXPORT int32_t vpd_setup(uint8_t adapter, uint32_t* cap);

/* Sleep; with 0 it returns at once, without a system call. */
KX_EXPORT void msleep(uint32_t ms);

KX_END_DECLS

#endif
