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

std::uint32_t rounded_down(std::uint32_t address, std::uint32_t unit) {
    return address / unit * unit;
}

std::uint32_t rounded_up(std::uint32_t address, std::uint32_t unit) {
    return (address + unit - 1) / unit * unit;
}

// The sectors that contain the bytes. Whole erase units lose their content; a sector may be larger.
void take_sectors(FlashPlan& plan, const FlashLayout& layout, const Range& bytes) {
    const std::uint32_t sector = layout.sector_size();
    if (sector < kEraseUnit || bytes.empty()) {
        return;
    }
    plan.replaced = {rounded_down(bytes.begin, kEraseUnit), rounded_up(bytes.end, kEraseUnit)};
    plan.erased = {rounded_down(bytes.begin, sector), rounded_up(bytes.end, sector)};
    for (std::uint32_t at = plan.erased.begin; at < plan.erased.end; at += sector) {
        plan.sectors.push_back(at / kEraseUnit);
    }
}

// A region that the flash does not have has no sectors.
Range range_of(const FlashRegion* region) { return region == nullptr ? Range{} : region->range; }

PageRun run_of(std::uint32_t begin, std::uint32_t end) {
    return {{begin, end}, (end - begin + KX_FLASH_PAGE - 1) / KX_FLASH_PAGE};
}

// Only whole pages are written, and the first page last: until then there is no signature.
FlashPlan plan_content(const FlashLayout& layout, std::string_view region, std::uint32_t size) {
    constexpr std::uint32_t kPage = KX_FLASH_PAGE;
    FlashPlan plan{.region = layout.region(region)};
    const std::uint32_t begin = range_of(plan.region).begin;
    const std::uint32_t end = begin + rounded_up(size, kPage);
    take_sectors(plan, layout, {begin, end});
    if (end > begin + kPage) {
        plan.pages.push_back(run_of(begin + kPage, end));
    }
    plan.pages.push_back(run_of(begin, begin + kPage));
    return plan;
}

}  // namespace

std::string range_text(const Range& range) {
    return fmt::format("{:#x}-{:#x}", range.begin, range.end - 1);
}

std::vector<Range> beside(const FlashLayout& layout, const Range& sectors) {
    constexpr std::uint32_t kEnd = 0x90000;
    std::vector<Range> parts;
    for (const Range& part :
         {Range{0, sectors.begin}, Range{sectors.end, std::min(layout.size, kEnd)}}) {
        if (!part.empty()) {
            parts.push_back(part);
        }
    }
    return parts;
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

std::vector<Range> FlashPlan::put_back() const {
    std::vector<Range> parts;
    for (const Range& part :
         {Range{erased.begin, replaced.begin}, Range{replaced.end, erased.end}}) {
        if (!part.empty()) {
            parts.push_back(part);
        }
    }
    return parts;
}

FlashPlan plan_erase(const FlashLayout& layout, std::string_view region) {
    FlashPlan plan{.region = layout.region(region)};
    take_sectors(plan, layout, range_of(plan.region));
    return plan;
}

FlashPlan plan_boot_image(const FlashLayout& layout, std::uint32_t size) {
    return plan_content(layout, "boot", size);
}

FlashPlan plan_record(const FlashLayout& layout, std::uint32_t size) {
    return plan_content(layout, "config", size);
}

}  // namespace kx::ctl
