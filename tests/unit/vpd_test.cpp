// Vital Product Data: templates, checksums, keyword entries, and the tables beside them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/vpd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "adapter/adapter_reading.hpp"
#include "adapter/product_name.hpp"
#include "adapter/vpd_template.hpp"
#include "support/output.hpp"

namespace {

using testing::Each;
using testing::ElementsAreArray;

using Bytes = std::vector<uint8_t>;

// --- Templates ---

// Rows as the makers' layout lists them: what stands at an offset.
struct Row {
    std::size_t offset;
    std::string bytes;
};

std::string tag(char name, std::size_t length) {
    return {name, static_cast<char>(length & 0xFF), static_cast<char>(length >> 8)};
}

std::string word(const char* name, int length) {
    return std::string(name) + static_cast<char>(length);
}

struct Layout {
    std::size_t size;
    std::size_t checksum;
    std::vector<Row> rows;
    void (*init)(void*);
    void (*sum)(void*);
};

const Layout& q4() {
    static const Layout kLayout{
        685,
        333,
        {
            {0, tag('\x82', 16)},         {19, tag('\x90', 234)},        {22, word("PN", 16)},
            {41, word("EC", 16)},         {60, word("SL", 24)},          {87, word("NA", 12)},
            {102, word("V0", 8)},         {113, word("V1", 32)},         {148, word("V2", 6)},
            {157, word("V3", 8)},         {168, word("V4", 2)},          {173, word("V5", 8)},
            {184, word("V6", 8)},         {195, word("V7", 24)},         {222, word("V8", 24)},
            {249, word("V9", 24)},        {276, word("VA", 24)},         {330, word("RV", 80)},
            {334, std::string(79, '\0')}, {413, tag('\x91', 252)},       {416, word("VC", 24)},
            {443, word("VD", 24)},        {470, word("VE", 24)},         {497, word("VF", 8)},
            {508, word("RW", 173)},       {511, std::string(173, '\0')}, {684, "\x78"},
        },
        vpd_init_Q4,
        vpd_chksum_Q4};
    return kLayout;
}

const Layout& q3() {
    static const Layout kLayout{
        512,
        176,
        {
            {0, tag('\x82', 16)},         {19, tag('\x90', 234)},        {22, word("PN", 16)},
            {41, word("EC", 16)},         {60, word("SL", 16)},          {79, word("NA", 12)},
            {94, word("V0", 6)},          {103, word("V1", 6)},          {112, word("V2", 6)},
            {121, word("V3", 6)},         {130, word("V4", 2)},          {135, word("V5", 6)},
            {144, word("V6", 6)},         {153, word("V7", 2)},          {158, word("V8", 2)},
            {163, word("V9", 2)},         {168, word("VA", 2)},          {173, word("RV", 80)},
            {177, std::string(79, '\0')}, {256, tag('\x91', 252)},       {259, word("VC", 16)},
            {278, word("VD", 16)},        {297, word("VE", 16)},         {316, word("VF", 16)},
            {335, word("RW", 173)},       {338, std::string(173, '\0')}, {511, "\x78"},
        },
        vpd_init_Q3,
        vpd_chksum_Q3};
    return kLayout;
}

class VpdTemplate : public testing::TestWithParam<const Layout*> {};

INSTANTIATE_TEST_SUITE_P(
    Generations, VpdTemplate, testing::Values(&q3(), &q4()),
    [](const auto& instance) { return instance.param == &q3() ? "Q3" : "Q4"; });

TEST_P(VpdTemplate, WritesTagsKeywordsLengthsAndZerosAndNothingElse) {
    const Layout& layout = *GetParam();
    Bytes vpd(layout.size + 8, 0xA5);
    layout.init(vpd.data());
    Bytes expected(layout.size + 8, 0xA5);
    for (const Row& row : layout.rows) {
        std::copy(
            row.bytes.begin(), row.bytes.end(),
            expected.begin() + static_cast<std::ptrdiff_t>(row.offset));
    }
    EXPECT_EQ(vpd, expected);
}

TEST_P(VpdTemplate, BytesThroughTheChecksumSumUpToAllOnes) {
    const Layout& layout = *GetParam();
    Bytes vpd(layout.size, 0x37);
    layout.init(vpd.data());
    const Bytes before = vpd;
    layout.sum(vpd.data());
    const auto end = vpd.begin() + static_cast<std::ptrdiff_t>(layout.checksum) + 1;
    EXPECT_EQ(std::accumulate(vpd.begin(), end, 0U) & 0xFF, 0xFFU);
    vpd[layout.checksum] = before[layout.checksum];
    EXPECT_EQ(vpd, before);
}

TEST_P(VpdTemplate, NullHasNoEffect) {
    GetParam()->init(nullptr);
    GetParam()->sum(nullptr);
}

TEST(VpdTemplateTables, RowsDoNotOverlapAndStandInOrder) {
    for (const kx::adapter::VpdTemplate* const layout :
         {&kx::adapter::kQ3VpdTemplate, &kx::adapter::kQ4VpdTemplate}) {
        std::size_t end = 0;
        for (const kx::adapter::VpdHeader& header : layout->headers) {
            EXPECT_GE(header.offset, end) << header.bytes[0] << header.bytes[1];
            end = header.value();
            const bool is_tag = (header.bytes[0] & 0x80) != 0;
            end += is_tag && header.bytes[0] != 0x82 ? 0 : is_tag ? 16 : header.bytes[2];
        }
        EXPECT_EQ(end, layout->end) << "the end tag follows the last value";
        for (const kx::adapter::VpdZeros& zeros : layout->reserved) {
            EXPECT_LE(zeros.offset + zeros.length, layout->end);
        }
    }
}

TEST(VpdValue, IsAsLongAsItsLengthByteSays) {
    Bytes vpd(685, 'x');
    vpd_init_Q4(vpd.data());
    std::copy_n("SERIAL", 6, vpd.begin() + 63);
    const auto& layout = kx::adapter::kQ4VpdTemplate;
    EXPECT_EQ(vpd_value(layout, vpd, "SL"), "SERIAL" + std::string(18, 'x'));
    EXPECT_EQ(vpd_value(layout, vpd, "V4"), "xx");
    EXPECT_EQ(vpd_value(layout, vpd, "ZZ"), "");
    vpd[62] = 2;
    EXPECT_EQ(vpd_value(layout, vpd, "SL"), "SE");
}

TEST(VpdValue, IsCutAtTheEndOfTheData) {
    Bytes vpd(65, 'x');
    vpd[62] = 255;
    EXPECT_EQ(kx::adapter::vpd_value(kx::adapter::kQ4VpdTemplate, vpd, "SL"), "xx");
    EXPECT_EQ(kx::adapter::vpd_value(kx::adapter::kQ4VpdTemplate, vpd, "NA"), "");
    vpd[1] = 0xFF;
    vpd[2] = 0xFF;
    EXPECT_EQ(kx::adapter::vpd_identifier(vpd).size(), 62U);
    EXPECT_EQ(kx::adapter::vpd_identifier(std::span(vpd).first(2)), "");
}

TEST(VpdIdentifier, HasALengthOfTwoBytesTheLowOneFirst) {
    Bytes vpd(685, 'x');
    vpd[1] = 4;
    vpd[2] = 1;
    EXPECT_EQ(kx::adapter::vpd_identifier(vpd).size(), 260U);
}

// --- EEPROM images ---

TEST(EepromImage, PartsAreCopiedFromTheirPlaces) {
    Bytes image(KX_Q4_EEPROM_SIZE);
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<uint8_t>(i ^ (i >> 8));
    }
    const auto part = [&](std::size_t start, std::size_t length) {
        const auto from = image.begin() + static_cast<std::ptrdiff_t>(start);
        return Bytes(from, from + static_cast<std::ptrdiff_t>(length));
    };
    struct Copy {
        void (*copy)(const void*, void*);
        std::size_t start;
        std::size_t length;
    };
    for (const Copy& row :
         {Copy{eeprom2vpd_Q4, 0x400, 512}, Copy{eeprom2sercfg_Q4, 0x7C00, 1024},
          Copy{eeprom2vpd_Q3, 0xC00, 512}, Copy{eeprom2sercfg_Q3, 0x1000, 4096}}) {
        Bytes out(row.length + 1, 0xEE);
        row.copy(image.data(), out.data());
        Bytes expected = part(row.start, row.length);
        expected.push_back(0xEE);
        EXPECT_EQ(out, expected) << row.start;
        row.copy(nullptr, out.data());
        row.copy(image.data(), nullptr);
        EXPECT_EQ(out, expected);
    }
}

