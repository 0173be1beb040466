#include "flash/rewrite.hpp"

#include <fmt/core.h>
#include <kxlinhw/flash.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "failure/failure.hpp"
#include "library/call.hpp"
#include "output/progress.hpp"

namespace kx::ctl {
namespace {

constexpr std::uint8_t kErasedByte = 0xFF;
constexpr std::uint32_t kEraseCommandUnit = 0x10000;

// What two readings of a range say about the bytes that should be there. The second reading is made
// only when the first one differs.
struct Readings {
    std::optional<std::uint32_t> first_difference;  // its address
    bool second_is_right = false;
};

Readings read_twice(
    const FlashCard& card, const Range& range, std::span<const std::uint8_t> wanted,
    std::string_view label = {}) {
    const std::vector<std::uint8_t> now = card.read(range, label);
    const auto difference = std::ranges::mismatch(now, wanted).in1;
    if (difference == now.end()) {
        return {};
    }
    const auto at = static_cast<std::uint32_t>(difference - now.begin());
    return {range.begin + at, std::ranges::equal(card.read(range), wanted)};
}

// A sector that does not erase is found before anything is written into it: it still has its
// content, so that the change can be taken back.
void check_erased(const FlashCard& card, const Range& sector, const std::string& what) {
    const std::vector<std::uint8_t> blank(sector.size(), kErasedByte);
    const Readings readings = read_twice(card, sector, blank);
    if (readings.first_difference && !readings.second_is_right) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format(
                "{}: the sector {} does not erase: it has other bits than 1 at {:#x}", what,
                range_text(sector), *readings.first_difference));
    }
}

void erase_sectors(
    const FlashCard& card, const std::vector<Range>& sectors, const std::string& region,
    const std::string& what) {
    std::uint64_t total = 0;
    for (const Range& sector : sectors) {
        total += sector.size();
    }
    const auto erase = card.is_q3() ? q3_flash_erase_sectors : q4_flash_erase_sectors;
    Progress progress("Erasing " + region, total);
    for (const Range& sector : sectors) {
        const auto number = static_cast<int>(sector.begin / kEraseCommandUnit);
        check_flash(call_library([&] { return erase(card.index(), number, number); }), what);
        check_erased(card, sector, what);
        progress.add(sector.size());
    }
}

// The pages that are not erased, in order; the page with the signature is the last one.
std::vector<Range> pages_to_write(const SectorContent& content, const std::vector<Range>& sectors) {
    std::vector<Range> pages;
    for (const Range& sector : sectors) {
        for (std::uint32_t at = sector.begin; at < sector.end; at += KX_FLASH_PAGE) {
            const Range page{at, at + KX_FLASH_PAGE};
            const auto bytes = content.part(page);
            if (!std::ranges::all_of(bytes, [](auto byte) { return byte == kErasedByte; })) {
                pages.push_back(page);
            }
        }
    }
    std::stable_partition(pages.begin(), pages.end(), [&](const Range& page) {
        return page.begin != content.first_page;
    });
    return pages;
}

void write_pages(
    const FlashCard& card, const SectorContent& content, const std::vector<Range>& pages,
    const std::string& region, const std::string& what) {
    Progress progress("Writing " + region, pages.size() * KX_FLASH_PAGE);
    for (const Range& page : pages) {
        const std::uint8_t* const bytes = content.part(page).data();
        const std::int32_t status = call_library([&] {
            return card.is_q3() ? q3_write_flash(card.index(), page.begin, KX_FLASH_PAGE, bytes)
                                : q4_write_flash(card.index(), page.begin, KX_FLASH_PAGE, bytes, 0);
        });
        check_flash(status, what);
        progress.add(KX_FLASH_PAGE);
    }
}

void read_back(const FlashCard& card, const SectorContent& content, const std::string& what) {
    const Readings readings = read_twice(card, content.range, content.bytes, "Verifying");
    if (!readings.first_difference) {
        return;
    }
    const std::string where =
        fmt::format("{}: verification failed at {:#x}", what, *readings.first_difference);
    throw readings.second_is_right
        ? Failure(ExitCode::kFailed, where + ", although a second reading was right")
        : Failure(ExitCode::kVerification, where);
}

}  // namespace

std::vector<Range> SectorContent::sectors() const {
    std::vector<Range> all;
    for (std::uint32_t at = range.begin; at < range.end; at += sector_size) {
        all.push_back({at, at + sector_size});
    }
    return all;
}

std::span<const std::uint8_t> SectorContent::part(const Range& part) const {
    return bytes.subspan(part.begin - range.begin, part.size());
}

void rewrite(
    const FlashCard& card, const SectorContent& content, const std::vector<Range>& sectors,
    const std::string& region, const std::string& what) {
    card.open_window();
    erase_sectors(card, sectors, region, what);
    write_pages(card, content, pages_to_write(content, sectors), region, what);
    read_back(card, content, what);
}

}  // namespace kx::ctl
