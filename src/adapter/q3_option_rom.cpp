// Reads the flash of a Q3 adapter: the settings, and the identification of the option ROM. The
// option ROM is untrusted: marks may be at its very end, and texts may have no NUL.
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/q3_boot.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "adapter/register_window.hpp"

namespace kx::adapter {
namespace {

constexpr uint32_t kSettingsAddress = 0x30000;
constexpr uint32_t kHeadWords = 128;
constexpr std::size_t kHeadSize = kHeadWords * sizeof(uint32_t);

constexpr std::string_view kRomMark = "\x55\xAA";
constexpr std::string_view kDmMark = "$DM$";
constexpr std::string_view kPxeMark = "PXE-2.0";
constexpr std::string_view kBiosMark = "BIOS";

// Distances from the PXE mark to the version text, without and with the BIOS mark.
constexpr std::size_t kVersionText = 8;
constexpr std::size_t kVersionTextBehindBios = 14;

// The first bytes of the option ROM, followed by enough zeros for every function that reads on.
struct Q3RomHead {
    alignas(uint32_t) std::array<char, kHeadSize + KX_Q3_OPTION_ROM_SIZE + 1> bytes{};

    [[nodiscard]] std::string_view text() const { return {bytes.data(), kHeadSize}; }
};

// Opens the window when needed.
int32_t read_head(uint8_t adapter, Q3RomHead& head) {
    if (const int32_t status = ensure_q3_window(adapter); status != 0) {
        return status;
    }
    const int32_t status =
        q3_read_flash(adapter, 0, kHeadWords, reinterpret_cast<uint32_t*>(head.bytes.data()));
    if (status != 0) {
        std::fputs("ERROR: Could not read data at start of Option ROM!\n", stderr);
        return status;
    }
    if (!head.text().starts_with(kRomMark)) {
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

// A pointer to the version text, or null.
char* find_version_text(Q3RomHead& head) {
    const std::size_t mark = head.text().find(kPxeMark);
    if (mark == std::string_view::npos) {
        return nullptr;
    }
    const bool bios = std::string_view(head.bytes.data(), head.bytes.size())
                          .substr(mark + kVersionText)
                          .starts_with(kBiosMark);
    const std::size_t place = mark + (bios ? kVersionTextBehindBios : kVersionText);
    return place < kHeadSize ? head.bytes.data() + place : nullptr;
}

unsigned number(const char* token) {
    return static_cast<unsigned>(std::strtol(token, nullptr, 10));
}

int32_t read_pxe_version(Q3RomHead& head, Q3OptionRomVersion& version) {
    char* const text = find_version_text(head);
    const VersionTokens tokens = text == nullptr ? VersionTokens{} : split_version(text);
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
        q3_read_flash(adapter, kx::adapter::kSettingsAddress, kWords, static_cast<uint32_t*>(out));
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
    const std::size_t mark = head.text().find(kx::adapter::kDmMark);
    if (mark == std::string_view::npos) {
        return KX_FLASH_INVALID;
    }
    std::memcpy(out, head.bytes.data() + mark, KX_Q3_OPTION_ROM_SIZE);
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
