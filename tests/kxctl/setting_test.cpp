// Settings as users name them: parsing, fields, and kxctl's tables beside the library's.
#include "settings/setting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/settings.h>

#include <cstring>
#include <set>

#include "../../src/settings/iwarp_table.hpp"
#include "commands/set_commands.hpp"
#include "failure/failure.hpp"
#include "settings/port_settings.hpp"
#include "support/offload_table.hpp"

namespace {

using namespace kx::ctl;

struct Record {
    char text[4];
    char flag[2];
    std::uint8_t byte;
    std::int8_t small;
    std::uint16_t half;
    std::uint32_t word;
    std::int64_t wide;
} __attribute__((packed));

constexpr Setting kText{"text", "", 1, offsetof(Record, text), 4, Form::kText};
constexpr Setting kFlag{"flag", "", 2, offsetof(Record, flag), 2, Form::kText, kOnOff};
constexpr Setting kByte{"byte", "", 4, offsetof(Record, byte), 1, Form::kUnsigned};
constexpr Setting kSmall{"small", "", 8, offsetof(Record, small), 1, Form::kSigned};
constexpr Setting kHalf{"half", "", 16, offsetof(Record, half), 2, Form::kUnsigned};
constexpr Setting kWord{"word", "", 32, offsetof(Record, word), 4, Form::kUnsigned};
constexpr Setting kWide{"wide", "", 64, offsetof(Record, wide), 8, Form::kSigned};
constexpr Setting kHidden{"hidden", "", 128, 0, 4, Form::kText, kNoWords, false};
constexpr Setting kAct{"act", "", 256, 0, 0, Form::kAction, kDo};

TEST(Setting, HoldsWhatItsFieldCan) {
    struct Row {
        const Setting& setting;
        std::int64_t value;
        bool holds;
    };
    const Row rows[] = {
        {kText, 999, true},         {kText, 1000, false},
        {kText, -99, true},         {kText, -100, false},
        {kFlag, 9, true},           {kFlag, 10, false},
        {kFlag, -1, false},         {kByte, 0, true},
        {kByte, 255, true},         {kByte, 256, false},
        {kByte, -1, false},         {kSmall, 127, true},
        {kSmall, 128, false},       {kSmall, -128, true},
        {kSmall, -129, false},      {kHalf, 65535, true},
        {kHalf, 65536, false},      {kWord, 4294967295, true},
        {kWord, 4294967296, false}, {kWide, INT64_MAX, true},
        {kWide, INT64_MIN, true},   {kAct, 1, true},
        {kAct, 0, false},           {kAct, 2, false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.setting.holds(row.value), row.holds) << row.setting.key << row.value;
        if (row.holds && row.setting.form != Form::kAction) {
            Record record{};
            row.setting.put_into(&record, row.value);
            EXPECT_EQ(row.setting.value_in(&record), row.value) << row.setting.key;
        }
    }
}

TEST(Setting, PutsNothingBesideItsField) {
    for (const Setting& setting : {kText, kFlag, kByte, kSmall, kHalf, kWord, kWide, kAct}) {
        Record record;
        std::memset(static_cast<void*>(&record), 0xEE, sizeof record);
        setting.put_into(&record, 1);
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&record);
        for (std::size_t k = 0; k < sizeof record; ++k) {
            if (k < setting.offset || k >= setting.offset + setting.width) {
                EXPECT_EQ(bytes[k], 0xEE) << setting.key << k;
            }
        }
    }
}

TEST(Setting, ReadsNoValueOutOfWhatIsNone) {
    Record record{};
    EXPECT_EQ(kText.value_in(&record), std::nullopt) << "an empty text";
    std::memcpy(record.text, "12x", 4);
    EXPECT_EQ(kText.value_in(&record), std::nullopt);
    std::memcpy(record.text, "1234", 4);
    EXPECT_EQ(kText.value_in(&record), 1234) << "a text without its NUL";
    EXPECT_EQ(kHidden.value_in(&record), std::nullopt);
    EXPECT_EQ(kAct.value_in(&record), std::nullopt);
}

TEST(Setting, ReadsNumbersAndWords) {
    struct Row {
        const Setting& setting;
        const char* text;
        std::optional<std::int64_t> value;
    };
    const Row rows[] = {
        {kWord, "0", 0},
        {kWord, "1500", 1500},
        {kWord, "0x5dc", 1500},
        {kWord, "0X5DC", 1500},
        {kWord, "0100", 100},
        {kWord, "-1", -1},
        {kWord, "-0x10", -16},
        {kWord, "9223372036854775807", INT64_MAX},
        {kWord, "9223372036854775808", std::nullopt},
        {kWord, "99999999999999999999", std::nullopt},
        {kWord, "", std::nullopt},
        {kWord, "-", std::nullopt},
        {kWord, "0x", std::nullopt},
        {kWord, "1 ", std::nullopt},
        {kWord, " 1", std::nullopt},
        {kWord, "+1", std::nullopt},
        {kWord, "1.5", std::nullopt},
        {kWord, "on", std::nullopt},
        {kFlag, "on", 1},
        {kFlag, "off", 0},
        {kFlag, "ON", std::nullopt},
        {kFlag, "1", 1},
        {kAct, "on", 1},
        {kAct, "off", std::nullopt},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.setting.parse(row.text), row.value) << row.text;
    }
    EXPECT_EQ(kFlag.text_of(0), "off");
    EXPECT_EQ(kFlag.text_of(1), "on");
    EXPECT_EQ(kFlag.text_of(2), "2");
    EXPECT_EQ(kWord.text_of(1), "1");
}

