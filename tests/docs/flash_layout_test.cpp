// Compares docs/flash-layout.md with the library: the dump of a default configuration record, and
// the layout of the product data.
#include <gtest/gtest.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/vpd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <set>
#include <span>
#include <sstream>

#include "sim/adapter_bench.hpp"
#include "support/file_text.hpp"
#include "support/output.hpp"

namespace {

constexpr std::size_t kRecordAddress = 0x70000;
constexpr std::size_t kLine = 16;

std::string page() { return test::file_text(KX_DOCS "/flash-layout.md"); }

// "70000  43 42 49 4f ...  |CBIO...|", a line for each 16 bytes that are not all zero.
std::string dump(std::span<const uint8_t> bytes) {
    std::string out;
    for (std::size_t at = 0; at < bytes.size(); at += kLine) {
        const auto line = bytes.subspan(at, std::min(kLine, bytes.size() - at));
        if (std::ranges::all_of(line, [](uint8_t byte) { return byte == 0; })) {
            continue;
        }
        char cell[16];
        std::snprintf(cell, sizeof cell, "%05zx ", kRecordAddress + at);
        out += cell;
        std::string letters;
        for (const uint8_t byte : line) {
            std::snprintf(cell, sizeof cell, " %02x", byte);
            out += cell;
            letters += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
        }
        out += "  |" + letters + "|\n";
    }
    return out;
}

TEST(FlashLayoutPage, ShowsADefaultConfigurationRecord) {
    bench::Adapter adapter(bench::Family::kQ4);
    adapter.fill(0, std::array<uint8_t, 2>{0x55, 0xAA});
    adapter.fill(16, std::array<uint8_t, 4>{1, 0, 0, 0x54});
    int32_t status = -1;
    test::printed([&] { status = q4_load_default_config(0, 2); });
    ASSERT_EQ(status, 0);
    const std::span<const uint8_t> flash(adapter.content);
    const std::string shown = dump(flash.subspan(kRecordAddress, sizeof(Q4BootConfig)));
    EXPECT_NE(page().find("```\n" + shown + "```\n"), std::string::npos) << shown;
}

struct Keyword {
    std::string name;
    std::size_t offset;
    unsigned size;
};

// The rows of the keyword table: for Q4 when `columns` is 2, for Q3 when it is 4.
std::vector<Keyword> keywords(std::size_t columns) {
    std::vector<Keyword> all;
    std::istringstream lines(page());
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> cells;
        std::istringstream stream(line);
        for (std::string cell; std::getline(stream, cell, '|');) {
            cells.push_back(cell.size() > 2 ? cell.substr(1, cell.size() - 2) : "");
        }
        const bool is_row = cells.size() == 7 && (cells[1].size() == 2 || cells[1][0] == 't');
        if (is_row) {
            all.push_back(
                {cells[1], std::stoul(cells[1 + columns]),
                 static_cast<unsigned>(std::stoul(cells[2 + columns]))});
        }
    }
    return all;
}

// Every byte that the template writes has a row, and the row is right.
template <std::size_t kSize>
void check(void (*write_template)(void*), std::size_t columns) {
    constexpr std::size_t kRows = 24;
    constexpr uint8_t kUntouched = 0xEE;
    std::array<uint8_t, kSize> vpd;
    vpd.fill(kUntouched);
    write_template(vpd.data());
    std::size_t headers = 0;
    for (const Keyword& keyword : keywords(columns)) {
        SCOPED_TRACE(keyword.name);
        const uint8_t* const header = vpd.data() + keyword.offset;
        if (keyword.name[0] == 't') {
            EXPECT_EQ(header[0], std::strtoul(keyword.name.c_str() + 4, nullptr, 16));
            EXPECT_EQ(header[1] | header[2] << 8, static_cast<int>(keyword.size));
        } else {
            EXPECT_EQ(std::string(header, header + 2), keyword.name);
            EXPECT_EQ(header[2], keyword.size);
        }
        ++headers;
    }
    EXPECT_EQ(headers, kRows);
    const auto written =
        std::ranges::count_if(vpd, [](uint8_t byte) { return byte != kUntouched && byte != 0; });
    // Each header writes three bytes, of which the high byte of a tag's length is 0; the end tag.
    constexpr std::ptrdiff_t kTags = 3;
    EXPECT_EQ(written, static_cast<std::ptrdiff_t>(3 * kRows) - kTags + 1);
}

TEST(FlashLayoutPage, HasTheKeywordsOfQ4ProductData) { check<KX_Q4_VPD_SIZE>(vpd_init_Q4, 2); }

TEST(FlashLayoutPage, HasTheKeywordsOfQ3ProductData) { check<KX_Q3_VPD_SIZE>(vpd_init_Q3, 4); }

}  // namespace
