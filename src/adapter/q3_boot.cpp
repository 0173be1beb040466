// The settings block and the boot option ROM of Q3 adapters: erasing and writing. Each exported
// function opens the register window itself.
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/q3_boot.h>

#include <algorithm>
#include <cstdio>
#include <span>

#include "adapter/flash_layout.hpp"
#include "adapter/register_window.hpp"

namespace kx::adapter {
namespace {

int32_t write_pages(uint8_t adapter, uint32_t start, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const std::size_t length = std::min<std::size_t>(bytes.size(), KX_FLASH_PAGE);
        const int32_t status =
            q3_write_flash(adapter, start, static_cast<uint32_t>(length), bytes.data());
        if (status != 0) {
            return status;
        }
        start += static_cast<uint32_t>(length);
        bytes = bytes.subspan(length);
    }
    return 0;
}

void correct_header(Q3Settings& settings) {
    kQ3SettingsMark.copy(settings.signature, sizeof settings.signature);
    settings.byte4 = settings.byte4 == 0 ? uint8_t{1} : settings.byte4;
    settings.length = KX_Q3_SETTINGS_SIZE;
}

bool is_boot_image_size(uint32_t size) {
    if (size < KX_Q3_BOOT_IMAGE_MIN || size > KX_Q3_BOOT_IMAGE_MAX) {
        std::fputs("ERROR: Boot image has wrong size, probably corrupted!\n", stderr);
        return false;
    }
    return true;
}

bool is_boot_image(std::span<const uint8_t> image) {
    if (!has_rom_mark(std::as_bytes(image))) {
        std::fputs("ERROR: Boot image missing signature, probably corrupted!\n", stderr);
        return false;
    }
    return true;
}

int32_t write_boot_image(uint8_t adapter, std::span<const uint8_t> image) {
    const auto last_sector = static_cast<int>((image.size() - 1) >> kSectorShift);
    const int32_t status = q3_flash_erase_sectors(adapter, 0, last_sector);
    return status == 0 ? write_pages(adapter, kRomStart, image) : status;
}

}  // namespace
}  // namespace kx::adapter

extern "C" {

int32_t erase_hba_settings(uint8_t adapter) {
    if (const int32_t status = kx::adapter::ensure_q3_window(adapter); status != 0) {
        return status;
    }
    return q3_flash_erase_sectors(
        adapter, kx::adapter::kQ3SettingsSector, kx::adapter::kQ3SettingsSector);
}

int32_t save_hba_settings(uint8_t adapter, void* block) {
    if (block == nullptr) {
        return KX_FLASH_INVALID;
    }
    if (const int32_t status = erase_hba_settings(adapter); status != 0) {
        return status;
    }
    kx::adapter::correct_header(*static_cast<Q3Settings*>(block));
    if (const int32_t status = kx::adapter::ensure_q3_window(adapter); status != 0) {
        return status;
    }
    const int32_t status = kx::adapter::write_pages(
        adapter, kx::adapter::kQ3SettingsStart,
        {static_cast<const uint8_t*>(block), sizeof(Q3Settings)});
    if (status != 0) {
        std::fprintf(stderr, "ERROR: Saving settings failed, error %d\n", status);
    }
    disconnect_from_hba(adapter);
    return status;
}

int32_t erase_option_rom(uint8_t adapter) {
    if (const int32_t status = kx::adapter::ensure_q3_window(adapter); status != 0) {
        return status;
    }
    const int32_t status = q3_flash_erase_sectors(adapter, 0, kx::adapter::kQ3LastRomSector);
    std::puts(status == 0 ? "done." : "failed!");
    disconnect_from_hba(adapter);
    return status;
}

int32_t q3_load_boot(uint8_t adapter, const uint8_t* image, uint32_t size) {
    if (!kx::adapter::is_boot_image_size(size)) {
        return KX_Q3_BAD_IMAGE;
    }
    if (image == nullptr) {
        return KX_FLASH_INVALID;
    }
    const std::span<const uint8_t> bytes(image, size);
    if (!kx::adapter::is_boot_image(bytes)) {
        return KX_Q3_BAD_IMAGE;
    }
    if (const int32_t status = kx::adapter::ensure_q3_window(adapter); status != 0) {
        return status;
    }
    const bool written = kx::adapter::write_boot_image(adapter, bytes) == 0;
    if (!written) {
        std::fprintf(
            stderr, "ERROR: Boot image download failed, error %d\n",
            static_cast<int>(KX_Q3_FLASH_TIMED_OUT));
    }
    disconnect_from_hba(adapter);
    return written ? 0 : static_cast<int32_t>(KX_Q3_FLASH_TIMED_OUT);
}

}  // extern "C"
