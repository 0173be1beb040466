// The layout of an adapter's flash, and what a change affects: the sectors that the library erases
// and the pages that it writes. Nothing here accesses an adapter.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kx::ctl {

// Bytes from begin up to end.
struct Range {
    std::uint32_t begin = 0;
    std::uint32_t end = 0;

    [[nodiscard]] std::uint32_t size() const { return end - begin; }
    [[nodiscard]] bool empty() const { return begin >= end; }
    [[nodiscard]] bool holds(const Range& other) const {
        return other.empty() || (begin <= other.begin && other.end <= end);
    }
    [[nodiscard]] bool meets(const Range& other) const {
        return begin < other.end && other.begin < end;
    }
    friend bool operator==(const Range&, const Range&) = default;
};

// "0x0-0x5ffff"
[[nodiscard]] std::string range_text(const Range& range);

struct FlashRegion {
    const char* name;  // "boot", "config", "firmware"
    const char* meaning;
    Range range;
};

struct FlashLayout;

// The parts of the flash that a change of these sectors leaves alone, up to the first sectors of
// the firmware: enough to tell adapters apart.
[[nodiscard]] std::vector<Range> beside(const FlashLayout& layout, const Range& sectors);

enum class FlashFamily : std::uint8_t { kQ3, kQ4 };  // Q5 has the layout of Q4

struct FlashLayout {
    FlashFamily family = FlashFamily::kQ4;
    std::uint32_t size = 0;     // bytes
    std::uint32_t sectors = 0;  // 0 when the library does not know it; then nothing can be erased
    std::vector<FlashRegion> regions = {};

    [[nodiscard]] std::uint32_t sector_size() const { return sectors == 0 ? 0 : size / sectors; }
    // null when the flash has no region with that name.
    [[nodiscard]] const FlashRegion* region(std::string_view name) const;
};

[[nodiscard]] FlashLayout q3_flash_layout();
[[nodiscard]] FlashLayout q4_flash_layout(std::uint32_t size, std::uint32_t sectors);

// Consecutive pages, written in order.
struct PageRun {
    Range bytes;
    std::uint32_t count = 0;
};

// What a change does to the flash, in this order.
struct FlashPlan {
    const FlashRegion* region = nullptr;
    std::vector<std::uint32_t> sectors = {};  // of the erase commands, in units of 64 KiB
    Range erased = {};                        // these sectors of the flash
    Range replaced = {};  // what loses its content; the rest of the sectors is put back
    std::vector<PageRun> pages = {};

    [[nodiscard]] Range written() const;
    // Everything that may change, and the whole region: the content of a copy.
    [[nodiscard]] Range touched() const;
    [[nodiscard]] std::uint32_t page_count() const;
    // Parts of the sectors that are put back.
    [[nodiscard]] std::vector<Range> put_back() const;
};

// Erasing a region; writing `size` bytes of a boot image, or a record of the configuration. The
// layout must outlive the plan.
[[nodiscard]] FlashPlan plan_erase(const FlashLayout& layout, std::string_view region);
[[nodiscard]] FlashPlan plan_boot_image(const FlashLayout& layout, std::uint32_t size);
[[nodiscard]] FlashPlan plan_record(const FlashLayout& layout, std::uint32_t size);

}  // namespace kx::ctl
