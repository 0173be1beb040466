// The structure of boot images: what flash write-boot refuses, and writes with --force.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "flash/rom_image.hpp"
#include "kxctl/flash_changes.hpp"

namespace {

using kx::ctl::mismatches;
using kx::ctl::read_rom;
using kx::ctl::RomStructure;
using test::FlashHost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

constexpr std::size_t kData = 0x1C;  // the data structure in these images

RomStructure structure_of(const std::string& file) {
    return read_rom({reinterpret_cast<const std::uint8_t*>(file.data()), file.size()});
}

// An image with other bytes at an address; its checksum is right again.
std::string with(std::size_t at, const std::string& bytes, test::RomParts parts = {}) {
    std::string image = test::boot_rom(parts);
    image.replace(at, bytes.size(), bytes);
    test::detail::put_checksum(image, image.size());
    return image;
}

TEST(RomImage, OfOneImageIsRead) {
    const RomStructure rom = structure_of(test::boot_rom({.size = 2048}));
    EXPECT_THAT(rom.mistakes, IsEmpty());
    ASSERT_EQ(rom.images.size(), 1U);
    EXPECT_EQ(rom.images[0].size, 2048U);
    EXPECT_EQ(rom.images[0].vendor_id, KESTRIX_PCI_VENDOR_ID);
    EXPECT_THAT(rom.images[0].device_ids, ElementsAre(0x5410, 0x4410, 0x31));
}

TEST(RomImage, OfSeveralImagesIsRead) {
    const std::string file = test::boot_rom({.size = 1536, .last = false}) +
                             test::boot_rom({.size = 512, .code = 3}) + std::string(100, '\xFF');
    const RomStructure rom = structure_of(file);
    EXPECT_THAT(rom.mistakes, IsEmpty());
    ASSERT_EQ(rom.images.size(), 2U);
    EXPECT_EQ(rom.images[1].begin, 1536U);
    EXPECT_EQ(kx::ctl::code_name(rom.images[1].code_type), "UEFI");
}

TEST(RomImage, LargestImageHasALengthBeyondItsHeader) {
    const RomStructure rom = structure_of(test::boot_rom({.size = 0x60000}));
    EXPECT_THAT(rom.mistakes, IsEmpty());
    EXPECT_EQ(rom.images.at(0).size, 0x60000U);
}

TEST(RomImage, ListOfDevicesNeedsItsRevision) {
    EXPECT_THAT(structure_of(with(kData + 0xC, "\2")).images.at(0).device_ids, ElementsAre(0x5410));
}

TEST(RomImage, EveryCutIsAMistakeAndNothingBehindTheEndIsRead) {
    const std::string whole = test::boot_rom({});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::vector<std::uint8_t> cut(whole.begin(), whole.begin() + std::ptrdiff_t(size));
        EXPECT_THAT(read_rom(cut).mistakes, testing::Not(IsEmpty())) << size;
    }
}

struct WrongImage {
    const char* name;
    std::string file;
    const char* mistake;
};

std::vector<WrongImage> wrong_images() {
    std::string sum = test::boot_rom({});
    sum[100] = static_cast<char>(sum[100] + 1);
    const std::string first = test::boot_rom({.last = false});
    return {
        {"checksum", sum, "image 1 at 0x0 has a wrong checksum (0x01 instead of 0)"},
        {"header length", with(2, "\3"), "image 1 at 0x0 has 1024 bytes, its header says 1536"},
        {"no header length", with(2, std::string(1, '\0')), "its header says 0"},
        {"length", with(kData + 0x10, "\3"), "has 1536 bytes, of which the file has 1024"},
        {"no length", with(kData + 0x10, std::string(2, '\0')), "has a length of 0 bytes"},
        {"no structure", with(kData, "PCIX"), "image 1 at 0x0 has no PCI data structure"},
        {"structure outside", with(0x18, "\xF0\xFF"), "has no PCI data structure"},
        {"structure in the header", with(0x18, std::string("\2\0", 2)), "no PCI data structure"},
        {"not last", first, "is not the last one, but no other image follows it"},
        {"rest", test::boot_rom({}) + "rest", "is the last one, but 4 bytes follow it"},
        {"second", first + "\x55\xAB rest", "image 2 at 0x400 does not begin with 55 aa"},
        {"UEFI", with(4, "\xF2", {.code = 3}), "has no UEFI signature"},
        {"vendor", test::boot_rom({.vendor = 0x8086}),
         "the image at 0x0 is for 8086:5410, 8086:4410, 8086:0031, the adapter is "},
        {"device", test::boot_rom({.devices = {0x5499}}), "the image at 0x0 is for "},
        {"device of the second", first + test::boot_rom({.devices = {0x5499}}),
         "the image at 0x400 is for "},
    };
}

