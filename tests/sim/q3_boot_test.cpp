// Settings and boot option ROM of a Q3 adapter, from the register window to the bytes of the flash.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/q3_boot.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"

namespace {

using testing::Each;
using testing::HasSubstr;

constexpr std::size_t kSector = 0x10000;
constexpr std::size_t kSettings = 0x30000;
constexpr std::size_t kFlashSize = 0x80000;

std::string erased(std::size_t size) { return std::string(size, '\xFF'); }

std::vector<uint8_t> make_image(std::size_t size) {
    std::vector<uint8_t> image(size);
    for (std::size_t i = 0; i < size; ++i) {
        image[i] = static_cast<uint8_t>(i * 5 + i / 256);
    }
    image[0] = 0x55;
    image[1] = 0xAA;
    return image;
}

std::string text_of(const std::vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

class Q3Boot : public test::OutputTest {
protected:
    Q3Boot() {
        // The flash is ready at the first poll, so the counts are those of the protocol.
        const kxsim::Flash flash{.busy_polls = 0, .program_polls = 0, .erase_polls = 0};
        host_.adapter({.chip = "Q3", .location = "03:00.0", .flash = flash});
        host_.adapter({.chip = "Q3", .location = "04:00.0", .flash = flash});
        hardware_.emplace(host_.hardware("03:00.0"));
        attached_.emplace(host_.attach());
        EXPECT_EQ(scan_hbas(), 2);
    }
    ~Q3Boot() override { disconnect_from_hba(mmapd_adapter); }

    int32_t load(const std::vector<uint8_t>& image) {
        return run(
            [&] { return q3_load_boot(0, image.data(), static_cast<uint32_t>(image.size())); });
    }

    int32_t save(std::array<uint8_t, 448>& block) {
        return run([&] { return save_hba_settings(0, block.data()); });
    }

    static bool window_open() { return mmapd_addr != 0; }

    kxsim::Host host_;
    std::optional<kxsim::Hardware> hardware_;

private:
    std::optional<kxsim::Attached> attached_;
};

// --- Settings ---

TEST_F(Q3Boot, EraseOfTheSettingsTakesSectorThreeAndLeavesTheWindowOpen) {
    hardware_->write_flash(0, std::string(kFlashSize, '\x5A'));
    EXPECT_EQ(run([] { return erase_hba_settings(0); }), 0);
    EXPECT_EQ(printed_ + told_, "");
    EXPECT_EQ(hardware_->flash(kSettings, kSector), erased(kSector));
    EXPECT_EQ(hardware_->flash(0, kSettings), std::string(kSettings, '\x5A'));
    EXPECT_EQ(hardware_->flash(0x40000, 0x40000), std::string(0x40000, '\x5A'));
    EXPECT_TRUE(window_open());
    EXPECT_EQ(mmapd_adapter, 0);
}

TEST_F(Q3Boot, EraseOfTheSettingsReleasesAnotherAdaptersWindow) {
    ASSERT_EQ(connect_to_hba(1), 0);
    const auto calls = host_.count([] { EXPECT_EQ(erase_hba_settings(0), 0); });
    EXPECT_EQ(calls.on("open", "/dev/mem"), 1U);
    EXPECT_EQ(mmapd_adapter, 0);
    EXPECT_TRUE(window_open());
}

TEST_F(Q3Boot, WindowThatIsOpenIsNotOpenedAgain) {
    ASSERT_EQ(connect_to_hba(0), 0);
    const auto calls = host_.count([] { EXPECT_EQ(erase_hba_settings(0), 0); });
    EXPECT_EQ(calls.on("open", "/dev/mem"), 0U);
}

TEST_F(Q3Boot, SavedSettingsArePutRight) {
    std::array<uint8_t, 448> block;
    block.fill(0xA5);
    block[4] = 0;
    EXPECT_EQ(save(block), 0);
    EXPECT_EQ(printed_ + told_, "");
    std::array<uint8_t, 448> expected;
    expected.fill(0xA5);
    std::memcpy(expected.data(), "CIB\0\x01\xBC\x01", 7);
    EXPECT_EQ(block, expected);
    EXPECT_EQ(
        hardware_->flash(kSettings, 512),
        std::string(expected.begin(), expected.end()) + erased(64));
    EXPECT_FALSE(window_open());
}

TEST_F(Q3Boot, RightSettingsAreSavedAsTheyAre) {
    std::array<uint8_t, 448> block{};
    std::memcpy(block.data(), "CIB\0\x07\xBC\x01\x42", 8);
    const auto before = block;
    EXPECT_EQ(save(block), 0);
    EXPECT_EQ(block, before);
    EXPECT_EQ(hardware_->flash(kSettings, 448), std::string(before.begin(), before.end()));
}

TEST_F(Q3Boot, SavingTakesAnEraseAndTwoPages) {
    std::array<uint8_t, 448> block{};
    EXPECT_EQ(save(block), 0);
    const kxsim::HardwareCounts counts = hardware_->counts();
    EXPECT_EQ(counts.erases, 1U);
    EXPECT_EQ(counts.programs, 2U);
    EXPECT_EQ(counts.loads + counts.stores, 16 + 272 + (16 + 4 * 48U));
}

TEST_F(Q3Boot, SavingReturnsTheStatusOfTheErase) {
    std::array<uint8_t, 448> block{};
    hardware_->faults({.endless_write_at = 1});
    EXPECT_EQ(save(block), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(told_, "");
    EXPECT_EQ(block[0], 0) << "the block is put right only for a sector that is erased";
    EXPECT_EQ(save_hba_settings(0, nullptr), KX_FLASH_INVALID);
}

TEST_F(Q3Boot, SavingTellsAFailingWriteAndClosesTheWindow) {
    std::array<uint8_t, 448> block{};
    hardware_->faults({.endless_write_at = 3});
    EXPECT_EQ(save(block), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(told_, "ERROR: Saving settings failed, error -11\n");
    EXPECT_FALSE(window_open());
    hardware_->restore_power();
    hardware_->faults({.stuck_busy_at = 5});
    EXPECT_EQ(save(block), KX_Q3_FLASH_TIMED_OUT);
    EXPECT_THAT(told_, HasSubstr("ERROR: Saving settings failed, error 248\n"));
}

TEST_F(Q3Boot, SavedSettingsAreReadBackButForTheirLastWord) {
    std::array<uint8_t, 448> block;
    block.fill(0x33);
    ASSERT_EQ(save(block), 0);
    ASSERT_EQ(connect_to_hba(0), 0);
    std::array<uint8_t, 446> out;
    out.fill(0xEE);
    EXPECT_EQ(run([&] { return q3_read_settings(0, out.data() + 1); }), 0);
    EXPECT_EQ(std::memcmp(out.data() + 1, block.data(), 444), 0);
    EXPECT_EQ(out.front(), 0xEE);
    EXPECT_EQ(out.back(), 0xEE);
}

TEST_F(Q3Boot, SettingsThatCannotBeReadAreToldOf) {
    ASSERT_EQ(connect_to_hba(0), 0);
    hardware_->faults({.stuck_busy_at = 4});
    std::array<uint8_t, 444> out{};
    EXPECT_EQ(run([&] { return q3_read_settings(0, out.data()); }), KX_FLASH_INVALID);
    EXPECT_THAT(told_, testing::EndsWith("ERROR: Could not read settings data!\n"));
    EXPECT_EQ(q3_read_settings(0, nullptr), KX_FLASH_INVALID);
}

// --- Option ROM: erase ---

TEST_F(Q3Boot, EraseOfTheOptionRomTakesItsThreeSectorsAndClosesTheWindow) {
    hardware_->write_flash(0, std::string(kFlashSize, '\x5A'));
    EXPECT_EQ(run([] { return erase_option_rom(0); }), 0);
    EXPECT_EQ(printed_, "done.\n");
    EXPECT_EQ(told_, "");
    EXPECT_EQ(hardware_->flash(0, 3 * kSector), erased(3 * kSector));
    EXPECT_EQ(hardware_->flash(kSettings, kSector), std::string(kSector, '\x5A'));
    EXPECT_FALSE(window_open());
}

TEST_F(Q3Boot, EraseOfTheOptionRomThatFailsSaysSo) {
    hardware_->faults({.endless_write_at = 2});
    EXPECT_EQ(run([] { return erase_option_rom(0); }), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(printed_, "failed!\n");
    EXPECT_FALSE(window_open());
}

// --- Option ROM: download ---

TEST_F(Q3Boot, DownloadWritesTheImageAndClosesTheWindow) {
    const auto image = make_image(1000);
    EXPECT_EQ(load(image), 0);
    EXPECT_EQ(printed_ + told_, "");
    EXPECT_EQ(hardware_->flash(0, 1024), text_of(image) + erased(24));
    EXPECT_FALSE(window_open());
    const kxsim::HardwareCounts counts = hardware_->counts();
    EXPECT_EQ(counts.erases, 1U);
    EXPECT_EQ(counts.loads + counts.stores, 16 + 3 * 272 + (16 + 4 * 58U));
}

TEST_F(Q3Boot, DownloadWritesTheFirstPageFirst) {
    const auto image = make_image(1024);
    hardware_->faults({.endless_write_at = 2});  // after the erase
    EXPECT_EQ(load(image), KX_Q3_FLASH_TIMED_OUT);
    EXPECT_EQ(hardware_->flash(0, 256), text_of(image).substr(0, 256));
    EXPECT_EQ(hardware_->flash(256, 256), erased(256));
}

TEST_F(Q3Boot, DownloadErasesTheSectorsThatTheImageTakes) {
    for (const auto& [size, sectors] :
         {std::pair<std::size_t, unsigned>{28, 1},
          {kSector, 1},
          {kSector + 1, 2},
          {3 * kSector, 3}}) {
        const unsigned before = hardware_->counts().erases;
        EXPECT_EQ(load(make_image(size)), 0);
        EXPECT_EQ(hardware_->counts().erases - before, sectors) << size;
        EXPECT_EQ(hardware_->flash(0, size), text_of(make_image(size)));
    }
}

TEST_F(Q3Boot, ImagesOfAWrongSizeAreRefusedBeforeTheAdapterIsTouched) {
    const auto image = make_image(3 * kSector + 1);
    for (const uint32_t size : {0U, 27U, 0x30001U, 0xFFFFFFFFU}) {
        const auto calls = host_.count([&] {
            EXPECT_EQ(run([&] { return q3_load_boot(0, image.data(), size); }), KX_Q3_BAD_IMAGE);
        });
        EXPECT_EQ(told_, "ERROR: Boot image has wrong size, probably corrupted!\n");
        EXPECT_EQ(calls.on("open", "/dev/mem"), 0U);
    }
}

TEST_F(Q3Boot, SizeIsLookedAtBeforeTheImage) {
    EXPECT_EQ(run([] { return q3_load_boot(0, nullptr, 27); }), KX_Q3_BAD_IMAGE);
    EXPECT_EQ(told_, "ERROR: Boot image has wrong size, probably corrupted!\n");
    EXPECT_EQ(run([] { return q3_load_boot(0, nullptr, 1024); }), KX_FLASH_INVALID);
    EXPECT_EQ(told_, "");
}

TEST_F(Q3Boot, ImagesWithoutSignatureAreRefusedBeforeTheAdapterIsTouched) {
    for (const auto& [first, second] : {std::pair{0xAA, 0x55}, {0x55, 0xAB}, {0x54, 0xAA}}) {
        auto image = make_image(28);
        image[0] = static_cast<uint8_t>(first);
        image[1] = static_cast<uint8_t>(second);
        EXPECT_EQ(load(image), KX_Q3_BAD_IMAGE);
        EXPECT_EQ(told_, "ERROR: Boot image missing signature, probably corrupted!\n");
    }
    EXPECT_EQ(hardware_->counts().loads, 0U);
}

TEST_F(Q3Boot, AnyFailureOfADownloadIsOneStatus) {
    const auto image = make_image(1024);
    const std::string message = "ERROR: Boot image download failed, error 248\n";
    for (const kxsim::HardwareFaults& faults :
         {kxsim::HardwareFaults{.endless_write_at = 1},
          {.endless_write_at = 3},
          {.stuck_busy_at = 1},
          {.stuck_busy_at = 7}}) {
        hardware_->restore_power();
        hardware_->faults(faults);
        EXPECT_EQ(load(image), KX_Q3_FLASH_TIMED_OUT);
        EXPECT_THAT(told_, testing::EndsWith(message));
        EXPECT_FALSE(window_open());
    }
}

// --- A window that cannot be had ---

TEST_F(Q3Boot, ConnectStatusIsReturnedByEveryEntryPoint) {
    host_.fail({.call = "open", .times = 0, .error = EPERM, .object = "/dev/mem"});
    std::array<uint8_t, 448> block{};
    const auto image = make_image(28);
    const std::string refused = "open /dev/mem failed!";
    EXPECT_EQ(run([] { return erase_hba_settings(0); }), KX_ADAPTER_INVALID);
    EXPECT_EQ(told_, refused);
    EXPECT_EQ(save(block), KX_ADAPTER_INVALID);
    EXPECT_EQ(told_, refused);
    EXPECT_EQ(run([] { return erase_option_rom(0); }), KX_ADAPTER_INVALID);
    EXPECT_EQ(told_, refused);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(load(image), KX_ADAPTER_INVALID);
    EXPECT_EQ(told_, refused);
    EXPECT_EQ(run([] { return erase_hba_settings(7); }), KX_ADAPTER_INVALID);
    std::array<uint8_t, KX_Q3_SETTINGS_SIZE> settings;
    settings.fill(0xEE);
    EXPECT_EQ(run([&] { return q3_read_settings(0, settings.data()); }), KX_ADAPTER_INVALID);
    EXPECT_EQ(told_, refused);
    EXPECT_THAT(settings, Each(0xEE));
    std::array<uint8_t, KX_Q3_OPTION_ROM_SIZE> rom;
    for (const auto read : {q3_get_dm_signature, get_pxe_oprom_version}) {
        rom.fill(0xEE);
        EXPECT_EQ(run([&] { return read(0, rom.data()); }), KX_ADAPTER_INVALID);
        EXPECT_EQ(told_, refused);
        EXPECT_THAT(rom, Each(0));
    }
    EXPECT_EQ(hardware_->counts().loads, 0U);
}

// --- Readers open the window themselves ---

class Q3Readers : public Q3Boot {
protected:
    Q3Readers() {
        std::string rom(1024, '\0');
        rom.replace(0, 2, "\x55\xAA");
        rom.replace(0x40, 20, "$DM$0123456789ABxxxx");
        rom.replace(0x80, 16, "PXE-2.0 1.2.3.4\0", 16);
        hardware_->write_flash(0, rom);
        hardware_->write_flash(kSettings, "CIB");
    }

    // What each of the three functions reads from adapter 0, and that each leaves its window open.
    void expect_read(int32_t (*read)(uint8_t, void*), const std::string& wanted) {
        std::array<char, KX_Q3_SETTINGS_SIZE> out{};
        EXPECT_EQ(run([&] { return read(0, out.data()); }), 0);
        EXPECT_EQ(std::string(out.data(), wanted.size()), wanted);
        EXPECT_TRUE(window_open());
        EXPECT_EQ(mmapd_adapter, 0);
    }

    static constexpr std::string_view kVersion{"$PXE\x02\x01\x04", 7};
};

TEST_F(Q3Readers, ReadWithoutAWindow) {
    expect_read(q3_read_settings, "CIB");
    disconnect_from_hba(0);
    expect_read(q3_get_dm_signature, "$DM$0123456789AB");
    disconnect_from_hba(0);
    expect_read(get_pxe_oprom_version, std::string(kVersion));
}

TEST_F(Q3Readers, CloseTheWindowOfAnotherAdapter) {
    ASSERT_EQ(connect_to_hba(1), 0);
    expect_read(q3_read_settings, "CIB");
    ASSERT_EQ(connect_to_hba(1), 0);
    expect_read(q3_get_dm_signature, "$DM$0123456789AB");
    ASSERT_EQ(connect_to_hba(1), 0);
    expect_read(get_pxe_oprom_version, std::string(kVersion));
}

TEST_F(Q3Readers, UseTheWindowThatIsOpen) {
    ASSERT_EQ(connect_to_hba(0), 0);
    const auto calls = host_.count([&] {
        expect_read(q3_read_settings, "CIB");
        expect_read(q3_get_dm_signature, "$DM$0123456789AB");
        expect_read(get_pxe_oprom_version, std::string(kVersion));
    });
    EXPECT_EQ(calls.on("open", "/dev/mem"), 0U);
}

// --- Identification of the option ROM ---

class Q3OptionRom : public Q3Boot {
protected:
    Q3OptionRom() { EXPECT_EQ(connect_to_hba(0), 0); }

    // An option ROM with a text at a place.
    void put(std::size_t place, const std::string& text) {
        std::string rom(1024, '\0');
        rom.replace(0, 2, "\x55\xAA");
        rom.replace(place, text.size(), text);
        hardware_->write_flash(0, rom);
    }

    int32_t find_dm() {
        out_.fill(0xEE);
        return run([&] { return q3_get_dm_signature(0, out_.data()); });
    }

    int32_t find_pxe() {
        out_.fill(0xEE);
        return run([&] { return get_pxe_oprom_version(0, out_.data()); });
    }

    static std::array<uint8_t, 16> version(uint8_t major, uint8_t minor, uint8_t build) {
        return {'$', 'P', 'X', 'E', minor, major, build};
    }

    std::array<uint8_t, 16> out_{};
};

TEST_F(Q3OptionRom, DmBlockIsTheSixteenBytesFromItsMark) {
    put(0x40, "$DM$0123456789ABxxxx");
    EXPECT_EQ(find_dm(), 0);
    EXPECT_EQ(std::memcmp(out_.data(), "$DM$0123456789AB", 16), 0);
    EXPECT_EQ(printed_ + told_, "");
}

TEST_F(Q3OptionRom, DmMarkIsFoundBehindAFalseStart) {
    put(0x41, "$D$DM$$$DM$");
    EXPECT_EQ(find_dm(), 0);
    EXPECT_EQ(std::memcmp(out_.data(), "$DM$$$DM$\0\0\0\0\0\0\0", 16), 0);
}

TEST_F(Q3OptionRom, DmMarkAtTheVeryEndIsPaddedWithZeros) {
    put(508, "$DM$behind");
    EXPECT_EQ(find_dm(), 0);
    EXPECT_EQ(std::memcmp(out_.data(), "$DM$\0\0\0\0\0\0\0\0\0\0\0\0", 16), 0);
    put(509, "$DM$");
    EXPECT_EQ(find_dm(), KX_FLASH_INVALID) << "the mark ends behind the 512 bytes";
}

TEST_F(Q3OptionRom, MissingDmMarkClearsTheOutput) {
    put(0x40, "$DM#");
    EXPECT_EQ(find_dm(), KX_FLASH_INVALID);
    EXPECT_THAT(out_, Each(0));
    EXPECT_EQ(told_, "");
}

TEST_F(Q3OptionRom, PxeVersionStandsBehindTheMark) {
    put(0x60, std::string(
                  "PXE-2.0\0"
                  "2.13.7.260\0",
                  19));
    EXPECT_EQ(find_pxe(), 0);
    EXPECT_EQ(printed_, "get_pxe_oprom_version\nmaj 2 min 13 build 260\noprom_version 525\n");
    EXPECT_EQ(out_, version(2, 13, 4));
    EXPECT_EQ(told_, "");
}

TEST_F(Q3OptionRom, PxeVersionStandsBehindTheBiosMark) {
    put(0x60, std::string("PXE-2.0 BIOS  1.4.0.9\0", 22));
    EXPECT_EQ(find_pxe(), 0);
    EXPECT_EQ(printed_, "get_pxe_oprom_version\nmaj 1 min 4 build 9\noprom_version 260\n");
    EXPECT_EQ(out_, version(1, 4, 9));
}

TEST_F(Q3OptionRom, PxeVersionMayEndWithTheBuffer) {
    const std::string text = "PXE-2.0 1.2.3.4567";
    put(512 - text.size(), text);
    EXPECT_EQ(find_pxe(), 0);
    EXPECT_EQ(printed_, "get_pxe_oprom_version\nmaj 1 min 2 build 4567\noprom_version 258\n");
    const std::string cut = "PXE-2.0 1.2.3.45";
    put(512 - cut.size(), cut + "99999");
    EXPECT_EQ(find_pxe(), 0);
    EXPECT_EQ(out_, version(1, 2, 45));
}

TEST_F(Q3OptionRom, PxeVersionWithTooFewPartsIsNone) {
    for (const std::string text : {"", "1", "1.2", "1.2.3", "1.2.3.", "...", "1..2.3"}) {
        put(0x60, "PXE-2.0 " + text + std::string(1, '\0'));
        EXPECT_EQ(find_pxe(), KX_FLASH_INVALID) << text;
        EXPECT_EQ(printed_, "get_pxe_oprom_version\n");
        EXPECT_THAT(out_, Each(0));
    }
    for (const std::size_t place : {505U, 504U, 500U, 496U}) {
        put(place, place == 496 ? "PXE-2.0 BIOS" : "PXE-2.0");
        EXPECT_EQ(find_pxe(), KX_FLASH_INVALID) << place;
    }
}

TEST_F(Q3OptionRom, PxeVersionMayBeAnyText) {
    put(0x60, std::string("PXE-2.0 99999999999999999999.%n%s.x.-1\0", 39));
    EXPECT_EQ(find_pxe(), 0);
    EXPECT_THAT(printed_, HasSubstr("maj 99999999999999999999 min %n%s build -1\n"));
    EXPECT_EQ(out_[6], 0xFF);
}

TEST_F(Q3OptionRom, MissingPxeMarkIsSilent) {
    put(0x60, "PXE-2.1 1.2.3.4");
    EXPECT_EQ(find_pxe(), KX_FLASH_INVALID);
    EXPECT_EQ(told_, "");
}

TEST_F(Q3OptionRom, RomWithoutSignatureIsToldOf) {
    hardware_->write_flash(0, std::string("\xAA\x55$DM$PXE-2.0 1.2.3.4\0", 22));
    EXPECT_EQ(find_dm(), KX_FLASH_INVALID);
    EXPECT_EQ(told_, "ERROR: Could not find valid Option ROM!\n");
    EXPECT_THAT(out_, Each(0));
    EXPECT_EQ(find_pxe(), KX_FLASH_INVALID);
    EXPECT_EQ(told_, "ERROR: Could not find valid Option ROM!\n");
}

TEST_F(Q3OptionRom, RomThatCannotBeReadIsToldOf) {
    const std::string message = "ERROR: Could not read data at start of Option ROM!\n";
    hardware_->faults({.stuck_busy_at = 3});
    EXPECT_EQ(find_dm(), KX_Q3_FLASH_READ);
    EXPECT_THAT(told_, testing::EndsWith(message));
    EXPECT_THAT(out_, Each(0));
    hardware_->restore_power();
    hardware_->faults({.stuck_busy_at = 3});
    EXPECT_EQ(find_pxe(), KX_Q3_FLASH_READ);
    EXPECT_THAT(told_, testing::EndsWith(message));
}

TEST_F(Q3OptionRom, NullOutputIsRefused) {
    EXPECT_EQ(run([] { return q3_get_dm_signature(0, nullptr); }), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(run([] { return get_pxe_oprom_version(0, nullptr); }), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "get_pxe_oprom_version\n");
    EXPECT_EQ(hardware_->counts().loads, 0U);
}

}  // namespace