std::string refusal(const std::vector<std::string>& words) {
    constexpr Setting kSettings[] = {kFlag, kByte};
    try {
        static_cast<void>(parse_changes(kSettings, words));
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::kUsage);
        return failure.what();
    }
    return "";
}

TEST(Setting, IsDescribedByItsColumns) {
    constexpr std::int64_t kSizes[] = {1, 2, 4};
    const Setting rows[] = {
        {.key = "", .help = "all", .change_bit = 1},
        {.key = "", .help = "range", .change_bit = 1, .range = {2, 9}, .unit = "us"},
        {.key = "", .help = "", .change_bit = 1, .range = {0, 1}},
        {.key = "", .help = "choices", .change_bit = 1, .choices = kSizes, .condition = "later"},
        {.key = "", .help = "limit", .change_bit = 1, .unit = "bytes", .limit = 0},
        {.key = "", .help = "words", .change_bit = 1, .words = kHalfFull},
    };
    std::vector<std::string> texts;
    for (const Setting& row : rows) {
        texts.push_back(row.description());
    }
    EXPECT_THAT(
        texts, testing::ElementsAre(
                   "all", "range, 2 to 9 us", "0 or 1", "choices, 1, 2 or 4, later",
                   "limit, in bytes, up to the driver's limit", "words, full or half"));
    EXPECT_EQ(rows[5].description_of_numbers(), "words, 0 half, 1 full");
}

TEST(Changes, AreRefusedWithTheirReason) {
    EXPECT_EQ(refusal({"byte=1", "flag=on"}), "");
    EXPECT_EQ(refusal({"byte"}), "byte is not of the form key=value");
    EXPECT_EQ(refusal({""}), " is not of the form key=value");
    EXPECT_EQ(refusal({"=1"}), "Unknown setting  (see --help)");
    EXPECT_EQ(refusal({"bytes=1"}), "Unknown setting bytes; did you mean byte? (see --help)");
    EXPECT_EQ(refusal({"byte=1", "byte=1"}), "byte is given twice");
    EXPECT_EQ(refusal({"byte=256"}), "byte cannot be \"256\": ");
    EXPECT_EQ(refusal({"byte=1=2"}), "byte cannot be \"1=2\": ");
    EXPECT_EQ(refusal({"flag=maybe"}), "flag cannot be \"maybe\": on or off");
}

void expect_distinct_keys(std::span<const Setting> settings) {
    std::set<std::string> keys;
    for (const Setting& setting : settings) {
        EXPECT_TRUE(keys.insert(setting.key).second) << setting.key;
        EXPECT_NE(setting.description(), "") << setting.key;
    }
}

TEST(PortSettingTable, HasDistinctKeys) { expect_distinct_keys(port_settings()); }

TEST(OffloadSettingTable, AgreesWithTheLibrarys) {
    expect_distinct_keys(offload::settings());
    ASSERT_EQ(offload::settings().size(), kx::kOffloadParameters.size() + 1);
    for (std::size_t k = 0; k < kx::kOffloadParameters.size(); ++k) {
        const Setting& ours = offload::settings()[k];
        const kx::OffloadParameter& theirs = kx::kOffloadParameters[k];
        EXPECT_STREQ(ours.key, theirs.name);
        EXPECT_EQ(ours.offset, theirs.offset) << ours.key;
        EXPECT_EQ(ours.width, theirs.width) << ours.key;
        EXPECT_EQ(ours.change_bit, theirs.change_bit) << ours.key;
        EXPECT_EQ(ours.form, Form::kSigned) << ours.key;
        if (ours.range.is_limited()) {
            const std::int64_t most = INT64_MAX >> (64 - 8 * ours.width);  // that the field holds
            EXPECT_EQ(ours.range.least, std::max(theirs.min, -most - 1)) << ours.key;
            EXPECT_EQ(ours.range.most, std::min(theirs.max, most)) << ours.key;
        }
    }
    EXPECT_STREQ(offload::settings().back().key, "tx_coal");
}

TEST(IwarpSettingTable, AgreesWithTheLibrarys) {
    expect_distinct_keys(iwarp::settings());
    ASSERT_EQ(iwarp::settings().size(), kx::settings::kIwarpParameters.size());
    for (std::size_t k = 0; k < kx::settings::kIwarpParameters.size(); ++k) {
        const Setting& ours = iwarp::settings()[k];
        const kx::settings::IwarpParameter& theirs = kx::settings::kIwarpParameters.at(k);
        EXPECT_STREQ(ours.key, theirs.name);
        EXPECT_EQ(ours.offset, theirs.offset) << ours.key;
        EXPECT_EQ(ours.width, 4U) << ours.key;
        EXPECT_EQ(ours.change_bit, theirs.change_bit) << ours.key;
    }
}

}  // namespace
