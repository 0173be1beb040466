// The boot configuration record in Q4 and Q5 flash: reading it with the option ROM's version,
// checking, writing, default values, repair.
#include <kxlinhw/boot_config.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>

#include "adapter/flash_layout.hpp"
#include "adapter/q4_flash.hpp"

namespace kx::adapter {
namespace {

constexpr uint32_t kConfigSize = sizeof(Q4BootConfig);
constexpr uint32_t kConfigWords = KX_BOOT_CONFIG_BUFFER / sizeof(uint32_t);
constexpr uint32_t kMostWords = 256;  // of one read

// A default record, except for the option ROM's version, the initiator name and the fields of the
// ports.
constexpr Q4BootConfig make_default_config() {
    Q4BootConfig record{};
    std::copy_n("CBIO", sizeof record.signature, record.signature);
    record.byte10 = 1;
    record.byte56 = 30;
    record.byte57 = 0;
    record.byte58 = 6;
    record.byte59 = 0;
    record.word196 = 20;
    record.word198 = 20;
    record.word200 = 64;
    record.word202 = 256;
    record.word204 = 1;
    record.word206 = 8;
    record.iscsi_port = 3260;
    record.byte210 = 0;
    record.byte211 = 5;
    record.byte213 = 30;
    record.byte214 = 0;
    record.byte215 = 1;
    record.byte216 = 1;
    record.byte220 = 1;
    return record;
}

constexpr Q4BootConfig kDefaultConfig = make_default_config();

// A field that each port has: consecutive bytes, all with one value.
struct PortField {
    std::size_t offset;
    std::size_t width;
    uint8_t value;
};

constexpr PortField kPortDefaults[] = {
    {offsetof(Q4BootConfig, port16), 1, 1},   {offsetof(Q4BootConfig, port60), 1, 14},
    {offsetof(Q4BootConfig, port192), 1, 14}, {offsetof(Q4BootConfig, port240), 4, 0xFF},
    {offsetof(Q4BootConfig, port280), 1, 1},
};

// The repair of bytes that an erased flash left at 0xFF, in the order of repair.
struct Repair {
    std::size_t offset;
    std::size_t length;
    uint8_t value;
};

constexpr Repair kRepairs[] = {
    {offsetof(Q4BootConfig, bytes64), sizeof Q4BootConfig::bytes64, 0},
    {offsetof(Q4BootConfig, byte58), 1, 6},
    {offsetof(Q4BootConfig, port60), sizeof Q4BootConfig::port60, 14},
    {offsetof(Q4BootConfig, byte59), 1, 0},
    {offsetof(Q4BootConfig, byte211), 1, 5},
    {offsetof(Q4BootConfig, port192), sizeof Q4BootConfig::port192, 14},
};

constexpr uint8_t kErased = 0xFF;

// The base ends in ':' and a NUL. The suffix overwrites the NUL; an empty suffix leaves the base.
constexpr char kInitiatorBase[] = "iqn.2010-06.com.kestrix:boot:";
constexpr int kSuffixSize = 12;
constexpr char kNoSuffix[kSuffixSize] = {};
static_assert(sizeof kInitiatorBase == 30);

// Store bytes at an offset of a record, as far as the record reaches.
void put(void* record, std::size_t offset, const char* bytes, std::size_t length) {
    if (offset < kConfigSize) {
        std::memcpy(
            static_cast<char*>(record) + offset, bytes,
            std::min<std::size_t>(length, kConfigSize - offset));
    }
}

// The version bytes of the adapter's option ROM; or nothing, after printing the reason.
std::optional<std::array<uint8_t, 4>> option_rom_version(uint8_t adapter) {
    const uint32_t word = read_q4biosversion_from_boot(adapter);
    if (word == KX_BIOS_VERSION_UNKNOWN) {
        std::printf("Warning: Unable to get the Q4 bios version for the adapter: %d\n", adapter);
        return std::nullopt;
    }
    if (word == 0xFFFFFFFF) {
        std::printf("Valid Option Rom is not presented for adapter index: %d\n", adapter);
        return std::nullopt;
    }
    std::array<uint8_t, 4> version;
    std::memcpy(version.data(), &word, sizeof word);
    return version;
}

int32_t read_config_words(uint8_t adapter, void* buffer) {
    for (uint32_t word = 0; word < kConfigWords; word += kMostWords) {
        const std::size_t offset = std::size_t{word} * sizeof(uint32_t);
        const int32_t status = q4_read_flash(
            adapter, kConfigStart + static_cast<uint32_t>(offset),
            std::min(kConfigWords - word, kMostWords),
            reinterpret_cast<uint32_t*>(static_cast<char*>(buffer) + offset), 0);
        if (status != 0) {
            return status;
        }
    }
    return 0;
}

int32_t write_config_pages(uint8_t adapter, const uint8_t* record) {
    for (uint32_t offset = 0; offset < kConfigSize; offset += KX_FLASH_PAGE) {
        const uint32_t length = std::min<uint32_t>(kConfigSize - offset, KX_FLASH_PAGE);
        const int32_t status =
            q4_write_flash(adapter, kConfigStart + offset, length, record + offset, 0);
        if (status != 0) {
            return status;
        }
    }
    return 0;
}

int32_t report_write_error() {
    std::printf("flash write error sizeof conf data %d\n", static_cast<int>(kConfigSize));
    return KX_FLASH_INVALID;
}

// A record has room for four ports. The fields of further ports overwrite the fields after them, as
// agents that pass more ports expect, up to the end of the record.
void fill_ports(Q4BootConfig& record, uint32_t nports) {
    auto* const bytes = reinterpret_cast<uint8_t*>(&record);
    const std::size_t ports = std::min<std::size_t>(nports, kConfigSize);
    for (std::size_t port = 0; port < ports; ++port) {
        for (const PortField& field : kPortDefaults) {
            const std::size_t offset = field.offset + port * field.width;
            if (offset + field.width <= kConfigSize) {
                std::memset(bytes + offset, field.value, field.width);
            }
        }
    }
}

}  // namespace
}  // namespace kx::adapter

