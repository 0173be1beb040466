#include "flash/layout.hpp"

#include <fmt/core.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/q3_boot.h>

#include <algorithm>

namespace kx::ctl {
namespace {

constexpr std::uint32_t kEraseUnit = 0x10000;  // the unit in which erase commands count

constexpr const char* kBootMeaning = "boot option ROM";
constexpr const char* kConfigMeaning = "boot configuration record";

// The number of flash sectors for the bytes, counted in erase units from the first sector: in a
// flash with larger sectors, several commands erase the same sector.
void take_sectors(
    FlashPlan& plan, const FlashLayout& layout, std::uint32_t begin, std::uint32_t size) {
    const std::uint32_t sector = layout.sector_size();
    const std::uint32_t count = sector == 0 ? 0 : (size + sector - 1) / sector;
    for (std::uint32_t i = 0; i < count; ++i) {
        plan.sectors.push_back(begin / kEraseUnit + i);
    }
    if (count > 0) {
        plan.erased.begin = plan.sectors.front() * kEraseUnit / sector * sector;
        plan.erased.end = plan.sectors.back() * kEraseUnit / sector * sector + sector;
    }
}

// A region that the flash does not have has no sectors.
Range range_of(const FlashRegion* region) { return region == nullptr ? Range{} : region->range; }

PageRun run_of(std::uint32_t begin, std::uint32_t end) {
    return {{begin, end}, (end - begin + KX_FLASH_PAGE - 1) / KX_FLASH_PAGE};
}

}  // namespace

std::string range_text(const Range& range) {
    return fmt::format("{:#x}-{:#x}", range.begin, range.end - 1);
}

const FlashRegion* FlashLayout::region(std::string_view name) const {
    const auto found = std::ranges::find(
        regions, name, [](const FlashRegion& row) { return std::string_view(row.name); });
    return found == regions.end() ? nullptr : &*found;
}

FlashLayout q3_flash_layout() {
    return {
        .family = FlashFamily::kQ3,
        .size = KX_Q3_FLASH_SIZE,
        .sectors = KX_Q3_FLASH_SIZE / kEraseUnit,
        .regions = {
            {"boot", kBootMeaning, {0, KX_Q3_BOOT_IMAGE_MAX}},
            {"config", "settings block", {0x30000, 0x40000}},
        }};
}

FlashLayout q4_flash_layout(std::uint32_t size, std::uint32_t sectors) {
    FlashLayout layout{.family = FlashFamily::kQ4, .size = size, .sectors = sectors};
    const FlashRegion regions[] = {
        {"boot", kBootMeaning, {0, 0x60000}},
        {"config", kConfigMeaning, {0x70000, 0x80000}},
        {"firmware", "firmware", {0x80000, size}},
    };
    for (const FlashRegion& region : regions) {
        if (region.range.end <= size && !region.range.empty()) {
            layout.regions.push_back(region);
        }
    }
    return layout;
}

Range FlashPlan::written() const {
    Range all;
    for (const PageRun& run : pages) {
        all = all.empty()
                  ? run.bytes
                  : Range{std::min(all.begin, run.bytes.begin), std::max(all.end, run.bytes.end)};
    }
    return all;
}

Range FlashPlan::touched() const {
    Range all = range_of(region);
    for (const Range& part : {erased, written()}) {
        if (!part.empty()) {
            all = {std::min(all.begin, part.begin), std::max(all.end, part.end)};
        }
    }
    return all;
}

std::uint32_t FlashPlan::page_count() const {
    std::uint32_t count = 0;
    for (const PageRun& run : pages) {
        count += run.count;
    }
    return count;
}

FlashPlan plan_erase(const FlashLayout& layout, std::string_view region) {
    FlashPlan plan{.region = layout.region(region)};
    const Range range = range_of(plan.region);
    take_sectors(plan, layout, range.begin, range.size());
    return plan;
}

// Q4 and Q5 fill the last page and write the first page last; Q3 writes the pages in order.
FlashPlan plan_boot_image(const FlashLayout& layout, std::uint32_t size) {
    FlashPlan plan{.region = layout.region("boot")};
    take_sectors(plan, layout, 0, size);
    if (layout.family == FlashFamily::kQ3) {
        plan.pages.push_back(run_of(0, size));
        return plan;
    }
    constexpr std::uint32_t kPage = KX_FLASH_PAGE;
    const std::uint32_t end = (size + kPage - 1) / kPage * kPage;
    if (end > kPage) {
        plan.pages.push_back(run_of(kPage, end));
    }
    plan.pages.push_back(run_of(0, kPage));
    return plan;
}

FlashPlan plan_record(const FlashLayout& layout, std::uint32_t size) {
    FlashPlan plan{.region = layout.region("config")};
    const std::uint32_t begin = range_of(plan.region).begin;
    take_sectors(plan, layout, begin, size);
    plan.pages.push_back(run_of(begin, begin + size));
    return plan;
}

}  // namespace kx::ctl
