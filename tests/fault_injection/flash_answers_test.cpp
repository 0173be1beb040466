// A flash that answers every identification differently.
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <array>

#include "support/output.hpp"

namespace {

int32_t flash_size;
int32_t sector_count;

}  // namespace

// The library calls its exported functions by their names, so these replace its own.
extern "C" int32_t get_flash_params(uint8_t) { return flash_size; }
extern "C" int32_t get_flash_params_sf_nsec(uint8_t) { return sector_count; }

namespace {

void expect_refusal(int32_t size, int32_t sectors) {
    flash_size = size;
    sector_count = sectors;
    std::array<uint8_t, sizeof(Q4BootConfig)> record{};
    std::array<uint8_t, 512> image{};
    EXPECT_EQ(q4_erase(0, 0x70000, 0x10000), KX_FLASH_INVALID);
    EXPECT_EQ(write_flash_for_config(0, record.data()), KX_FLASH_INVALID);
    EXPECT_EQ(q4_load_boot(0, image.data(), 0, image.size()), KX_FLASH_INVALID);
}

TEST(AFlashThatContradictsItself, IsRefusedWhenItIsSmallerThanItsNumberOfSectors) {
    expect_refusal(2, 16);
}

TEST(AFlashThatContradictsItself, IsMeasuredBeforeItIsRefused) {
    EXPECT_EQ(
        test::printed([] { expect_refusal(0, 16); }),
        "sf_size 0 sf_nsec 16\nsf_size 0 sf_nsec 16\nsf_size 0 sf_nsec 16\n");
}

TEST(AFlashThatContradictsItself, IsRefusedWhenItHasNoSector) { expect_refusal(1 << 22, 0); }

}  // namespace
