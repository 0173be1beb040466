/* The boot configuration record of Q4 and Q5 adapters: 1664 bytes of flash, read by the boot option
   ROM. Little-endian. The names of fields without a known meaning contain their offset; reserved
   fields are zero in a default record. */
#ifndef KXLINHW_BOOT_CONFIG_H
#define KXLINHW_BOOT_CONFIG_H

#include <kxlinhw/export.h>

enum { KX_BOOT_CONFIG_PORTS = 4 };

#pragma pack(push, 1)

typedef struct Q4BootConfig {
    char signature[4]; /* "CBIO", without a NUL */
    uint8_t reserved4[6];
    uint8_t byte10;
    uint8_t reserved11;
    uint8_t bios_version[4];              /* of the option ROM: major, minor, build, revision */
    uint8_t port16[KX_BOOT_CONFIG_PORTS]; /* a byte for each port */
    uint8_t reserved20[36];
    uint8_t byte56;
    uint8_t byte57;
    uint8_t byte58;
    uint8_t byte59;
    uint8_t port60[KX_BOOT_CONFIG_PORTS];
    uint8_t bytes64[128];
    uint8_t port192[KX_BOOT_CONFIG_PORTS];
    uint16_t word196;
    uint16_t word198;
    uint16_t word200;
    uint16_t word202;
    uint16_t word204;
    uint16_t word206;
    uint16_t iscsi_port;
    uint8_t byte210;
    uint8_t byte211;
    uint8_t reserved212;
    uint8_t byte213;
    uint8_t byte214;
    uint8_t byte215;
    uint8_t byte216;
    uint8_t reserved217[3];
    uint8_t byte220;
    uint8_t reserved221[19];
    uint32_t port240[KX_BOOT_CONFIG_PORTS];
    uint8_t reserved256[24];
    uint8_t port280[KX_BOOT_CONFIG_PORTS];
    uint8_t reserved284[20];
    char initiator_name[42]; /* iSCSI qualified name */
    uint8_t reserved346[1318];
} Q4BootConfig;

#pragma pack(pop)

#endif
