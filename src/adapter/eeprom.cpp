// The serial EEPROM of an adapter as an image: the parts in use, with each dword at its address.
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/vpd.h>

#include <cstdio>
#include <cstring>

#include "support/standard_streams.hpp"

namespace kx::adapter {
namespace {

struct Part {
    uint32_t start;
    uint32_t length;
};

struct EepromLayout {
    Part vpd;
    Part serial_configuration;
    uint32_t delay_ms;  // before each dword
};

constexpr EepromLayout kQ4Eeprom{{0x400, KX_VPD_READ_SIZE}, {0x7C00, KX_Q4_SERIAL_CONFIG_SIZE}, 1};
constexpr EepromLayout kQ3Eeprom{{0xC00, KX_VPD_READ_SIZE}, {0x1000, KX_SERIAL_CONFIG_SIZE}, 0};

static_assert(kQ4Eeprom.serial_configuration.start + KX_Q4_SERIAL_CONFIG_SIZE == KX_Q4_EEPROM_SIZE);
static_assert(kQ3Eeprom.serial_configuration.start + KX_SERIAL_CONFIG_SIZE == KX_Q3_EEPROM_SIZE);

void read_part(uint8_t adapter, uint32_t cap, const Part& part, uint32_t delay_ms, char* image) {
    for (uint32_t address = part.start; address < part.start + part.length; address += 4) {
        if (delay_ms != 0) {
            msleep(delay_ms);
        }
        uint32_t dword = 0;
        vpd_read_dword(adapter, cap, address, &dword);
        std::memcpy(image + address, &dword, sizeof dword);
    }
}

void read_image(uint8_t adapter, uint32_t cap, const EepromLayout& layout, void* image) {
    if (image == nullptr) {
        return;
    }
    if (cap != 0) {
        const StandardStreamGuard streams;  // one for all dwords
        auto* const bytes = static_cast<char*>(image);
        read_part(adapter, cap, layout.vpd, layout.delay_ms, bytes);
        read_part(adapter, cap, layout.serial_configuration, layout.delay_ms, bytes);
    }
    std::putchar('\n');
}

void copy_part(const Part& part, const void* image, void* out) {
    if (image != nullptr && out != nullptr) {
        std::memcpy(out, static_cast<const char*>(image) + part.start, part.length);
    }
}

}  // namespace
}  // namespace kx::adapter

extern "C" {

void eeprom_rd_all_Q4(uint8_t adapter, uint32_t cap, void* eeprom) {
    kx::adapter::read_image(adapter, cap, kx::adapter::kQ4Eeprom, eeprom);
}

void eeprom_rd_all_Q3(uint8_t adapter, uint32_t cap, void* eeprom) {
    kx::adapter::read_image(adapter, cap, kx::adapter::kQ3Eeprom, eeprom);
}

void eeprom2vpd_Q4(const void* eeprom, void* vpd) {
    kx::adapter::copy_part(kx::adapter::kQ4Eeprom.vpd, eeprom, vpd);
}

void eeprom2vpd_Q3(const void* eeprom, void* vpd) {
    kx::adapter::copy_part(kx::adapter::kQ3Eeprom.vpd, eeprom, vpd);
}

void eeprom2sercfg_Q4(const void* eeprom, void* serial_configuration) {
    kx::adapter::copy_part(
        kx::adapter::kQ4Eeprom.serial_configuration, eeprom, serial_configuration);
}

void eeprom2sercfg_Q3(const void* eeprom, void* serial_configuration) {
    kx::adapter::copy_part(
        kx::adapter::kQ3Eeprom.serial_configuration, eeprom, serial_configuration);
}

void get_Q4(uint8_t adapter, uint32_t cap, void* eeprom, void* vpd, void* serial_configuration) {
    eeprom_rd_all_Q4(adapter, cap, eeprom);
    eeprom2vpd_Q4(eeprom, vpd);
    eeprom2sercfg_Q4(eeprom, serial_configuration);
    vpd_init_Q4(vpd);
    vpd_chksum_Q4(vpd);
}

void get_Q3(uint8_t adapter, uint32_t cap, void* eeprom, void* vpd, void* serial_configuration) {
    eeprom_rd_all_Q3(adapter, cap, eeprom);
    eeprom2vpd_Q3(eeprom, vpd);
    eeprom2sercfg_Q3(eeprom, serial_configuration);
    vpd_init_Q3(vpd);
    vpd_chksum_Q3(vpd);
}

}  // extern "C"
