// The boot option ROM in Q4 and Q5 flash: validity, download, erase, dump.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "sim/adapter_bench.hpp"
#include "support/output.hpp"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr uint32_t kKiB = 1024;
constexpr uint32_t kSector = 64 * kKiB;
constexpr uint8_t kPageProgram = 0x02;
const std::string kMeasured = "sf_size 4194304 sf_nsec 64\n";

// A boot image whose pages differ.
std::vector<uint8_t> make_image(std::size_t size, unsigned seed = 1) {
    std::vector<uint8_t> image(size);
    for (std::size_t i = 0; i < size; ++i) {
        image[i] = static_cast<uint8_t>(i * 7 + i / 256 + seed);
    }
    image[0] = 0x55;
    image[1] = 0xAA;
    return image;
}

class BootImage : public test::OutputTest {
protected:
    // Counts begin at 0; nothing is printed on standard error.
    template <class Call>
    auto run(const Call& call) {
        adapter_.forget();
        const auto result = OutputTest::run(call);
        EXPECT_EQ(told_, "");
        return result;
    }

    int32_t load(const std::vector<uint8_t>& image, uint32_t start_kb = 0) {
        return run([&] {
            return q4_load_boot(0, image.data(), start_kb, static_cast<uint32_t>(image.size()));
        });
    }

    bench::Adapter adapter_{bench::Family::kQ4};
};

// --- Validity ---

TEST_F(BootImage, OptionRomIsValidByItsFirstTwoBytes) {
    adapter_.fill(0, std::array<uint8_t, 2>{0x55, 0xAA});
    EXPECT_EQ(run([] { return Is_Valid_q4oprom_Present(0); }), 0);
    EXPECT_EQ(printed_, "Valid OPROM presented\n");
    EXPECT_EQ(adapter_.accesses(), 18U + 4U * 256U);
}

TEST_F(BootImage, OptionRomWithoutItsSignatureIsInvalid) {
    for (const auto& bytes : {std::array<uint8_t, 2>{0xAA, 0x55}, {0x55, 0xAB}, {0xFF, 0xFF}}) {
        adapter_.fill(0, bytes);
        EXPECT_EQ(run([] { return Is_Valid_q4oprom_Present(0); }), KX_FLASH_INVALID);
        EXPECT_EQ(printed_, "No Valid OPROM presented\n");
    }
}

TEST_F(BootImage, OptionRomThatCannotBeReadIsInvalid) {
    adapter_.hardware.flash.manufacturer = 0;
    EXPECT_EQ(run([] { return Is_Valid_q4oprom_Present(0); }), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "flash read error sizeof conf data 53760\n");
}

// --- Download ---

TEST_F(BootImage, DownloadWritesTheFirstPageLast) {
    const auto image = make_image(1024);
    EXPECT_EQ(load(image), 0);
    EXPECT_EQ(printed_, kMeasured);
    EXPECT_THAT(adapter_.erased_sectors(), ElementsAre(0U));
    EXPECT_THAT(adapter_.addresses(kPageProgram), ElementsAre(0x100U, 0x200U, 0x300U, 0U));
    EXPECT_EQ(adapter_.bytes(0, 1024), image);
    EXPECT_THAT(adapter_.bytes(1024, kSector - 1024), Each(0xFF));
}

TEST_F(BootImage, DownloadCostsItsStepsAndNothingMore) {
    EXPECT_EQ(load(make_image(2 * kSector)), 0);
    EXPECT_EQ(adapter_.accesses(), 9 + 9 + (16 * 2 + 1) + 512 * 556U);
}

TEST_F(BootImage, DownloadErasesTheSectorsThatTheImageTakes) {
    for (const auto& [size, sectors] :
         {std::pair<std::size_t, std::vector<uint32_t>>{kSector, {0}},
          {kSector + 1, {0, 1}},
          {28, {0}},
          {3 * kSector, {0, 1, 2}}}) {
        adapter_.repair();
        EXPECT_EQ(load(make_image(size)), 0);
        EXPECT_THAT(adapter_.erased_sectors(), ElementsAreArray(sectors));
    }
}

TEST_F(BootImage, DownloadReadsNoByteBehindTheImage) {
    const auto image = make_image(300);  // a sanitizer watches its end
    EXPECT_EQ(load(image), 0);
    EXPECT_EQ(adapter_.bytes(0, 300), image);
    EXPECT_THAT(adapter_.bytes(300, 512 - 300), Each(0xFF));
    EXPECT_THAT(adapter_.addresses(kPageProgram), ElementsAre(0x100U, 0U));
}