extern "C" {

int32_t read_flash_for_config(uint8_t adapter, void* buffer) {
    using namespace kx::adapter;
    if (buffer == nullptr) {
        return KX_FLASH_INVALID;
    }
    if (read_config_words(adapter, buffer) != 0) {
        std::printf("flash read error sizeof conf data %d\n", static_cast<int>(kConfigWords));
        return KX_FLASH_INVALID;
    }
    const auto version = option_rom_version(adapter);
    if (version) {
        const auto& [major, minor, build, revision] = *version;
        std::memcpy(
            static_cast<char*>(buffer) + offsetof(Q4BootConfig, bios_version), version->data(),
            version->size());
        std::printf(
            "Q4 Adapter %d bios version: %d.%d.%d.%d\n", adapter, major, minor, build, revision);
    }
    return 0;
}

int32_t write_flash_for_config(uint8_t adapter, const void* record) {
    using namespace kx::adapter;
    int32_t sector_size = 0;
    if (record == nullptr || measure_flash(adapter, sector_size) != 0) {
        return KX_FLASH_INVALID;
    }
    if (erase_range(adapter, kConfigStart, kConfigSize, sector_size) != 0) {
        std::puts("q4_flash_erase_sectors failed");
        return report_write_error();
    }
    const int32_t status = write_config_pages(adapter, static_cast<const uint8_t*>(record));
    return status == 0 ? 0 : report_write_error();
}

int32_t Is_Valid_q4config_Present(uint8_t adapter) {
    alignas(uint32_t) char buffer[KX_BOOT_CONFIG_BUFFER];
    if (read_flash_for_config(adapter, buffer) != 0) {
        std::puts("Is_Valid_q4config_Present Failed 2");
        return KX_FLASH_INVALID;
    }
    const auto& signature = kx::adapter::kDefaultConfig.signature;
    if (std::memcmp(buffer, signature, sizeof signature) != 0) {
        std::puts("Is_Valid_q4config_Present Failed 1");
        return KX_FLASH_INVALID;
    }
    std::puts("Valid Config header presented");
    return 0;
}

int32_t q4_load_default_config(uint8_t adapter, uint32_t nports) {
    using namespace kx::adapter;
    const auto version = option_rom_version(adapter);
    if (!version) {
        return 0;
    }
    Q4BootConfig record = kDefaultConfig;
    std::copy(version->begin(), version->end(), record.bios_version);
    CopyInitiatorName(&record, kInitiatorBase, kNoSuffix, sizeof kInitiatorBase);
    fill_ports(record, nports);
    const int32_t status = write_flash_for_config(adapter, &record);
    if (status != 0) {
        std::puts("Error: q4_load_default_config failed");
    }
    return status;
}

void Set_q4config_property_with_Default_Settings(void* record) {
    using namespace kx::adapter;
    if (record == nullptr) {
        return;
    }
    std::memcpy(record, kDefaultConfig.signature, sizeof kDefaultConfig.signature);
    auto* const bytes = static_cast<uint8_t*>(record);
    for (const Repair& repair : kRepairs) {
        std::replace(
            bytes + repair.offset, bytes + repair.offset + repair.length, kErased, repair.value);
    }
}

void CopyInitiatorName(void* record, const char* base, const char* suffix, int length) {
    using namespace kx::adapter;
    if (record == nullptr || base == nullptr || suffix == nullptr || length < 0) {
        return;
    }
    constexpr std::size_t kName = offsetof(Q4BootConfig, initiator_name);
    const auto base_length = static_cast<std::size_t>(length);
    put(record, kName, base, base_length);
    put(record, kName + base_length - 1, suffix, kSuffixSize);
    put(record, kName + base_length - 1 + kSuffixSize, "", 1);
}

int32_t q4_erase_config(uint8_t adapter) {
    const int32_t status = q4_erase(adapter, kx::adapter::kConfigStart, kx::adapter::kConfigRegion);
    if (status != 0) {
        std::puts("Error: q4_erase_config failed");
    }
    return status;
}

}  // extern "C"
