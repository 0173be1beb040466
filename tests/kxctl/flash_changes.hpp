// Every change of a flash on every chip, on a simulated host; cutting it, and recovering.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>

#include "kxctl/boot_rom.hpp"
#include "kxctl/on_host.hpp"
#include "support/scratch_directory.hpp"

namespace test {

inline constexpr char kFlashSerial[] = "PT1";
inline constexpr char kFlashJournal[] = "/var/lib/kxctl/flash/serial-PT1";

// A boot image of a size, for every chip below.
inline std::string boot_image(std::size_t size, unsigned seed) {
    return boot_rom({.size = size, .seed = seed});
}

constexpr std::size_t kNewRomSize = 1024;

struct FlashChip {
    const char* name;  // of the test
    const char* chip;
    const char* location;
    unsigned device_id;
    unsigned capacity_code;
    std::uint32_t config;     // the address of the configuration
    std::uint32_t neighbour;  // bytes that share a sector with the configuration, or next to it
};

inline constexpr FlashChip kFlashChips[] = {
    {"Q5", "Q5", "03:00.4", 0x5410, 20, 0x70000, 0x60000},
    {"Q4", "Q4", "04:00.4", 0x4410, 20, 0x70000, 0x60000},
    {"Q3", "Q3", "05:00.0", 0x31, 19, 0x30000, 0x40000},
    {"LargeSectors", "Q5", "07:00.4", 0x5410, 24, 0x70000, 0x50000},
};

inline kxsim::Adapter adapter_of(const FlashChip& chip, const char* serial = kFlashSerial) {
    kxsim::Adapter adapter{.chip = chip.chip, .location = chip.location};
    adapter.device_id = chip.device_id;
    adapter.eeprom.product_data = {.product = "Q520-CR", .serial = serial};
    adapter.flash.capacity_code = chip.capacity_code;
    adapter.flash.content = {
        {0, boot_image(600, 99)},
        {chip.config, (chip.config == 0x30000 ? std::string("CIB\0\5\xBC\1", 7) : "CBIO") + "old"},
        {chip.neighbour, "neighbour"}};
    return adapter;
}

// One command that changes a flash.
struct FlashCommand {
    const FlashChip* chip;
    const char* verb;

    [[nodiscard]] std::vector<std::string> words() const {
        std::vector<std::string> words{"flash", verb, chip->location, "--yes", "--no-backup"};
        if (std::string_view(verb) == "write-boot") {
            words.emplace_back("new-rom");
        } else if (std::string_view(verb) == "config-write") {
            words.emplace_back(chip->config == 0x30000 ? "new-block" : "new-record");
        }
        return words;
    }
};

inline std::ostream& operator<<(std::ostream& stream, const FlashCommand& command) {
    return stream << command.verb << " " << command.chip->name;
}

inline std::vector<FlashCommand> flash_commands() {
    std::vector<FlashCommand> commands;
    for (const FlashChip& chip : kFlashChips) {
        for (const char* verb :
             {"write-boot", "erase-boot", "config-write", "config-default", "config-erase"}) {
            commands.push_back({&chip, verb});
        }
    }
    return commands;
}

// A host with one adapter, which can be given its old content again.
class FlashHost {
public:
    explicit FlashHost(const FlashChip& chip) : chip_(&chip) {
        host.adapter(adapter_of(chip));
        host.directory("/etc/kestrix-plexo");
        directory_.write("new-rom", boot_image(kNewRomSize, 1));
        directory_.write("new-record", "CBIO" + std::string(1660, 'n'));
        directory_.write("new-block", std::string("CIB\0\1\xBC\1", 7) + std::string(441, 'n'));
        old_content = whole();
    }

    [[nodiscard]] kxsim::Hardware hardware() { return host.hardware(chip_->location); }
    [[nodiscard]] std::string whole() { return hardware().flash(0, hardware().flash_size()); }
    [[nodiscard]] bool is_unfinished() const {
        return host.exists(std::string(kFlashJournal) + "/open");
    }
    [[nodiscard]] unsigned transfers() { return hardware().counts().transfers; }

    // The old content and an empty journal.
    void begin_again() {
        constexpr std::size_t kChanging = 0x80000;
        hardware().restore_power();
        hardware().faults({});
        hardware().write_flash(0, std::string_view(old_content).substr(0, kChanging));
        if (host.exists("/var/lib/kxctl")) {
            host.remove("/var/lib/kxctl");
        }
    }

    Result run(std::vector<std::string> words) { return run_on(host, std::move(words)); }
    Result recover(const char* way) { return run({"flash", "recover", chip_->location, way}); }

    kxsim::Host host;
    std::string old_content;

private:
    const FlashChip* chip_;
    const ScratchDirectory directory_;
    const WorkingDirectory here_{directory_.path()};
};

// Whether to take every position (./run faults) or a sample.
inline bool thorough() { return std::getenv("KX_THOROUGH") != nullptr; }

}  // namespace test