TEST(EepromImage, ThatIsNullIsNotRead) {
    EXPECT_EQ(
        test::printed([] {
            eeprom_rd_all_Q4(0, 0x80, nullptr);
            eeprom_rd_all_Q3(0, 0x80, nullptr);
        }),
        "");
}

TEST(EepromImage, IsNotReadWithoutTheCapability) {
    std::string image(KX_Q4_EEPROM_SIZE, 'x');
    EXPECT_EQ(
        test::printed([&] {
            eeprom_rd_all_Q4(0, 0, image.data());
            eeprom_rd_all_Q3(0, 0, image.data());
        }),
        "\n\n");
    EXPECT_EQ(image, std::string(KX_Q4_EEPROM_SIZE, 'x'));
}

// --- Entries ---

// VPD of 512 bytes with a product name and keyword entries.
Bytes make_vpd(const std::string& product, const std::string& entries) {
    std::string text =
        tag('\x82', product.size()) + product + tag('\x90', entries.size()) + entries;
    text.resize(KX_VPD_READ_SIZE, '\0');
    return {text.begin(), text.end()};
}

std::string entry(const std::string& name, const std::string& value) {
    return name + static_cast<char>(value.size()) + value;
}

using Found = std::vector<std::pair<int, std::string>>;

Found parse(const Bytes& vpd) {
    std::vector<KxVpdEntry> entries(KX_VPD_MOST_ENTRIES);
    uint32_t count = 0;
    parse_vpd(vpd.data(), entries.data(), &count);
    EXPECT_LE(count, entries.size());
    Found found;
    for (uint32_t i = 0; i < count; ++i) {
        found.emplace_back(entries[i].index, entries[i].value);
    }
    return found;
}

