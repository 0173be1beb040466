/* Visibility and linkage of the exported names, and the maker's PCI vendor id. */
#ifndef KXLINHW_EXPORT_H
#define KXLINHW_EXPORT_H

#include <stddef.h>
#include <stdint.h>

/* Names with this attribute are part of the interface; all other names are hidden. */
#define KX_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define KX_BEGIN_DECLS extern "C" {
#define KX_END_DECLS }
#else
#define KX_BEGIN_DECLS
#define KX_END_DECLS
#endif

/* The PCI vendor id of the adapters that the library manages. A build for another id (cmake
   -DKXLINHW_PCI_VENDOR_ID=0x1234) passes it on to every user of these headers. */
#ifndef KXLINHW_PCI_VENDOR_ID
#define KXLINHW_PCI_VENDOR_ID 0x4B58
#endif
#define KESTRIX_PCI_VENDOR_ID KXLINHW_PCI_VENDOR_ID

#endif
