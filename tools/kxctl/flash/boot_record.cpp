#include "flash/boot_record.hpp"

#include <dlfcn.h>
#include <kxlinhw/boot_config.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "failure/failure.hpp"
#include "library/call.hpp"

namespace kx::ctl {
namespace {

constexpr std::uint16_t kSettingsLength = 444;
constexpr std::string_view kSettingsSignature{"CIB\0", 4};

std::vector<std::uint8_t>* caught_record = nullptr;

}  // namespace

std::vector<std::uint8_t> settings_block(std::vector<std::uint8_t> block) {
    block.resize(sizeof(Q3Settings));
    Q3Settings settings{};
    std::memcpy(&settings, block.data(), sizeof settings);
    std::memcpy(settings.signature, kSettingsSignature.data(), kSettingsSignature.size());
    settings.byte4 = settings.byte4 == 0 ? std::uint8_t{1} : settings.byte4;
    settings.length = kSettingsLength;
    std::memcpy(block.data(), &settings, sizeof settings);
    return block;
}

std::vector<std::uint8_t> default_record(const FlashCard& card, std::uint32_t ports) {
    std::vector<std::uint8_t> record;
    card.open_window();
    caught_record = &record;
    const std::int32_t status =
        call_library([&] { return q4_load_default_config(card.index(), ports); });
    caught_record = nullptr;
    const std::string what = card.location() + ": making the default configuration";
    check_flash(status, what);
    if (record.empty()) {
        throw Failure(ExitCode::kFailed, what + ": the option ROM could not be read");
    }
    return record;
}

}  // namespace kx::ctl

extern "C" {

// The library's functions call each other by their exported names, so a program may replace each of
// them. This one takes the record that q4_load_default_config made; kxctl writes it itself.
std::int32_t write_flash_for_config(std::uint8_t adapter, const void* record) {
    if (kx::ctl::caught_record == nullptr) {
        static auto* const write = reinterpret_cast<decltype(&write_flash_for_config)>(
            dlsym(RTLD_NEXT, "write_flash_for_config"));
        return write == nullptr ? KX_FLASH_INVALID : write(adapter, record);
    }
    if (record == nullptr) {
        return KX_FLASH_INVALID;
    }
    const auto* const bytes = static_cast<const std::uint8_t*>(record);
    kx::ctl::caught_record->assign(bytes, bytes + sizeof(Q4BootConfig));
    return 0;
}

}  // extern "C"
