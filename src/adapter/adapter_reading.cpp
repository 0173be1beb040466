#include "adapter/adapter_reading.hpp"

#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>
#include <kxlinhw/vpd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "adapter/flash_layout.hpp"

namespace kx::adapter {
namespace {

constexpr uint32_t kQ3HeadWords = 7;

uint8_t digit(char character) {
    if (character >= '0' && character <= '9') {
        return static_cast<uint8_t>(character - '0');
    }
    if (character >= 'A' && character <= 'F') {
        return static_cast<uint8_t>(character - 'A' + 10);
    }
    if (character >= 'a' && character <= 'f') {
        return static_cast<uint8_t>(character - 'a' + 10);
    }
    return 0xFF;
}

bool holds_q3_option_rom(uint8_t adapter) {
    std::array<uint32_t, kQ3HeadWords> head{};
    if (q3_read_flash(adapter, 0, kQ3HeadWords, head.data()) != 0) {
        std::fputs("ERROR: Could not read data at start of Option ROM!\n", stderr);
        return false;
    }
    return has_rom_mark(std::as_bytes(std::span(head)));
}

void read_q3_settings(uint8_t adapter, std::span<uint8_t, KX_Q3_SETTINGS_SIZE> settings) {
    const int32_t status = q3_read_settings(adapter, settings.data());
    if (status != 0 || ByteReader(settings).text_up_to(kQ3SettingsMark.size()) != kQ3SettingsMark) {
        std::fill(settings.begin(), settings.end(), uint8_t{0});
    }
}

}  // namespace

KxChipClass chip_class_of(uint16_t device_id) {
    char text[8];
    std::snprintf(text, sizeof text, "%X", device_id);
    switch (text[0]) {
        case '5':
            return KX_CLASS_Q5;
        case '4':
            return KX_CLASS_Q4;
        default:
            return KX_CLASS_Q3;
    }
}

void put_value(std::span<char> field, std::string_view value) {
    std::copy_n(value.begin(), std::min(value.size(), field.size()), field.begin());
}

void decode_mac(std::span<uint8_t, 6> mac, std::string_view digits) {
    for (std::size_t i = 0; i < mac.size() && 2 * i + 1 < digits.size(); ++i) {
        mac[i] = static_cast<uint8_t>(digit(digits[2 * i]) * 16 + digit(digits[2 * i + 1]));
    }
}

void read_q5_values(uint8_t adapter, uint32_t cap, AdapterInfoRecord& record) {
    std::array<uint8_t, KX_Q4_EEPROM_SIZE> eeprom{};
    std::array<uint8_t, KX_VPD_READ_SIZE> vpd{};
    std::array<KxVpdEntry, KX_VPD_MOST_ENTRIES> entries{};
    uint32_t count = 0;
    eeprom_rd_all_Q4(adapter, cap, eeprom.data());
    eeprom2vpd_Q4(eeprom.data(), vpd.data());
    parse_vpd(vpd.data(), entries.data(), &count);
    copy_vpd_fields(entries.data(), count, &record);
}

void read_q3_boot(
    uint8_t adapter, std::span<uint8_t, KX_Q3_SETTINGS_SIZE> settings,
    std::span<uint8_t, KX_Q3_OPTION_ROM_SIZE> option_rom) {
    if (!holds_q3_option_rom(adapter)) {
        return;
    }
    if (q3_get_dm_signature(adapter, option_rom.data()) != 0) {
        std::memcpy(option_rom.data(), "$PXE", 4);
        get_pxe_oprom_version(adapter, option_rom.data());
    }
    read_q3_settings(adapter, settings);
}

void read_boot_config(uint8_t adapter, Q4BootConfig& config) {
    alignas(uint32_t) std::array<char, KX_BOOT_CONFIG_BUFFER> buffer;
    if (read_flash_for_config(adapter, buffer.data()) == 0) {
        std::memcpy(&config, buffer.data(), sizeof config);
    }
}

uint8_t option_rom_valid(uint8_t adapter) {
    return Is_Valid_q4oprom_Present(adapter) == 0 ? uint8_t{1} : uint8_t{0};
}

}  // namespace kx::adapter
