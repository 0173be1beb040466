// The texts of link settings: every row of every table, and the result when no bit of a table is
// set.
#include "inventory/link_texts.hpp"

#include <gtest/gtest.h>

namespace {

using namespace kx::inventory;

struct BitRow {
    uint32_t bit;
    const char* text;
};

constexpr BitRow kConnectors[] = {
    {0x80, "TP "}, {0x100, "AUI "}, {0x800, "BNC "}, {0x200, "MII "}, {0x400, "FIBRE "}};

constexpr BitRow kSupported[] = {{0x1, "10baseT/Half "},     {0x2, "10baseT/Full "},
                                 {0x4, "100baseT/Half "},    {0x8, "100baseT/Full "},
                                 {0x10, "1000baseT/Half "},  {0x20, "1000baseT/Full "},
                                 {0x8000, "2500baseX/Full"}, {0x1000, "10000baseT/Full"}};

constexpr BitRow kAdvertised[] = {{0x1, "10baseT/Half "},      {0x2, "10baseT/Full "},
                                  {0x4, "100baseT/Half "},     {0x8, "100baseT/Full "},
                                  {0x10, "1000baseT/Half "},   {0x20, "1000baseT/Full "},
                                  {0x8000, "2500baseX/Full "}, {0x1000, "10000baseT/Full "}};

constexpr BitRow kWake[] = {{0x1, "p"},  {0x2, "u"},  {0x4, "m"}, {0x8, "b"},
                            {0x10, "a"}, {0x20, "g"}, {0x40, "s"}};

// Every bit alone gives its text, all bits give all texts in the table's order, and every bit
// outside the table gives what an empty mask gives.
template <std::size_t N>
void expect_table(
    std::string (*text_of)(uint32_t), const BitRow (&rows)[N], const std::string& none) {
    std::string all;
    uint32_t mask = 0;
    for (const BitRow& row : rows) {
        EXPECT_EQ(text_of(row.bit), row.text) << std::hex << row.bit;
        all += row.text;
        mask |= row.bit;
    }
    EXPECT_EQ(text_of(mask), all);
    EXPECT_EQ(text_of(0xFFFFFFFF), all);
    EXPECT_EQ(text_of(~mask), none);
}

TEST(LinkTexts, SupportedConnectorsStandInTheirOrder) {
    expect_table(connector_list_text, kConnectors, "N/A");
    EXPECT_EQ(connector_list_text(0), "N/A");
}

TEST(LinkTexts, LastTwoSupportedModesHaveNoBlankBehindThem) {
    expect_table(supported_modes_text, kSupported, "Not Reported");
    EXPECT_EQ(supported_modes_text(0), "Not Reported");
    EXPECT_EQ(supported_modes_text(0x9000), "2500baseX/Full10000baseT/Full");
}

TEST(LinkTexts, EveryAdvertisedModeHasABlankBehindIt) {
    expect_table(advertised_modes_text, kAdvertised, "Not reported");
    EXPECT_EQ(advertised_modes_text(0), "Not reported");
    EXPECT_EQ(advertised_modes_text(0x9000), "2500baseX/Full 10000baseT/Full ");
}

TEST(LinkTexts, AllTextsFitTheirFields) {
    EXPECT_LT(connector_list_text(0xFFFFFFFF).size(), 64U);
    EXPECT_LT(supported_modes_text(0xFFFFFFFF).size(), 255U);
    EXPECT_LT(advertised_modes_text(0xFFFFFFFF).size(), 255U);
    EXPECT_LT(wake_letters(0xFFFFFFFF).size(), 16U);
    for (int port = 0; port < 256; ++port) {
        EXPECT_LT(connector_text(static_cast<uint8_t>(port)).size(), 25U) << port;
    }
}

TEST(LinkTexts, ConnectorHasATextForEveryPortByte) {
    const std::pair<int, const char*> rows[] = {
        {0, "Twisted Pair"},         {1, "AUI"},    {2, "MII"},    {3, "FIBRE"}, {4, "BNC"},
        {5, "Direct Attach Copper"}, {239, "None"}, {255, "Other"}};
    for (int port = 0; port < 256; ++port) {
        std::string expected = "Unknown! (" + std::to_string(port) + ")";
        for (const auto& [number, text] : rows) {
            expected = number == port ? text : expected;
        }
        EXPECT_EQ(connector_text(static_cast<uint8_t>(port)), expected);
    }
}

TEST(LinkTexts, TransceiverIsInternalExternalOrUnknown) {
    EXPECT_STREQ(transceiver_text(0), "Internal");
    EXPECT_STREQ(transceiver_text(1), "External");
    for (const int other : {2, 3, 4, 255}) {
        EXPECT_STREQ(transceiver_text(static_cast<uint8_t>(other)), "Unknown") << other;
    }
}

TEST(LinkTexts, WakeOnLanIsALetterForEachMode) {
    expect_table(wake_letters, kWake, "");
    EXPECT_EQ(wake_letters(0x7F), "pumbags");
}

TEST(LinkTexts, EmptyWakeOnLanMaskReadsDisabled) { EXPECT_EQ(wake_letters(0), "d"); }

}  // namespace
