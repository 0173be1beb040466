// Reads the flash of a Q3 adapter: the settings, and the identification of the option ROM. The
// option ROM is untrusted: marks may be at its very end, and texts may have no NUL.
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/q3_boot.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "adapter/flash_layout.hpp"
#include "adapter/register_window.hpp"
#include "support/byte_reader.hpp"

namespace kx::adapter {
namespace {

constexpr uint32_t kHeadWords = 128;
constexpr std::size_t kHeadSize = kHeadWords * sizeof(uint32_t);

constexpr std::string_view kDmMark = "$DM$";
constexpr std::string_view kPxeMark = "PXE-2.0";
constexpr std::string_view kBiosMark = "BIOS";

// Distances from the PXE mark to the version text, without and with the BIOS mark.
constexpr std::size_t kVersionText = 8;
constexpr std::size_t kVersionTextBehindBios = 14;

// The first bytes of the option ROM.
struct Q3RomHead {
    std::array<uint32_t, kHeadWords> words;

    [[nodiscard]] std::span<const std::byte> bytes() const {
        return std::as_bytes(std::span(words));
    }

    // The position of a mark, or npos.
    [[nodiscard]] std::size_t find(std::string_view mark) const {
        return ByteReader(bytes()).text_up_to(kHeadSize).find(mark);
    }
};

// Opens the window when needed.
int32_t read_head(uint8_t adapter, Q3RomHead& head) {
    if (const int32_t status = ensure_q3_window(adapter); status != 0) {
        return status;
    }
    const int32_t status = q3_read_flash(adapter, kRomStart, kHeadWords, head.words.data());
    if (status != 0) {
        std::fputs("ERROR: Could not read data at start of Option ROM!\n", stderr);
        return status;
    }
    if (!has_rom_mark(head.bytes())) {
        std::fputs("ERROR: Could not find valid Option ROM!\n", stderr);
        return KX_FLASH_INVALID;
    }
    return 0;
}

struct VersionTokens {
    const char* major = nullptr;
    const char* minor = nullptr;
    const char* build = nullptr;
};

// Split the text in place at its dots; the third token is not used.
VersionTokens split_version(char* text) {
    char* rest = nullptr;
    VersionTokens tokens;
    tokens.major = strtok_r(text, ".", &rest);
    tokens.minor = strtok_r(nullptr, ".", &rest);
    static_cast<void>(strtok_r(nullptr, ".", &rest));
    tokens.build = strtok_r(nullptr, ".", &rest);
    return tokens;
}

// The version text with a NUL; empty when there is none.
using VersionText = std::array<char, kHeadSize + 1>;

VersionText find_version_text(const Q3RomHead& head) {
    VersionText text{};
    const std::size_t mark = head.find(kPxeMark);
    if (mark != std::string_view::npos) {
        ByteReader rom(head.bytes());
        const bool bios = rom.at(mark + kVersionText).text_up_to(kBiosMark.size()) == kBiosMark;
        const std::size_t place = mark + (bios ? kVersionTextBehindBios : kVersionText);
        rom.at(place).text_up_to(kHeadSize).copy(text.data(), kHeadSize);
    }
    return text;
}

unsigned number(const char* token) {
    return static_cast<unsigned>(std::strtol(token, nullptr, 10));
}

int32_t read_pxe_version(const Q3RomHead& head, Q3OptionRomVersion& version) {
    VersionText text = find_version_text(head);
    const VersionTokens tokens = split_version(text.data());
    if (tokens.build == nullptr) {
        return KX_FLASH_INVALID;
    }
    std::printf("maj %s min %s build %s\n", tokens.major, tokens.minor, tokens.build);
    version.version = static_cast<uint16_t>(number(tokens.major) << 8 | number(tokens.minor));
    std::printf("oprom_version %d\n", version.version);
    version.build = static_cast<uint8_t>(number(tokens.build) & 0xFF);
    std::memcpy(version.signature, "$PXE", sizeof version.signature);
    return 0;
}

}  // namespace
}  // namespace kx::adapter

extern "C" {

int32_t q3_read_settings(uint8_t adapter, void* out) {
    constexpr uint32_t kWords = KX_Q3_SETTINGS_SIZE / sizeof(uint32_t);
    if (const int32_t status = kx::adapter::ensure_q3_window(adapter); status != 0) {
        return status;
    }
    const int32_t status =
        q3_read_flash(adapter, kx::adapter::kQ3SettingsStart, kWords, static_cast<uint32_t*>(out));
    if (status != 0) {
        std::fputs("ERROR: Could not read settings data!\n", stderr);
        return KX_FLASH_INVALID;
    }
    return 0;
}

int32_t q3_get_dm_signature(uint8_t adapter, void* out) {
    if (out == nullptr) {
        return KX_FLASH_INVALID;
    }
    std::memset(out, 0, KX_Q3_OPTION_ROM_SIZE);
    kx::adapter::Q3RomHead head;
    if (const int32_t status = kx::adapter::read_head(adapter, head); status != 0) {
        return status;
    }
    const std::size_t mark = head.find(kx::adapter::kDmMark);
    if (mark == std::string_view::npos) {
        return KX_FLASH_INVALID;
    }
    kx::ByteReader(head.bytes())
        .at(mark)
        .text_up_to(KX_Q3_OPTION_ROM_SIZE)
        .copy(static_cast<char*>(out), KX_Q3_OPTION_ROM_SIZE);
    return 0;
}

int32_t get_pxe_oprom_version(uint8_t adapter, void* out) {
    std::puts("get_pxe_oprom_version");
    if (out == nullptr) {
        return KX_FLASH_INVALID;
    }
    std::memset(out, 0, KX_Q3_OPTION_ROM_SIZE);
    kx::adapter::Q3RomHead head;
    if (const int32_t status = kx::adapter::read_head(adapter, head); status != 0) {
        return status;
    }
    return kx::adapter::read_pxe_version(head, *static_cast<Q3OptionRomVersion*>(out));
}

}  // extern "C"