TEST(VpdEntries, KnownKeywordsInAnyOrder) {
    EXPECT_THAT(
        parse(make_vpd(
            "Q520-CR", entry("V5", "vvvvvvvv") + entry("NA", "000743112233") + entry("EC", "x") +
                           entry("SN", "SERIAL") + entry("V0", "0") + entry("PN", "PART-1"))),
        ElementsAreArray(Found{
            {0, "Q520-CR"},
            {5, "vvvvvvvv"},
            {3, "000743112233"},
            {2, "SERIAL"},
            {4, "0"},
            {1, "PART-1"}}));
}

TEST(VpdEntries, RepeatedKeywordsAreRepeatedEntries) {
    EXPECT_THAT(
        parse(make_vpd("", entry("PN", "1") + entry("PN", "2"))),
        ElementsAreArray(Found{{0, ""}, {1, "1"}, {1, "2"}}));
}

TEST(VpdEntries, KeywordsBehindTheReadOnlyPartAreNotSeen) {
    Bytes vpd = make_vpd("Q5", entry("PN", "1") + entry("SN", "2"));
    // The part ends where its first entry does.
    vpd[3 + 2 + 1] = static_cast<uint8_t>(entry("PN", "1").size());
    EXPECT_THAT(parse(vpd), ElementsAreArray(Found{{0, "Q5"}, {1, "1"}}));
}