TEST_F(BootImage, DownloadToAnotherPlaceLeavesTheRestAlone) {
    adapter_.fill(0, make_image(1024));
    const auto image = make_image(600, 9);
    EXPECT_EQ(load(image, 128), 0);
    EXPECT_THAT(adapter_.erased_sectors(), ElementsAre(2U));
    EXPECT_THAT(adapter_.addresses(kPageProgram), ElementsAre(0x20100U, 0x20200U, 0x20000U));
    EXPECT_EQ(adapter_.bytes(0x20000, 600), image);
    EXPECT_EQ(adapter_.bytes(0, 1024), make_image(1024));
}

TEST_F(BootImage, ImagesOfAWrongSizeAreRefusedBeforeTheyAreWritten) {
    for (const uint32_t size : {0U, 1U, 27U, 512 * kKiB + 1, 0xFFFFFFFFU}) {
        const auto image = make_image(64);
        EXPECT_EQ(run([&] { return q4_load_boot(0, image.data(), 0, size); }), KX_FLASH_BAD_SIZE);
        EXPECT_EQ(printed_, kMeasured + "boot image too small/large\n");
        EXPECT_EQ(adapter_.accesses(), 18U);
    }
}

TEST_F(BootImage, ImagesOfTheSmallestAndTheLargestSizeAreAccepted) {
    EXPECT_EQ(load(make_image(28)), 0);
    const auto image = make_image(512 * kKiB);
    EXPECT_EQ(load(image), 0);
    EXPECT_EQ(adapter_.bytes(0, image.size()), image);
}

