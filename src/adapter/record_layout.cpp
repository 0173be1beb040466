// Offsets and sizes of the records that flash and agents share. When a check fails, correct the
// record, not the number.
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/boot_config.h>
#include <kxlinhw/q3_boot.h>

#include <cstddef>

namespace {

// NOLINTBEGIN(bugprone-sizeof-expression): the sizes of the pointers themselves are intended

template <class Record, class Field>
constexpr bool at(std::size_t actual, std::size_t expected, std::size_t width) {
    return actual == expected && sizeof(Field) == width && alignof(Record) == 1;
}

#define KX_FIELD(record, field, offset, width)                                       \
    static_assert(                                                                   \
        at<record, decltype(record::field)>(offsetof(record, field), offset, width), \
        #record "::" #field " must be at " #offset " and be " #width " bytes wide")

KX_FIELD(Q4BootConfig, signature, 0, 4);
KX_FIELD(Q4BootConfig, byte10, 10, 1);
KX_FIELD(Q4BootConfig, bios_version, 12, 4);
KX_FIELD(Q4BootConfig, port16, 16, 4);
KX_FIELD(Q4BootConfig, byte56, 56, 1);
KX_FIELD(Q4BootConfig, byte57, 57, 1);
KX_FIELD(Q4BootConfig, byte58, 58, 1);
KX_FIELD(Q4BootConfig, byte59, 59, 1);
KX_FIELD(Q4BootConfig, port60, 60, 4);
KX_FIELD(Q4BootConfig, bytes64, 64, 128);
KX_FIELD(Q4BootConfig, port192, 192, 4);
KX_FIELD(Q4BootConfig, word196, 196, 2);
KX_FIELD(Q4BootConfig, word198, 198, 2);
KX_FIELD(Q4BootConfig, word200, 200, 2);
KX_FIELD(Q4BootConfig, word202, 202, 2);
KX_FIELD(Q4BootConfig, word204, 204, 2);
KX_FIELD(Q4BootConfig, word206, 206, 2);
KX_FIELD(Q4BootConfig, iscsi_port, 208, 2);
KX_FIELD(Q4BootConfig, byte210, 210, 1);
KX_FIELD(Q4BootConfig, byte211, 211, 1);
KX_FIELD(Q4BootConfig, byte213, 213, 1);
KX_FIELD(Q4BootConfig, byte214, 214, 1);
KX_FIELD(Q4BootConfig, byte215, 215, 1);
KX_FIELD(Q4BootConfig, byte216, 216, 1);
KX_FIELD(Q4BootConfig, byte220, 220, 1);
KX_FIELD(Q4BootConfig, port240, 240, 16);
KX_FIELD(Q4BootConfig, port280, 280, 4);
KX_FIELD(Q4BootConfig, initiator_name, 304, 42);
static_assert(sizeof(Q4BootConfig) == 1664);

KX_FIELD(AdapterRecord, adapter, 0, 1);
KX_FIELD(AdapterRecord, domain, 1, 2);
KX_FIELD(AdapterRecord, bus, 3, 1);
KX_FIELD(AdapterRecord, device, 4, 1);
KX_FIELD(AdapterRecord, function, 5, 1);
KX_FIELD(AdapterRecord, vendor_id, 6, 2);
KX_FIELD(AdapterRecord, device_id, 8, 2);
KX_FIELD(AdapterRecord, product_name, 10, 16);
KX_FIELD(AdapterRecord, serial_number, 26, 16);
KX_FIELD(AdapterRecord, factory_mac, 42, 6);
KX_FIELD(AdapterRecord, port_count, 48, 1);
KX_FIELD(AdapterRecord, q3_settings, 49, 444);
KX_FIELD(AdapterRecord, q3_option_rom, 493, 16);
KX_FIELD(AdapterRecord, q3_vpd, 509, 512);
KX_FIELD(AdapterRecord, q4_vpd, 1021, 685);
KX_FIELD(AdapterRecord, serial_configuration, 1706, 4096);
KX_FIELD(AdapterRecord, reserved5802, 5802, 32);
KX_FIELD(AdapterRecord, chip_class, 5834, 1);
KX_FIELD(AdapterRecord, option_rom_valid, 5835, 1);
KX_FIELD(AdapterRecord, default_config_version, 5836, 1);
KX_FIELD(AdapterRecord, boot_config, 5837, 1664);
KX_FIELD(AdapterRecord, next, 7501, 8);
static_assert(sizeof(AdapterRecord) == 7509);

KX_FIELD(AdapterInfoRecord, adapter, 0, 1);
KX_FIELD(AdapterInfoRecord, domain, 1, 2);
KX_FIELD(AdapterInfoRecord, bus, 3, 1);
KX_FIELD(AdapterInfoRecord, device, 4, 1);
KX_FIELD(AdapterInfoRecord, function, 5, 1);
KX_FIELD(AdapterInfoRecord, vendor_id, 6, 2);
KX_FIELD(AdapterInfoRecord, device_id, 8, 2);
KX_FIELD(AdapterInfoRecord, reserved10, 10, 1);
KX_FIELD(AdapterInfoRecord, chip_class, 11, 1);
KX_FIELD(AdapterInfoRecord, default_config_version, 12, 1);
KX_FIELD(AdapterInfoRecord, option_rom_valid, 13, 1);
KX_FIELD(AdapterInfoRecord, product_name, 14, 32);
KX_FIELD(AdapterInfoRecord, serial_number, 46, 32);
KX_FIELD(AdapterInfoRecord, part_number, 78, 32);
KX_FIELD(AdapterInfoRecord, mac, 110, 12);
KX_FIELD(AdapterInfoRecord, v0, 122, 8);
KX_FIELD(AdapterInfoRecord, v5, 130, 8);
KX_FIELD(AdapterInfoRecord, boot.boot_config, 138, 1664);
KX_FIELD(AdapterInfoRecord, boot.q3.settings, 138, 444);
KX_FIELD(AdapterInfoRecord, boot.q3.option_rom, 582, 16);
KX_FIELD(AdapterInfoRecord, next, 1802, 8);
static_assert(sizeof(AdapterInfoRecord) == 1810);

KX_FIELD(Q3Settings, signature, 0, 4);
KX_FIELD(Q3Settings, byte4, 4, 1);
KX_FIELD(Q3Settings, length, 5, 2);
KX_FIELD(Q3Settings, data, 7, 441);
static_assert(sizeof(Q3Settings) == 448);

KX_FIELD(Q3OptionRomVersion, signature, 0, 4);
KX_FIELD(Q3OptionRomVersion, version, 4, 2);
KX_FIELD(Q3OptionRomVersion, build, 6, 1);
KX_FIELD(Q3OptionRomVersion, reserved7, 7, 9);
static_assert(sizeof(Q3OptionRomVersion) == KX_Q3_OPTION_ROM_SIZE);

#undef KX_FIELD

// NOLINTEND(bugprone-sizeof-expression)

}  // namespace
