// vpd show: the decoder on sound and hostile bytes, and the command on simulated hosts.
#include "library/vpd_decode.hpp"

#include <gmock/gmock.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/vpd.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "kxctl/on_host.hpp"
#include "support/file_text.hpp"

namespace {

using kx::ctl::decode_vpd;
using kx::ctl::VpdChecksum;
using kx::ctl::VpdContent;
using test::json_on;
using test::run_on;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Json = nlohmann::json;

using Bytes = std::vector<std::uint8_t>;

// --- The decoder ---

std::string part(char tag, const std::string& data) {
    return std::string{
               tag, static_cast<char>(data.size() & 0xFF), static_cast<char>(data.size() >> 8)} +
           data;
}

std::string field(const std::string& keyword, const std::string& value) {
    return keyword + static_cast<char>(value.size()) + value;
}

VpdContent decode(const std::string& text) { return decode_vpd(Bytes(text.begin(), text.end())); }

constexpr char kProduct = '\x82';
constexpr char kReadOnly = '\x90';
constexpr char kReadWrite = '\x91';

TEST(VpdDecoder, TellsEveryKeywordWithItsPlace) {
    const VpdContent content = decode(
        part(kProduct, "NAME") + part(kReadOnly, field("PN", "12 ") + field("V0", "")) +
        part(kReadWrite, field("RW", std::string(2, '\0'))) + "x behind the end");
    EXPECT_EQ(content.product, "NAME");
    ASSERT_EQ(content.fields.size(), 3U);
    EXPECT_EQ(content.fields[0].keyword, "PN");
    EXPECT_EQ(content.fields[0].offset, 13U);
    EXPECT_EQ(content.fields[0].value, "12 ");
    EXPECT_FALSE(content.fields[0].writable);
    EXPECT_EQ(content.fields[1].value, "");
    EXPECT_TRUE(content.fields[2].writable);
    EXPECT_EQ(content.size, 28U);
    EXPECT_EQ(content.checksum, VpdChecksum::kNone);
    EXPECT_TRUE(content.sound());
    EXPECT_EQ(content.value("PN"), "12 ");
    EXPECT_EQ(content.value("SN"), "");
}

VpdChecksum checksum_with(int offset) {
    std::string text = part(kProduct, "N") + part(kReadOnly, "RV\x03" + std::string("\0\0\0", 3));
    int sum = 0;
    for (const char byte : text) {
        sum += static_cast<unsigned char>(byte);
    }
    text[text.size() - 3] = static_cast<char>(offset - sum);
    text += 'x';
    const VpdContent content = decode(text);
    EXPECT_EQ(content.sound(), content.checksum != VpdChecksum::kBad);
    return content.checksum;
}

TEST(VpdDecoder, KnowsBothChecksums) {
    EXPECT_EQ(checksum_with(0), VpdChecksum::kGood);
    EXPECT_EQ(checksum_with(0xFF), VpdChecksum::kComplement);
    for (int offset = 1; offset < 0xFF; ++offset) {
        EXPECT_EQ(checksum_with(offset), VpdChecksum::kBad) << offset;
    }
}

TEST(VpdDecoder, TellsWhatDoesNotFit) {
    EXPECT_THAT(decode("").problems, ElementsAre("All bytes are erased"));
    EXPECT_THAT(decode("\xFF\xFF").problems, ElementsAre("All bytes are erased"));
    EXPECT_THAT(decode("\x11").problems, ElementsAre("Unknown tag 0x11 at 0"));
    EXPECT_THAT(decode("\x82\x01").problems, ElementsAre("The tag at 0 is cut off"));
    EXPECT_THAT(decode(part(kProduct, "N")).problems, ElementsAre("There is no end tag"));
    EXPECT_THAT(
        decode(std::string("\x90\x05\0PN\x09", 6) + "abx").problems,
        ElementsAre("PN at 3 claims 9 bytes, 2 are left"));
    EXPECT_THAT(
        decode(part(kReadOnly, "PN") + "x").problems, ElementsAre("The keyword at 3 is cut off"));
    EXPECT_THAT(
        decode(part(kReadOnly, "P\n\x01z") + "x").problems,
        ElementsAre("There is no keyword at 3"));
    const VpdContent long_part = decode(std::string("\x90\xFF\xFF") + field("PN", "1"));
    EXPECT_THAT(
        long_part.problems,
        ElementsAre("The part at 0 claims 65535 bytes, 4 are left", "There is no end tag"));
    EXPECT_EQ(long_part.value("PN"), "1");
}

TEST(VpdDecoder, EmptyChecksumFieldIsNone) {
    EXPECT_EQ(decode(part(kReadOnly, field("RV", "")) + "x").checksum, VpdChecksum::kNone);
}

TEST(VpdDecoder, SurvivesEveryHostileByte) {
    std::uint32_t state = 7;
    constexpr std::array<std::uint8_t, 8> kTags{0x82, 0x90, 0x91, 0x78, 'P', 'N', 'R', 'V'};
    for (int round = 0; round < 5000; ++round) {
        Bytes bytes(round % 64);  // a sanitizer watches its end
        for (std::uint8_t& byte : bytes) {
            state = state * 1664525 + 1013904223;
            byte =
                (state >> 30) != 0 ? kTags[state >> 20 & 7] : static_cast<std::uint8_t>(state >> 8);
        }
        const VpdContent content = decode_vpd(bytes);
        EXPECT_LE(content.size, bytes.size());
        for (const kx::ctl::VpdField& each : content.fields) {
            EXPECT_LE(each.offset + each.value.size(), bytes.size());
        }
    }
}

TEST(VpdDecoder, ReadsWhatTheLibrarysQ3TemplateWrites) {
    Bytes vpd(KX_Q3_VPD_SIZE, ' ');
    vpd_init_Q3(vpd.data());
    vpd_chksum_Q3(vpd.data());
    const VpdContent content = decode_vpd(vpd);
    EXPECT_THAT(content.problems, IsEmpty());
    EXPECT_EQ(content.fields.size(), 21U);
    EXPECT_EQ(content.checksum, VpdChecksum::kComplement);
    EXPECT_EQ(content.size, 512U);
}

TEST(VpdTexts, LoseTheirFilling) {
    EXPECT_EQ(kx::ctl::vpd_text("ab  "), "ab");
    EXPECT_EQ(kx::ctl::vpd_text(std::string("ab\0 \0", 5)), "ab");
    EXPECT_EQ(kx::ctl::vpd_text("\xFF\xFF"), "");
    EXPECT_EQ(kx::ctl::vpd_text(" "), "");
    EXPECT_EQ(kx::ctl::vpd_hex("\x0F\xF0"), "0ff0");
    EXPECT_FALSE(kx::ctl::is_plain_text("a\n"));
}

TEST(VpdMeanings, AreToldForWhatIsKnown) {
    EXPECT_EQ(kx::ctl::vpd_meaning("SL"), "Serial number");
    EXPECT_EQ(kx::ctl::vpd_meaning("VB"), "Maker's own");
    EXPECT_EQ(kx::ctl::vpd_meaning("ZZ"), "");
}

// --- The command ---

class VpdShow : public testing::Test {
protected:
    kxsim::Host host_;
};

kxsim::Adapter adapter(const std::string& chip) {
    return {
        .chip = chip,
        .location = chip == "Q3" ? "03:00.0" : "03:00.4",
        .eeprom = {
            .product_data = kxsim::ProductData{
                .product = "NAME",
                .part_number = "0123456789ABCDEF",
                .serial = "SERIAL",
                .mac = "000743112233",
                .v0 = "v0",
                .v5 = "v5"}}};
}

Json find_field(const Json& reply, const std::string& keyword) {
    for (const Json& each : reply.at("fields")) {
        if (each.at("keyword") == keyword) {
            return each;
        }
    }
    return {};
}

TEST_F(VpdShow, TellsTheFieldsOfEveryGeneration) {
    for (const auto& [chip, serial, v5] :
         {std::tuple{"Q3", "SL", "V7"}, {"Q4", "SL", "V5"}, {"Q5", "SN", "V5"}}) {
        kxsim::Host host;
        host.adapter(adapter(chip));
        const Json reply = json_on(host, {"vpd", "show", adapter(chip).location});
        EXPECT_EQ(reply.at("product"), "NAME");
        EXPECT_EQ(reply.at("checksum"), "good");
        EXPECT_EQ(reply.at("problems"), Json::array());
        EXPECT_EQ(find_field(reply, "PN").at("text"), "0123456789ABCDEF");
        EXPECT_EQ(find_field(reply, serial).at("text"), "SERIAL") << chip;
        EXPECT_EQ(find_field(reply, v5).at("text"), "v5") << chip;
        EXPECT_EQ(find_field(reply, "NA").at("hex"), "303030373433313132323333");
        EXPECT_TRUE(find_field(reply, "RV").at("text").is_null());
        EXPECT_TRUE(find_field(reply, "RW").at("writable"));
    }
}

TEST_F(VpdShow, RawFileHoldsTheBytesOfTheEeprom) {
    host_.adapter(adapter("Q4"));
    const std::string file = std::filesystem::temp_directory_path() / "kxctl-vpd-raw.bin";
    std::ofstream(file) << std::string(1000, 'x');
    const test::Result result = run_on(host_, {"vpd", "show", "03:00.4", "--raw", file});
    EXPECT_EQ(result.exit, 0);
    EXPECT_THAT(result.out, HasSubstr("0123456789ABCDEF"));
    EXPECT_EQ(test::file_text(file), host_.hardware("03:00.4").eeprom(0x400, 512));
    std::filesystem::remove(file);
}

TEST_F(VpdShow, RawFileThatCannotBeWrittenIsTold) {
    host_.adapter(adapter("Q5"));
    for (const auto& [file, exit, text] :
         {std::tuple{"/nosuch/file", 3, "kxctl: /nosuch/file: No such file or directory\n"},
          {"/dev/full", 1, "kxctl: /dev/full: No space left on device\n"}}) {
        const test::Result result = run_on(host_, {"vpd", "show", "03:00.4", "--raw", file});
        EXPECT_EQ(result.exit, exit);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, text);
    }
}

TEST_F(VpdShow, HostileValuesStayOffTheTerminal) {
    kxsim::Adapter hostile = adapter("Q5");
    hostile.eeprom.product_data->product = "\033[2J";
    hostile.eeprom.product_data->serial = "\x01\x02";
    host_.adapter(hostile);
    const test::Result result = run_on(host_, {"vpd", "show", "03:00.4"});
    EXPECT_EQ(result.out.find('\033'), result.out.npos);
    EXPECT_THAT(result.out, HasSubstr("0x0102\n"));
    EXPECT_EQ(result.exit, 0);
}

TEST_F(VpdShow, UnknownLocationIsNotFound) {
    host_.adapter(adapter("Q4"));
    for (const char* location : {"03:00.5", "0000:03:00.5"}) {
        const test::Result result = run_on(host_, {"vpd", "show", location});
        EXPECT_EQ(result.exit, 3);
        EXPECT_EQ(
            result.err,
            std::string("kxctl: There is no adapter at ") + location + "; did you mean 03:00.4?\n");
    }
}

}  // namespace