TEST_F(BootImage, ImagesThatReachTheFirmwareAreRefused) {
    const auto image = make_image(kSector);
    EXPECT_EQ(load(image, 448), 0);
    for (const uint32_t start_kb : {512U, 576U, 0x400000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(load(image, start_kb), KX_FLASH_BAD_SIZE);
        EXPECT_EQ(printed_, kMeasured + "boot image encroaching on firmware region\n");
        EXPECT_THAT(adapter_.erased_sectors(), IsEmpty());
    }
}

TEST_F(BootImage, ImageThatEndsWithinTheEighthSectorIsAccepted) {
    EXPECT_EQ(load(make_image(kSector - 1), 512), 0);
    EXPECT_THAT(adapter_.erased_sectors(), ElementsAre(8U));
}

TEST_F(BootImage, DownloadTellsWhichStepFailed) {
    const auto image = make_image(1024);
    adapter_.hardware.flash.manufacturer = 0;
    EXPECT_EQ(load(image), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "get flash params sf_size failed\n");
    adapter_.hardware.flash.manufacturer = 0x20;
    adapter_.hardware.flash.capacity_code = 19;
    EXPECT_EQ(load(image), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "get flash params sf_nsec failed\n");
    adapter_.hardware.flash.capacity_code = 22;

    adapter_.hardware.faults.endless_write_at = 1;
    EXPECT_EQ(load(image), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(
        printed_, kMeasured +
                      "erase of flash sector 0 failed, error -11\n"
                      "q4_flash_erase_sectors failed\n"
                      "boot image download failed, error -11\n");

    for (const uint32_t page : {1U, 2U, 3U, 4U}) {
        adapter_.repair();
        adapter_.hardware.faults.flipped_bit_at = page;
        EXPECT_EQ(load(image), KX_FLASH_MISMATCH);
        char address[16];
        std::snprintf(address, sizeof address, "%#x", page == 4 ? 0 : page * 256);
        EXPECT_EQ(
            printed_, kMeasured + "failed to correctly write the flash page at " + address +
                          "\nq4_write_flash failed\nboot image download failed, error -5\n");
        EXPECT_EQ(adapter_.hardware.flash.programs, page) << "a failing page ends the download";
    }
}

TEST_F(BootImage, NullImageIsRefusedOnceItsSizeIsRight) {
    EXPECT_EQ(run([] { return q4_load_boot(0, nullptr, 0, 27); }), KX_FLASH_BAD_SIZE);
    EXPECT_EQ(printed_, kMeasured + "boot image too small/large\n");
    EXPECT_EQ(run([] { return q4_load_boot(0, nullptr, 0, 1024); }), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, kMeasured);
    EXPECT_THAT(adapter_.erased_sectors(), IsEmpty());
}

// --- Power cuts ---

// What a reader of the option ROM finds in the flash.
bool holds_signature(const bench::Adapter& adapter) {
    return adapter.content[0] == 0x55 && adapter.content[1] == 0xAA;
}

TEST_F(BootImage, PowerCutAtAnyTransferLeavesNoSignatureOrAWholeImage) {
    const auto old_image = make_image(1000, 77);
    const auto new_image = make_image(700, 5);
    unsigned whole_old = 0;
    unsigned none = 0;
    unsigned whole_new = 0;
    for (uint32_t cut = 1;; ++cut) {
        adapter_.repair();
        std::fill(adapter_.content.begin(), adapter_.content.end(), uint8_t{0xFF});
        adapter_.fill(0, old_image);
        adapter_.hardware.faults.power_cut_at = cut;
        const int32_t status = load(new_image);
        const bool powered = adapter_.hardware.unpowered == 0;
        kxsim::models::restore_power(adapter_.hardware);
        if (!holds_signature(adapter_)) {
            ++none;
            EXPECT_NE(status, 0) << cut;
        } else if (adapter_.bytes(0, old_image.size()) == old_image) {
            ++whole_old;
            EXPECT_EQ(adapter_.hardware.flash.erases, 0U) << cut;
        } else {
            ++whole_new;
            EXPECT_EQ(adapter_.bytes(0, new_image.size()), new_image) << cut;
        }
        if (powered) {
            EXPECT_EQ(status, 0);
            break;
        }
        EXPECT_NE(status, 0) << "a cut at transfer " << cut << " must not look like success";
    }
    // The cut comes before the erase has an effect, before the last page is programmed, or later.
    EXPECT_EQ(whole_old, 4 + 2U);
    EXPECT_GT(none, 2 * 64U);
    EXPECT_GT(whole_new, 64U);
}

TEST_F(BootImage, AfterAPowerCutTheDownloadCanBeRepeated) {
    const auto image = make_image(700);
    adapter_.hardware.faults.power_cut_at = 100;
    EXPECT_NE(load(image), 0);
    kxsim::models::restore_power(adapter_.hardware);
    EXPECT_EQ(load(image), 0);
    EXPECT_EQ(adapter_.bytes(0, 700), image);
}

// --- Erase ---

TEST_F(BootImage, EraseTakesTheSixSectorsOfTheOptionRom) {
    EXPECT_EQ(run([] { return q4_erase_boot(0); }), 0);
    EXPECT_EQ(printed_, kMeasured);
    EXPECT_THAT(adapter_.erased_sectors(), ElementsAre(0U, 1U, 2U, 3U, 4U, 5U));
}

TEST_F(BootImage, EraseThatFailsSaysSo) {
    adapter_.hardware.faults.endless_write_at = 3;
    EXPECT_EQ(run([] { return q4_erase_boot(0); }), KX_FLASH_INVALID);
    EXPECT_EQ(
        printed_, kMeasured +
                      "erase of flash sector 2 failed, error -11\n"
                      "q4_erase failed\n"
                      "Error: q4_erase sizeof conf data 393216\n"
                      "Error: q4_erase_boot failed\n");
}

// --- Dump ---

TEST_F(BootImage, DumpPrintsOverlappingPassesEightWordsALine) {
    adapter_.fill(0, make_image(60000));
    std::vector<uint32_t> words(KX_BOOT_DUMP_WORDS);
    EXPECT_EQ(run([&] { return read_flash_for_boot(0, words.data()); }), 0);
    std::string expected;
    for (std::size_t pass = 0; pass < 210; ++pass) {
        for (std::size_t word = 0; word < 256; ++word) {
            uint32_t value = 0;
            std::memcpy(&value, adapter_.content.data() + 256 * pass + 4 * word, sizeof value);
            char text[16];
            std::snprintf(text, sizeof text, "%s %08x ", word % 8 == 0 ? "\n" : "", value);
            expected += text;
        }
    }
    EXPECT_EQ(printed_, expected);
    EXPECT_EQ(adapter_.accesses(), 210 * (18 + 4 * 256U));
    EXPECT_EQ(std::memcmp(words.data(), adapter_.content.data() + 256 * 209, 1024), 0);
}

TEST_F(BootImage, DumpStopsAtAReadError) {
    std::vector<uint32_t> words(KX_BOOT_DUMP_WORDS);
    adapter_.hardware.flash.manufacturer = 0;
    EXPECT_EQ(run([&] { return read_flash_for_boot(0, words.data()); }), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "flash read error sizeof conf data 53760\n");
    EXPECT_EQ(read_flash_for_boot(0, nullptr), KX_FLASH_INVALID);
}

// --- Version of the boot part ---

TEST(BootLibraryVersion, WritesNameAndVersionAndNothingElse) {
    std::array<uint8_t, 26> out;
    out.fill(0xEE);
    EXPECT_EQ(GetBootLibVersion(out.data()), 0U);
    std::array<uint8_t, 26> expected;
    expected.fill(0xEE);
    std::memcpy(expected.data(), "libkxboot", 10);
    std::memcpy(expected.data() + 20, "\x02\x00\x06\x00", 4);
    EXPECT_EQ(out, expected);
    EXPECT_EQ(GetBootLibVersion(nullptr), 317U);
}

}  // namespace