TEST(VpdEntries, EntryThatBeginsBelowTheEndIsTakenWhole) {
    Bytes vpd = make_vpd("Q5", entry("PN", "1") + entry("SN", "long value"));
    vpd[3 + 2 + 1] = static_cast<uint8_t>(entry("PN", "1").size() + 2);
    EXPECT_THAT(parse(vpd), ElementsAreArray(Found{{0, "Q5"}, {1, "1"}, {2, "long value"}}));
}

TEST(VpdEntries, EmptyPartIsTakenForOneOfTheUsualLength) {
    // The product name is so long that the part begins at 256: its low byte is 0, and with a length
    // of 1 the end computes as 0.
    Bytes vpd = make_vpd(std::string(250, 'p'), entry("PN", "1") + entry("SN", "2"));
    vpd[254] = 1;
    vpd[255] = 0;
    EXPECT_THAT(
        parse(vpd), ElementsAreArray(Found{{0, std::string(250, 'p')}, {1, "1"}, {2, "2"}}));
    vpd[254] = 0;
    EXPECT_THAT(parse(vpd), ElementsAreArray(Found{{0, std::string(250, 'p')}}));
}

TEST(VpdEntries, StartOfThePartEntersTheEndByItsLowByte) {
    Bytes vpd = make_vpd(std::string(252, 'p'), entry("PN", "1") + entry("SN", "2"));
    EXPECT_THAT(parse(vpd), ElementsAreArray(Found{{0, std::string(252, 'p')}}));
    vpd[257] = 1;  // 2 + 0x108 - 1 lies behind the start at 258
    EXPECT_EQ(parse(vpd).size(), 3U);
}

TEST(VpdEntries, OnlyTheLowByteOfTheNamesLengthCounts) {
    Bytes vpd = make_vpd("Q5", entry("PN", "1"));
    vpd[2] = 0xFF;
    EXPECT_THAT(parse(vpd), ElementsAreArray(Found{{0, "Q5"}, {1, "1"}}));
}

TEST(VpdEntries, LengthsPastTheDataAreCut) {
    Bytes vpd = make_vpd("Q5", entry("PN", "1"));
    vpd[6] = 0xFF;
    vpd[7] = 0xFF;
    vpd[8 + 2] = 255;
    std::copy_n("SN", 2, vpd.begin() + 8 + 3 + 255);
    vpd[8 + 3 + 255 + 2] = 255;
    std::fill(vpd.begin() + 8 + 3 + 255 + 3, vpd.end(), uint8_t{'s'});
    const Found found = parse(vpd);
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[2], (std::pair<int, std::string>{2, std::string(243, 's')}));
}

TEST(VpdEntries, MostEntriesFit) {
    std::string entries;
    while (entries.size() < 600) {
        entries += entry("PN", "");
    }
    Bytes vpd = make_vpd("", entries);
    EXPECT_EQ(parse(vpd).size(), std::size_t{KX_VPD_MOST_ENTRIES});
}

TEST(VpdEntries, EveryHostileStartIsSurvived) {
    uint32_t state = 1;
    for (int round = 0; round < 2000; ++round) {
        Bytes vpd(KX_VPD_READ_SIZE);  // a sanitizer watches its end
        for (uint8_t& byte : vpd) {
            state = state * 1664525 + 1013904223;
            byte = (state >> 24) % 3 == 0 ? 'P' : (state >> 24) % 3 == 1 ? 'N' : state >> 16 & 0xFF;
        }
        const Found found = parse(vpd);
        EXPECT_GE(found.size(), 1U);
    }
}

