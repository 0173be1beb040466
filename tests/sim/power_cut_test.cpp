// A power cut at every transfer of every operation that writes a flash, and what is in the flash
// afterwards. In the sectors that are rewritten only the order of the pages is known; all other
// sectors must be unchanged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>
#include <span>
#include <vector>

#include "sim/adapter_bench.hpp"
#include "support/output.hpp"

namespace {

using bench::counting;
using Bytes = std::vector<uint8_t>;
using bench::Family;

constexpr std::size_t kSector = 0x10000;
constexpr uint8_t kBefore = 0x5A;  // the old content of every byte

Bytes boot_image(std::size_t size, uint8_t first = 3) {
    Bytes image = counting(size, first);
    image[0] = 0x55;
    image[1] = 0xAA;
    return image;
}

// A flash of 1 MiB (Q3: 512 KiB) after a power cut.
struct Aftermath {
    uint32_t cut;  // the number of the transfer, from 1
    int32_t status;
    bool whole_run;  // the operation ended before the cut
    unsigned erases;
    Bytes content;
};

// Runs an operation on a new flash with a power cut at its first, second, ... transfer; the last
// run is not cut.
std::vector<Aftermath> cut_everywhere(Family family, const std::function<int32_t()>& operation) {
    std::vector<Aftermath> all;
    const auto cut_each = [&] {
        for (uint32_t cut = 1; all.empty() || !all.back().whole_run; ++cut) {
            bench::Adapter adapter(family, family == Family::kQ3 ? 19 : 20);
            std::fill(adapter.content.begin(), adapter.content.end(), kBefore);
            adapter.hardware.faults.power_cut_at = cut;
            const int32_t status = operation();
            all.push_back(
                {cut, status, adapter.hardware.unpowered == 0, adapter.hardware.flash.erases,
                 std::move(adapter.content)});
        }
    };
    test::told([&] { test::printed(cut_each); });
    return all;
}

std::span<const uint8_t> part(
    std::span<const uint8_t> content, std::size_t start, std::size_t size) {
    return content.subspan(start, size);
}

bool holds(const Bytes& content, std::size_t start, const Bytes& bytes) {
    return std::equal(
        bytes.begin(), bytes.end(), content.begin() + static_cast<std::ptrdiff_t>(start));
}

// Compares each byte with the byte before it: fast, because there are thousands of large flashes.
bool all_are(std::span<const uint8_t> bytes, uint8_t value) {
    return bytes.empty() || (bytes.front() == value &&
                             std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

// Sectors outside of [start, start + size) are unchanged.
void expect_rest_untouched(const Aftermath& after, std::size_t start, std::size_t size) {
    EXPECT_TRUE(all_are(part(after.content, 0, start), kBefore)) << after.cut;
    const std::size_t end = start + size;
    EXPECT_TRUE(all_are(part(after.content, end, after.content.size() - end), kBefore))
        << after.cut;
}

// How many pages from the first one on have the new bytes; the rest of the sector must be erased.
// Each page is programmed completely or not at all.
std::size_t pages_there(const Aftermath& after, std::size_t start, const Bytes& fresh) {
    std::size_t there = 0;
    bool gap = false;
    for (std::size_t offset = 0; offset < fresh.size(); offset += KX_FLASH_PAGE) {
        const std::size_t length = std::min<std::size_t>(KX_FLASH_PAGE, fresh.size() - offset);
        const auto page = part(after.content, start + offset, length);
        if (std::ranges::equal(page, part(fresh, offset, length))) {
            EXPECT_FALSE(gap) << "cut " << after.cut << ": page at " << offset << " came too early";
            ++there;
        } else {
            gap = true;
            EXPECT_TRUE(all_are(page, 0xFF))
                << "cut " << after.cut << ": half a page at " << offset;
        }
    }
    return there;
}

void expect_status(const Aftermath& after) {
    EXPECT_EQ(after.status == 0, after.whole_run)
        << "a cut at transfer " << after.cut << " must not look like success, nor none like one";
}

// Pages are written in their order: a later cut never leaves fewer pages than an earlier one, and
// the last run writes all of them.
void expect_pages_in_order(
    const std::vector<Aftermath>& all, std::size_t start, const Bytes& fresh) {
    std::size_t before = 0;
    std::vector<std::size_t> seen;
    for (const Aftermath& after : all) {
        expect_status(after);
        expect_rest_untouched(after, start, kSector);
        if (after.erases == 0) {
            EXPECT_TRUE(all_are(after.content, kBefore)) << after.cut;
            continue;
        }
        const std::size_t there = pages_there(after, start, fresh);
        EXPECT_GE(there, before) << after.cut;
        before = there;
        if (seen.empty() || seen.back() != there) {
            seen.push_back(there);
        }
    }
    std::vector<std::size_t> every((fresh.size() + KX_FLASH_PAGE - 1) / KX_FLASH_PAGE + 1);
    std::iota(every.begin(), every.end(), 0U);
    EXPECT_EQ(seen, every) << "every number of pages is what some cut leaves";
}

TEST(PowerCut, Q4BootDownloadLeavesNoSignatureOrTheWholeImage) {
    const Bytes image = boot_image(3 * KX_FLASH_PAGE + 28);
    const auto all = cut_everywhere(
        Family::kQ4, [&] { return q4_load_boot(0, image.data(), 0, uint32_t(image.size())); });
    unsigned without = 0;
    unsigned whole = 0;
    for (const Aftermath& after : all) {
        expect_status(after);
        expect_rest_untouched(after, 0, kSector);
        if (after.erases == 0) {
            EXPECT_TRUE(all_are(after.content, kBefore)) << after.cut;
        } else if (holds(after.content, 0, {0x55, 0xAA})) {
            ++whole;
            EXPECT_TRUE(holds(after.content, 0, image)) << after.cut;
        } else {
            ++without;
            EXPECT_TRUE(all_are(part(after.content, 0, KX_FLASH_PAGE), 0xFF)) << after.cut;
        }
    }
    EXPECT_GT(without, 3 * 128U);
    EXPECT_GT(whole, 64U) << "from the last page's program to the end of its comparison";
}

TEST(PowerCut, Q4BootDownloadBeforeTheFirmwareLeavesTheFirmware) {
    const Bytes image = boot_image(2 * KX_FLASH_PAGE);
    const auto all = cut_everywhere(
        Family::kQ4, [&] { return q4_load_boot(0, image.data(), 448, uint32_t(image.size())); });
    for (const Aftermath& after : all) {
        expect_status(after);
        expect_rest_untouched(after, 7 * kSector, kSector);
    }
}

TEST(PowerCut, ConfigurationRecordGrowsPageByPageInItsSector) {
    const Bytes record = counting(1664, 1);
    const auto all =
        cut_everywhere(Family::kQ4, [&] { return write_flash_for_config(0, record.data()); });
    expect_pages_in_order(all, 7 * kSector, record);
}

void expect_sectors_in_order(const std::vector<Aftermath>& all, unsigned sectors) {
    for (const Aftermath& after : all) {
        expect_status(after);
        const std::size_t erased = after.erases * kSector;
        EXPECT_TRUE(all_are(part(after.content, 0, erased), 0xFF)) << after.cut;
        EXPECT_TRUE(all_are(part(after.content, erased, after.content.size() - erased), kBefore))
            << after.cut;
    }
    EXPECT_EQ(all.back().erases, sectors);
}

TEST(PowerCut, ErasesAreWholeSectorsInTheirOrder) {
    const auto all = cut_everywhere(Family::kQ4, [] { return q4_erase_boot(0); });
    expect_sectors_in_order(all, 6);
}

// The first page is written first, so an incomplete image can begin with a valid signature.
TEST(PowerCut, Q3BootDownloadGrowsPageByPage) {
    const Bytes image = boot_image(3 * KX_FLASH_PAGE + 29);
    const auto all = cut_everywhere(
        Family::kQ3, [&] { return q3_load_boot(0, image.data(), uint32_t(image.size())); });
    expect_pages_in_order(all, 0, image);
}

TEST(PowerCut, Q3SettingsGrowPageByPageInTheirSector) {
    Bytes block(448, 0x33);
    const auto all =
        cut_everywhere(Family::kQ3, [&] { return save_hba_settings(0, block.data()); });
    expect_pages_in_order(all, 3 * kSector, block);  // its header is already there
}

TEST(PowerCut, Q3ErasesAreWholeSectorsInTheirOrder) {
    const auto all = cut_everywhere(Family::kQ3, [] { return erase_option_rom(0); });
    expect_sectors_in_order(all, 3);
}

// Repeating the operation repairs every state that a power cut leaves.
TEST(PowerCut, EveryWriteCanBeRepeated) {
    const Bytes image = boot_image(2 * KX_FLASH_PAGE);
    const Bytes record = counting(1664, 1);
    for (const uint32_t cut : {5U, 20U, 100U, 250U, 400U}) {
        bench::Adapter adapter(Family::kQ4, 20);
        test::printed([&] {
            for (const auto& operation : std::initializer_list<std::function<int32_t()>>{
                     [&] { return q4_load_boot(0, image.data(), 0, uint32_t(image.size())); },
                     [&] { return write_flash_for_config(0, record.data()); }}) {
                adapter.repair();
                adapter.hardware.faults.power_cut_at = cut;
                static_cast<void>(operation());
                adapter.repair();
                EXPECT_EQ(operation(), 0) << cut;
            }
        });
        EXPECT_TRUE(holds(adapter.content, 0, image)) << cut;
        EXPECT_TRUE(holds(adapter.content, 7 * kSector, record)) << cut;
    }
}

}  // namespace
