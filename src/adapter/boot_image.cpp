// The boot option ROM in Q4 and Q5 flash: its version, its signature, download, dump, erase.
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>

#include "adapter/flash_layout.hpp"
#include "adapter/q4_flash.hpp"

namespace kx::adapter {
namespace {

constexpr int kDumpBytes = 53760;
constexpr int kWordsInLine = 8;

constexpr std::size_t kVersionOffset = 16;
constexpr uint8_t kErasedByte = 0xFF;

constexpr uint32_t kBootVersion = 0x00060002;

// The first words of the option ROM.
using RomHead = std::array<uint32_t, KX_BOOT_DUMP_WORDS>;

int32_t read_rom_head(uint8_t adapter, RomHead& head) {
    return q4_read_flash(adapter, kRomStart, static_cast<uint32_t>(head.size()), head.data(), 0);
}

int32_t report_read_error() {
    std::printf("flash read error sizeof conf data %d\n", kDumpBytes);
    return KX_FLASH_INVALID;
}

void print_words(std::span<const uint32_t> words) {
    int column = 0;
    for (const uint32_t word : words) {
        if (column++ % kWordsInLine == 0) {
            std::putchar('\n');
        }
        std::printf(" %08x ", word);
    }
}

// Whole pages are programmed; the rest of the last page stays erased.
int32_t write_page(uint8_t adapter, uint32_t address, std::span<const uint8_t> rest) {
    std::array<uint8_t, KX_FLASH_PAGE> page;
    page.fill(kErasedByte);
    std::copy_n(rest.begin(), std::min(rest.size(), page.size()), page.begin());
    const int32_t status = q4_write_flash(adapter, address, KX_FLASH_PAGE, page.data(), 0);
    if (status != 0) {
        std::puts("q4_write_flash failed");
    }
    return status;
}

int32_t write_image(
    uint8_t adapter, uint32_t start, std::span<const uint8_t> image, int32_t sector_size) {
    const auto size = static_cast<uint32_t>(image.size());
    if (const int32_t status = erase_range(adapter, start, size, sector_size); status != 0) {
        std::puts("q4_flash_erase_sectors failed");
        return status;
    }
    for (uint32_t offset = KX_FLASH_PAGE; offset < size; offset += KX_FLASH_PAGE) {
        const int32_t status = write_page(adapter, start + offset, image.subspan(offset));
        if (status != 0) {
            return status;
        }
    }
    return write_page(adapter, start, image);  // the signature, after everything else
}

bool right_size(uint64_t start, uint32_t size) {
    if (size < KX_BOOT_IMAGE_MIN || size > KX_BOOT_IMAGE_MAX) {
        std::puts("boot image too small/large");
        return false;
    }
    if ((start + size) >> kSectorShift > kLastBootSector) {
        std::puts("boot image encroaching on firmware region");
        return false;
    }
    return true;
}

}  // namespace
}  // namespace kx::adapter

extern "C" {

uint32_t read_q4biosversion_from_boot(uint8_t adapter) {
    kx::adapter::RomHead head;
    if (kx::adapter::read_rom_head(adapter, head) != 0) {
        std::puts("Q4 Bios version read error from flash");
        return KX_BIOS_VERSION_UNKNOWN;
    }
    const uint32_t word = head[kx::adapter::kVersionOffset / sizeof(uint32_t)];
    std::array<uint8_t, sizeof word> version;
    std::memcpy(version.data(), &word, sizeof word);
    const auto& [major, minor, build, revision] = version;
    std::printf("Q4 Bios Version: %d.%d.%d.%d\n", major, minor, build, revision);
    return word;
}

int32_t Is_Valid_q4oprom_Present(uint8_t adapter) {
    kx::adapter::RomHead head;
    if (kx::adapter::read_rom_head(adapter, head) != 0) {
        return kx::adapter::report_read_error();
    }
    if (!kx::adapter::has_rom_mark(std::as_bytes(std::span(head)))) {
        std::puts("No Valid OPROM presented");
        return KX_FLASH_INVALID;
    }
    std::puts("Valid OPROM presented");
    return 0;
}

int32_t q4_erase_boot(uint8_t adapter) {
    const int32_t status = q4_erase(adapter, kx::adapter::kRomStart, kx::adapter::kRomRegion);
    if (status != 0) {
        std::puts("Error: q4_erase_boot failed");
    }
    return status;
}

int32_t q4_load_boot(uint8_t adapter, const uint8_t* image, uint32_t start_kb, uint32_t size) {
    int32_t sector_size = 0;
    if (kx::adapter::measure_flash(adapter, sector_size) != 0) {
        return KX_FLASH_INVALID;
    }
    const uint64_t start = uint64_t{start_kb} * 1024;
    if (!kx::adapter::right_size(start, size)) {
        return KX_FLASH_BAD_SIZE;
    }
    if (image == nullptr) {
        return KX_FLASH_INVALID;
    }
    const int32_t status =
        kx::adapter::write_image(adapter, static_cast<uint32_t>(start), {image, size}, sector_size);
    if (status != 0) {
        std::printf("boot image download failed, error %d\n", status);
    }
    return status;
}

// Each pass begins 256 bytes, not 256 words, after the previous one.
int32_t read_flash_for_boot(uint8_t adapter, uint32_t* words) {
    if (words == nullptr) {
        return KX_FLASH_INVALID;
    }
    constexpr uint32_t kWords = KX_BOOT_DUMP_WORDS;
    for (uint32_t pass = 0; pass < kx::adapter::kDumpBytes / kWords; ++pass) {
        if (q4_read_flash(adapter, pass * kWords, kWords, words, 0) != 0) {
            return kx::adapter::report_read_error();
        }
        kx::adapter::print_words({words, kWords});
    }
    return 0;
}

uint32_t GetBootLibVersion(void* out) {
    if (out == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    constexpr char kName[] = "libkxboot";
    auto* const bytes = static_cast<char*>(out);
    std::memcpy(bytes, kName, sizeof kName);
    std::memcpy(bytes + 20, &kx::adapter::kBootVersion, sizeof kx::adapter::kBootVersion);
    return KX_SUCCESS;
}

}  // extern "C"