TEST(VpdEntries, NullHasNoEffect) {
    const Bytes vpd = make_vpd("Q5", "");
    std::vector<KxVpdEntry> entries(KX_VPD_MOST_ENTRIES);
    uint32_t count = 7;
    parse_vpd(nullptr, entries.data(), &count);
    parse_vpd(vpd.data(), nullptr, &count);
    parse_vpd(vpd.data(), entries.data(), nullptr);
    EXPECT_EQ(count, 7U);
    copy_vpd_fields(nullptr, 1, entries.data());
    copy_vpd_fields(entries.data(), 1, nullptr);
}

TEST(VpdEntries, ValuesAreCopiedIntoTheirFieldsAndCutThere) {
    std::vector<KxVpdEntry> entries(7);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        entries[i].index = static_cast<uint8_t>(i);
        std::memset(entries[i].value, 'a' + static_cast<int>(i), 255);
    }
    Bytes record(sizeof(AdapterInfoRecord), 0);
    copy_vpd_fields(entries.data(), static_cast<uint32_t>(entries.size()), record.data());
    Bytes expected(record.size(), 0);
    struct Field {
        char letter;
        std::size_t offset;
        std::size_t width;
    };
    for (const Field& field :
         {Field{'a', 14, 32}, Field{'b', 78, 32}, Field{'c', 46, 32}, Field{'d', 110, 12},
          Field{'e', 122, 8}, Field{'f', 130, 8}}) {
        std::fill_n(
            expected.begin() + static_cast<std::ptrdiff_t>(field.offset), field.width,
            static_cast<uint8_t>(field.letter));
    }
    EXPECT_EQ(record, expected);
}

TEST(VpdEntries, ShortValuesEndWithTheirNul) {
    std::vector<KxVpdEntry> entries(1);
    entries[0].index = KX_VPD_MAC;
    std::strcpy(entries[0].value, "0007");
    Bytes record(sizeof(AdapterInfoRecord), 'x');
    copy_vpd_fields(entries.data(), 1, record.data());
    EXPECT_EQ(
        std::string(record.begin() + 110, record.begin() + 122), std::string("0007\0xxxxxxx", 12));
}

// --- Names ---

std::string trimmed(std::string field, std::size_t length) {
    kx::adapter::trim_name(field, length);
    return field;
}

TEST(ProductName, SpacesAtItsEndAreCutByOneNul) {
    EXPECT_EQ(trimmed("Q404-CR         ", 16), std::string("Q404-CR\0        ", 16));
    EXPECT_EQ(trimmed("Q404 CR ", 8), std::string("Q404 CR\0", 8));
    EXPECT_EQ(trimmed("Q404-CRxxxxxxxx9", 16), "Q404-CRxxxxxxxx9");
    EXPECT_EQ(trimmed("Q404xxxx", 4), std::string("Q404\0xxx", 8));
}

TEST(ProductName, FirstCharacterStays) {
    EXPECT_EQ(trimmed(std::string(16, ' '), 16), std::string(" \0              ", 16));
    EXPECT_EQ(trimmed("x", 0), std::string(1, '\0'));
    EXPECT_EQ(trimmed("", 0), "");
}

std::string q3_name(uint32_t device_id, const std::string& identifier, std::size_t width) {
    std::string field(width, '.');
    kx::adapter::write_q3_name(field, device_id, identifier);
    return field.c_str();
}

TEST(ProductName, EveryQ3ModelHasOneThatFits) {
    std::vector<std::string> names;
    for (uint32_t id = 0; id < 0x100; ++id) {
        const bool known = (id >= 0x21 && id <= 0x26) || (id >= 0x30 && id <= 0x37);
        const std::string name = q3_name(id, "identifier", 16);
        EXPECT_EQ(name == "identifier", !known) << id;
        if (known) {
            EXPECT_LT(name.size(), 16U);
            EXPECT_THAT(name, testing::StartsWith("Q3"));
            names.push_back(name);
        }
    }
    EXPECT_EQ(names.size(), 14U);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
    EXPECT_EQ(q3_name(0xFFFFFFFF, "identifier", 16), "identifier");
}

