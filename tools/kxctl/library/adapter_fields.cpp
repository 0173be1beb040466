#include "library/adapter_fields.hpp"

#include <fmt/core.h>
#include <kxlinhw/q3_boot.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>

namespace kx::ctl {
namespace {

constexpr std::size_t kMacDigits = 12;

bool begins_with(std::span<const std::uint8_t> bytes, std::string_view text) {
    return bytes.size() >= text.size() && std::memcmp(bytes.data(), text.data(), text.size()) == 0;
}

bool is_q3(const AdapterInfoRecord& adapter) { return adapter.chip_class == KX_CLASS_Q3; }

constexpr std::string_view kPxeRecord = "$PXE";

std::string q3_version(const AdapterInfoRecord& adapter) {
    const auto& option_rom = adapter.boot.q3.option_rom;
    if (!begins_with(option_rom, kPxeRecord)) {
        return {};  // the meaning of a "$DM$" block is unknown
    }
    Q3OptionRomVersion record;
    std::memcpy(&record, option_rom, sizeof record);
    return fmt::format(
        "{}.{} build {}", record.version >> 8U, record.version & 0xFFU, record.build);
}

std::string q4_version(const AdapterInfoRecord& adapter) {
    const auto& version = adapter.boot.boot_config.bios_version;
    return adapter.option_rom_valid == 0
               ? ""
               : fmt::format("{}.{}.{}.{}", version[0], version[1], version[2], version[3]);
}

constexpr std::size_t kPorts = KX_BOOT_CONFIG_PORTS;

constexpr BootField kBootFields[] = {
    {"byte10", offsetof(Q4BootConfig, byte10), 1, 1},
    {"port16", offsetof(Q4BootConfig, port16), 1, kPorts},
    {"byte56", offsetof(Q4BootConfig, byte56), 1, 1},
    {"byte57", offsetof(Q4BootConfig, byte57), 1, 1},
    {"byte58", offsetof(Q4BootConfig, byte58), 1, 1},
    {"byte59", offsetof(Q4BootConfig, byte59), 1, 1},
    {"port60", offsetof(Q4BootConfig, port60), 1, kPorts},
    {"port192", offsetof(Q4BootConfig, port192), 1, kPorts},
    {"word196", offsetof(Q4BootConfig, word196), 2, 1},
    {"word198", offsetof(Q4BootConfig, word198), 2, 1},
    {"word200", offsetof(Q4BootConfig, word200), 2, 1},
    {"word202", offsetof(Q4BootConfig, word202), 2, 1},
    {"word204", offsetof(Q4BootConfig, word204), 2, 1},
    {"word206", offsetof(Q4BootConfig, word206), 2, 1},
    {"iscsi_port", offsetof(Q4BootConfig, iscsi_port), 2, 1},
    {"byte210", offsetof(Q4BootConfig, byte210), 1, 1},
    {"byte211", offsetof(Q4BootConfig, byte211), 1, 1},
    {"byte213", offsetof(Q4BootConfig, byte213), 1, 1},
    {"byte214", offsetof(Q4BootConfig, byte214), 1, 1},
    {"byte215", offsetof(Q4BootConfig, byte215), 1, 1},
    {"byte216", offsetof(Q4BootConfig, byte216), 1, 1},
    {"byte220", offsetof(Q4BootConfig, byte220), 1, 1},
    {"port240", offsetof(Q4BootConfig, port240), 4, kPorts},
    {"port280", offsetof(Q4BootConfig, port280), 1, kPorts},
};

}  // namespace

std::string chip_text(const AdapterInfoRecord& adapter) {
    switch (adapter.chip_class) {
        case KX_CLASS_Q4:
            return "Q4";
        case KX_CLASS_Q5:
            return "Q5";
        default:
            return "Q3";
    }
}

bool was_read(const AdapterInfoRecord& adapter) {
    const char* const record = reinterpret_cast<const char*>(&adapter);
    return std::any_of(
        record + offsetof(AdapterInfoRecord, product_name),
        record + offsetof(AdapterInfoRecord, next), [](char byte) { return byte != 0; });
}

std::string mac_text(const AdapterInfoRecord& adapter) {
    std::string digits = product_text(adapter.mac);
    const bool whole = digits.size() == kMacDigits &&
                       std::all_of(digits.begin(), digits.end(), [](unsigned char each) {
                           return std::isxdigit(each) != 0;
                       });
    if (!whole) {
        return digits;
    }
    std::string text;
    for (std::size_t i = 0; i < kMacDigits; ++i) {
        text += i > 0 && i % 2 == 0 ? ":" : "";
        text += static_cast<char>(std::tolower(static_cast<unsigned char>(digits[i])));
    }
    return text;
}

bool has_option_rom(const AdapterInfoRecord& adapter) {
    return is_q3(adapter) ? adapter.boot.q3.option_rom[0] != 0 : adapter.option_rom_valid != 0;
}

std::string bios_version(const AdapterInfoRecord& adapter) {
    return is_q3(adapter) ? q3_version(adapter) : q4_version(adapter);
}

std::optional<std::size_t> port_count(const AdapterInfoRecord& adapter, std::size_t interfaces) {
    constexpr unsigned kWithoutFunction = 0xF0FF;
    const std::string id = fmt::format("{:x}", adapter.device_id & kWithoutFunction);
    const std::size_t ports = getPortsQ4(id.c_str());
    const std::size_t known = ports != 0 ? ports : interfaces;
    return known != 0 ? std::optional(known) : std::nullopt;
}

const Q4BootConfig* boot_config(const AdapterInfoRecord& adapter) {
    const Q4BootConfig& config = adapter.boot.boot_config;
    const bool signed_one = std::string_view(config.signature, sizeof config.signature) == "CBIO";
    return !is_q3(adapter) && signed_one ? &config : nullptr;
}

bool has_settings(const AdapterInfoRecord& adapter) {
    constexpr std::string_view kSignature("CIB\0", 4);
    return is_q3(adapter) && begins_with(adapter.boot.q3.settings, kSignature);
}

std::span<const BootField> boot_fields() { return kBootFields; }

std::vector<std::uint32_t> boot_values(const Q4BootConfig& config, const BootField& field) {
    std::vector<std::uint32_t> values(field.count);
    for (std::size_t i = 0; i < field.count; ++i) {
        const char* const record = reinterpret_cast<const char*>(&config);
        std::memcpy(&values[i], record + field.offset + i * field.width, field.width);
    }
    return values;
}

std::string initiator_name(const Q4BootConfig& config) {
    return product_text(config.initiator_name);
}

}  // namespace kx::ctl