class WrongImageOfEachChip : public testing::TestWithParam<const test::FlashChip*> {};

TEST_P(WrongImageOfEachChip, IsRefusedAndForced) {
    const test::FlashChip& chip = *GetParam();
    FlashHost bench(chip);
    const test::ScratchDirectory directory;
    for (const WrongImage& row : wrong_images()) {
        const std::string file = directory.write("rom", row.file);
        Words words = {"flash", "write-boot", chip.location, file, "--yes", "--no-backup"};
        const std::string before = bench.whole();
        const auto counts = bench.hardware().counts();
        const test::Result result = bench.run(words);
        EXPECT_EQ(result.exit, 2) << row.name;
        EXPECT_THAT(result.err, HasSubstr(row.mistake)) << row.name;
        EXPECT_THAT(result.err, HasSubstr("(--force writes it all the same)\n")) << row.name;
        EXPECT_EQ(bench.hardware().counts().erases, counts.erases);
        EXPECT_TRUE(bench.whole() == before);
        words.emplace_back("--force");
        EXPECT_THAT(bench.run(words).out, HasSubstr(row.mistake)) << row.name;
        EXPECT_TRUE(bench.whole().substr(0, row.file.size()) == row.file) << row.name;
        words.back() = "--dry-run";
        words.emplace_back("--force");
        const auto reply = test::json_on(bench.host, words);
        EXPECT_EQ(reply.at("image").at("mistakes").size(), 1U) << row.name;
        bench.begin_again();
    }
}

INSTANTIATE_TEST_SUITE_P(
    EveryChip, WrongImageOfEachChip,
    testing::Values(
        &test::kFlashChips[0], &test::kFlashChips[1], &test::kFlashChips[2], &test::kFlashChips[3]),
    [](const auto& row) { return row.param->name; });

TEST(RightImage, IsForEachFunctionOfTheAdapterAndForOneOfItsDevices) {
    const RomStructure rom = structure_of(test::boot_rom({.devices = {0x5010, 0x4410}}));
    for (const unsigned id : {0x5010U, 0x5410U, 0x5610U, 0x4410U}) {
        EXPECT_THAT(mismatches(rom, KESTRIX_PCI_VENDOR_ID, id, kx::ctl::kFunctionBits), IsEmpty())
            << id;
    }
    EXPECT_EQ(mismatches(rom, KESTRIX_PCI_VENDOR_ID, 0x5410, 0).size(), 1U);
    EXPECT_EQ(mismatches(rom, KESTRIX_PCI_VENDOR_ID, 0x5411, kx::ctl::kFunctionBits).size(), 1U);
}

TEST(RightImage, IsNamedInTheAnswer) {
    FlashHost bench(test::kFlashChips[0]);
    const auto reply = test::json_on(
        bench.host, {"flash", "write-boot", "03:00.4", "new-rom", "--yes", "--no-backup"});
    const auto& image = reply.at("image");
    EXPECT_EQ(image.at("mistakes"), nlohmann::json::array());
    EXPECT_EQ(image.at("images").at(0).at("code"), "x86");
    EXPECT_EQ(image.at("images").at(0).at("device_ids"), nlohmann::json({0x5410, 0x4410, 0x31}));
    EXPECT_EQ(
        test::json_on(bench.host, {"flash", "erase-boot", "03:00.4", "--dry-run"}).at("image"),
        nullptr);
}

TEST(ForcedImage, StillNeedsItsSignature) {
    FlashHost bench(test::kFlashChips[0]);
    const test::ScratchDirectory directory;
    for (const std::string& file : {std::string(1024, 'x'), std::string("\x55\xAA")}) {
        const test::Result result = bench.run(
            {"flash", "write-boot", "03:00.4", directory.write("rom", file), "--yes", "--force"});
        EXPECT_EQ(result.exit, 2);
        EXPECT_THAT(result.err, HasSubstr("a boot image "));
    }
}

}  // namespace