TEST(ProductName, IdentifierIsTrimmedAndCutAtItsField) {
    EXPECT_EQ(q3_name(1, "Q3  PRODUCT     ", 32), "Q3  PRODUCT");
    EXPECT_EQ(q3_name(1, std::string(40, 'x'), 16).substr(0, 16), std::string(16, 'x'));
}

// --- MAC addresses ---

std::array<uint8_t, 6> mac_of(std::string_view digits) {
    std::array<uint8_t, 6> mac{};
    kx::adapter::decode_mac(mac, digits);
    return mac;
}

TEST(MacAddress, IsSixPairsOfDigitsInEitherCase) {
    EXPECT_EQ(mac_of("0007431aBcDf"), (std::array<uint8_t, 6>{0, 7, 0x43, 0x1A, 0xBC, 0xDF}));
}

TEST(MacAddress, OtherCharactersCountAsAllOnesWhereverTheyStand) {
    EXPECT_EQ(mac_of("g11ggg/1:0`@"), (std::array<uint8_t, 6>{0xF1, 0x0F, 0xEF, 0xF1, 0xF0, 0xEF}));
}

TEST(MacAddress, MissingDigitsLeaveZeros) {
    EXPECT_EQ(mac_of("0102030"), (std::array<uint8_t, 6>{1, 2, 3, 0, 0, 0}));
    EXPECT_EQ(mac_of(""), (std::array<uint8_t, 6>{}));
}

// --- Ports ---

TEST(PortCounts, EveryProductHasOneTwoOrFour) {
    int products = 0;
    for (unsigned id = 0; id < 0x10000; ++id) {
        char text[8];
        std::snprintf(text, sizeof text, "%x", id);
        const bool known = (id >= 0x4000 && id <= 0x4016) || (id >= 0x5000 && id <= 0x5016);
        const uint8_t ports = getPortsQ4(text);
        EXPECT_EQ(ports == 1 || ports == 2 || ports == 4, known) << text;
        EXPECT_EQ(ports == 0, !known) << text;
        products += known ? 1 : 0;
    }
    EXPECT_EQ(products, 46);
}

TEST(PortCounts, AreThoseOfTheProducts) {
    const std::set<std::string> one{"400f", "4013", "500f"};
    const std::set<std::string> four{"4010", "4011", "4012", "4014", "5003", "5004",
                                     "5006", "5009", "500a", "500e", "5012"};
    for (const unsigned generation : {0x4000U, 0x5000U}) {
        for (unsigned id = generation; id <= generation + 0x16; ++id) {
            char text[8];
            std::snprintf(text, sizeof text, "%x", id);
            EXPECT_EQ(
                getPortsQ4(text), one.contains(text)    ? 1
                                  : four.contains(text) ? 4
                                                        : 2)
                << text;
        }
    }
}

TEST(PortCounts, FirstFourCharactersCount) {
    EXPECT_EQ(getPortsQ4("4010"), 4);
    EXPECT_EQ(getPortsQ4("4010xyz"), 4);
    EXPECT_EQ(getPortsQ4("5010"), 2);
    EXPECT_EQ(getPortsQ4("401"), 0);
    EXPECT_EQ(getPortsQ4("400A"), 0);
    EXPECT_EQ(getPortsQ4(""), 0);
    EXPECT_EQ(getPortsQ4(nullptr), 0);
}

// --- Chip classes ---

TEST(ChipClass, IsTheFirstDigitOfTheId) {
    for (unsigned id = 0; id < 0x10000; ++id) {
        char text[8];
        std::snprintf(text, sizeof text, "%X", id);
        const int expected = text[0] == '5' ? 2 : text[0] == '4' ? 1 : 0;
        EXPECT_EQ(kx::adapter::chip_class_of(static_cast<uint16_t>(id)), expected) << text;
    }
}

}  // namespace
