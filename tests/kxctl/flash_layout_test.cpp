// The sectors and pages of a flash change, computed without an adapter; progress lines; answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/confirmation.hpp"
#include "flash/layout.hpp"
#include "output/progress.hpp"

namespace {

using namespace kx::ctl;
using testing::ElementsAre;

constexpr std::uint32_t kMiB = 1U << 20;

TEST(FlashLayout, RegionsOfQ4DoNotMeetAndEndWithTheFlash) {
    const FlashLayout layout = q4_flash_layout(4 * kMiB, 64);
    ASSERT_EQ(layout.regions.size(), 3U);
    EXPECT_EQ(layout.region("boot")->range, (Range{0, 0x60000}));
    EXPECT_EQ(layout.region("config")->range, (Range{0x70000, 0x80000}));
    EXPECT_EQ(layout.region("firmware")->range, (Range{0x80000, 4 * kMiB}));
    EXPECT_EQ(layout.region("vpd"), nullptr);
    EXPECT_EQ(layout.sector_size(), 0x10000U);
}

TEST(FlashLayout, RegionsOfQ3AreTwo) {
    const FlashLayout layout = q3_flash_layout();
    ASSERT_EQ(layout.regions.size(), 2U);
    EXPECT_EQ(layout.region("boot")->range, (Range{0, 0x30000}));
    EXPECT_EQ(layout.region("config")->range, (Range{0x30000, 0x40000}));
    EXPECT_EQ(layout.size, 0x80000U);
}

TEST(FlashLayout, SmallFlashLacksTheRegionsThatItDoesNotHold) {
    EXPECT_EQ(q4_flash_layout(0x80000, 0).region("firmware"), nullptr);
    EXPECT_NE(q4_flash_layout(0x80000, 0).region("config"), nullptr);
    EXPECT_EQ(q4_flash_layout(0x40000, 0).regions.size(), 0U);
    EXPECT_EQ(q4_flash_layout(0x40000, 0).sector_size(), 0U);
}

TEST(FlashPlan, BootImageOfQ4EndsWithItsFirstPage) {
    const FlashLayout layout = q4_flash_layout(4 * kMiB, 64);
    const FlashPlan plan = plan_boot_image(layout, 0x10001);
    EXPECT_THAT(plan.sectors, ElementsAre(0, 1));
    EXPECT_EQ(plan.erased, (Range{0, 0x20000}));
    ASSERT_EQ(plan.pages.size(), 2U);
    EXPECT_EQ(plan.pages[0].bytes, (Range{0x100, 0x10100}));
    EXPECT_EQ(plan.pages[0].count, 256U);
    EXPECT_EQ(plan.pages[1].bytes, (Range{0, 0x100}));
    EXPECT_EQ(plan.written(), (Range{0, 0x10100}));
    EXPECT_EQ(plan.touched(), (Range{0, 0x60000})) << "the region, which is larger";
}

TEST(FlashPlan, SmallestBootImageOfQ4IsOnePage) {
    const FlashLayout layout = q4_flash_layout(4 * kMiB, 64);
    const FlashPlan plan = plan_boot_image(layout, 28);
    ASSERT_EQ(plan.pages.size(), 1U);
    EXPECT_EQ(plan.pages[0].bytes, (Range{0, 0x100}));
}

TEST(FlashPlan, LargestBootImageOfQ4ReachesOverTheConfiguration) {
    const FlashLayout layout = q4_flash_layout(4 * kMiB, 64);
    const FlashPlan plan = plan_boot_image(layout, 0x80000);
    EXPECT_EQ(plan.sectors.back(), 7U);
    EXPECT_TRUE(plan.erased.meets(layout.region("config")->range));
    EXPECT_FALSE(plan.erased.meets(layout.region("firmware")->range));
    EXPECT_EQ(plan.touched(), (Range{0, 0x80000}));
}

TEST(FlashPlan, BootImageOfQ3EndsWithItsFirstPageToo) {
    const FlashLayout layout = q3_flash_layout();
    const FlashPlan plan = plan_boot_image(layout, 0x10001);
    EXPECT_THAT(plan.sectors, ElementsAre(0, 1));
    ASSERT_EQ(plan.pages.size(), 2U);
    EXPECT_EQ(plan.pages[0].bytes, (Range{0x100, 0x10100}));
    EXPECT_EQ(plan.pages[1].bytes, (Range{0, 0x100}));
    EXPECT_EQ(plan_boot_image(layout, 0x30000).erased, (Range{0, 0x30000}));
}

TEST(FlashPlan, RecordsTakeOneSectorAndTheirPages) {
    const FlashLayout q4 = q4_flash_layout(4 * kMiB, 64);
    const FlashPlan config = plan_record(q4, 1664);
    EXPECT_THAT(config.sectors, ElementsAre(7));
    EXPECT_EQ(config.page_count(), 7U);
    EXPECT_EQ(config.touched(), (Range{0x70000, 0x80000}));
    EXPECT_TRUE(config.put_back().empty());
    const FlashLayout q3 = q3_flash_layout();
    const FlashPlan settings = plan_record(q3, 448);
    EXPECT_THAT(settings.sectors, ElementsAre(3));
    EXPECT_EQ(settings.written(), (Range{0x30000, 0x30200}));
    EXPECT_EQ(settings.page_count(), 2U);
}

TEST(FlashPlan, ErasesOfRegionsWriteNothing) {
    const FlashLayout layout = q4_flash_layout(4 * kMiB, 64);
    const FlashPlan boot = plan_erase(layout, "boot");
    EXPECT_THAT(boot.sectors, ElementsAre(0, 1, 2, 3, 4, 5));
    EXPECT_EQ(boot.page_count(), 0U);
    EXPECT_TRUE(boot.written().empty());
    EXPECT_THAT(plan_erase(layout, "config").sectors, ElementsAre(7));
}

// Erase commands count in 64 KiB, and each erases a whole sector of 256 KiB.
TEST(FlashPlan, LargeSectorsPutTheirNeighboursBack) {
    const FlashLayout layout = q4_flash_layout(16 * kMiB, 64);
    EXPECT_EQ(layout.sector_size(), 0x40000U);
    const FlashPlan boot = plan_erase(layout, "boot");
    EXPECT_THAT(boot.sectors, ElementsAre(0, 4));
    EXPECT_EQ(boot.erased, (Range{0, 0x80000}));
    EXPECT_EQ(boot.replaced, (Range{0, 0x60000}));
    EXPECT_THAT(boot.put_back(), ElementsAre(Range{0x60000, 0x80000}));
    const FlashPlan config = plan_record(layout, 1664);
    EXPECT_THAT(config.sectors, ElementsAre(4));
    EXPECT_EQ(config.erased, (Range{0x40000, 0x80000}));
    EXPECT_THAT(config.put_back(), ElementsAre(Range{0x40000, 0x70000}));
    EXPECT_EQ(config.touched(), (Range{0x40000, 0x80000}))
        << "the copy contains everything that is erased";
    const FlashPlan image = plan_boot_image(layout, 0x50000);
    EXPECT_TRUE(image.replaced.holds(image.written()));
}

TEST(FlashPlan, UnknownSectorsCannotBeErased) {
    const FlashLayout layout = q4_flash_layout(0x80000, 0);
    EXPECT_TRUE(plan_erase(layout, "boot").sectors.empty());
    EXPECT_TRUE(plan_erase(layout, "boot").erased.empty());
}

TEST(FlashPlan, RegionThatIsNotThereTakesNothing) {
    const FlashLayout layout = q4_flash_layout(0x40000, 4);
    const FlashPlan plan = plan_erase(layout, "boot");
    EXPECT_TRUE(plan.sectors.empty());
    EXPECT_TRUE(plan.touched().empty());
}

TEST(ProgressLine, TellsBytesAndShare) {
    EXPECT_EQ(progress_line("Reading boot", 98304, 393216), "Reading boot: 96 of 384 KiB (25%)");
    EXPECT_EQ(progress_line("Writing", 448, 1664), "Writing: 448 of 1664 bytes (26%)");
}

TEST(ProgressLine, TellsRateAndTimeLeftOnceThereIsOne) {
    using Seconds = std::chrono::duration<double>;
    EXPECT_EQ(
        progress_line("Reading", 1 << 20, 4 << 20, Seconds(32)),
        "Reading: 1024 of 4096 KiB (25%), 32.0 KiB/s, 1:36 left");
    EXPECT_EQ(
        progress_line("Reading", 4 << 20, 4 << 20, Seconds(2)),
        "Reading: 4096 of 4096 KiB (100%), 2048.0 KiB/s, 0:00 left");
    EXPECT_EQ(progress_line("Reading", 0, 4096, Seconds(1)), "Reading: 0 of 4096 bytes (0%)");
    EXPECT_EQ(progress_line("Reading", 16384, 16384, Seconds(0)), "Reading: 16 of 16 KiB (100%)");
}

TEST(Answer, OnlyYesMeansYes) {
    for (const char* answer : {"y", "Y", "yes", "YES", " yes ", "y\r"}) {
        EXPECT_TRUE(is_yes(answer)) << answer;
    }
    for (const char* answer : {"", " ", "n", "no", "yess", "y n", "j", "ye"}) {
        EXPECT_FALSE(is_yes(answer)) << answer;
    }
}

}  // namespace
