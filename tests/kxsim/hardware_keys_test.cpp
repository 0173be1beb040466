// The [flash] and [eeprom] tables of a scenario's adapters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <kxsim/host.hpp>
#include <kxsim/scenario.hpp>
#include <string>
#include <vector>

#include "support/file_text.hpp"
#include "support/scratch_directory.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class HardwareKeys : public testing::Test {
protected:
    // A host whose one adapter has these keys, from a scenario file of the directory.
    static kxsim::Hardware load(
        kxsim::Host& host, const test::ScratchDirectory& directory, const std::string& keys,
        const std::string& chip = "Q4", const std::string& location = "03:00.4") {
        const std::string file = directory.write(
            "one.toml", std::string("[[adapter]]\nchip = \"") + chip + "\"\nlocation = \"" +
                            location + "\"\n" + keys);
        load_scenario(host, file);
        return host.hardware(location);
    }
    kxsim::Hardware load(const std::string& keys) { return load(host_, directory_, keys); }

    std::string complaint(const std::string& keys) {
        kxsim::Host host;
        try {
            load(host, directory_, keys);
        } catch (const kxsim::ScenarioError& error) {
            return error.what();
        }
        return {};
    }

    std::string content(const std::string& name) { return test::file_text(directory_ / name); }

    test::ScratchDirectory directory_;
    kxsim::Host host_;
};

TEST_F(HardwareKeys, FlashIsAsLargeAsItsCodeSays) {
    EXPECT_EQ(load("[adapter.flash]\ncapacity_code = 20\n").flash_size(), 1U << 20);
    kxsim::Host q3;
    EXPECT_EQ(load(q3, directory_, "", "Q3", "03:00.0").flash_size(), 512U << 10);
}

TEST_F(HardwareKeys, PiecesAreWhatTheFlashHolds) {
    const kxsim::Hardware hardware = load(
        "[adapter.flash]\n"
        "[[adapter.flash.piece]]\naddress = 0\nbytes = [0x55, 0xAA]\n"
        "[[adapter.flash.piece]]\naddress = 0x70000\ntext = \"CBIO\"\n");
    EXPECT_EQ(hardware.flash(0, 3), "\x55\xAA\xFF");
    EXPECT_EQ(hardware.flash(0x70000, 5), "CBIO\xFF");
}

const char kSomeProductData[] =
    "[adapter.eeprom.product_data]\nproduct = \"NAME\"\npart_number = \"P\"\n"
    "serial = \"S\"\nmac = \"000743112233\"\nv0 = \"a\"\nv5 = \"b\"\n";

// The bytes at which an image with a damage differs from one without.
std::vector<std::size_t> differences(const std::string& one, const std::string& other) {
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < one.size(); ++i) {
        if (one[i] != other[i]) {
            places.push_back(i);
        }
    }
    return places;
}

TEST_F(HardwareKeys, DamageChangesWhatItsNameSays) {
    const auto image = [this](const std::string& damage) {
        kxsim::Host host;
        const std::string keys = "[adapter.eeprom]\ndamage = [" + damage + "]\n";
        return load(host, directory_, keys + kSomeProductData, "Q5").eeprom(0x400, 512);
    };
    const std::string sound = image("");
    const std::size_t checksum = 22 + 19 + 11 + 35 + 15 + 11 + 11 + 3;
    const std::size_t end = checksum + 10 + 10 + 1;
    ASSERT_EQ(sound[end], 'x') << "the end tag";
    EXPECT_EQ(image("\"erased\""), std::string(512, '\xFF'));
    EXPECT_THAT(differences(sound, image("\"no-end-tag\"")), ElementsAre(end));
    EXPECT_THAT(differences(sound, image("\"lengths\"")), ElementsAre(20, 21, 24));
    EXPECT_THAT(
        differences(sound, image("\"keywords\"")),
        ElementsAre(22, 23, 41, 42, 52, 53, 87, 88, 102, 103, 113, 114));
    EXPECT_THAT(differences(sound, image("\"checksum\"")), ElementsAre(checksum));
    EXPECT_THAT(
        differences(sound, image("\"checksum\", \"no-end-tag\"")), ElementsAre(checksum, end));
}

TEST_F(HardwareKeys, DamageHasToHaveANameAndSomethingToDamage) {
    EXPECT_THAT(
        complaint(std::string("[adapter.eeprom]\ndamage = [\"rust\"]\n") + kSomeProductData),
        HasSubstr("damage \"rust\" is none of erased, no-end-tag, lengths, keywords, checksum"));
    EXPECT_THAT(
        complaint("[adapter.eeprom]\ndamage = [\"erased\"]\n"), HasSubstr("no product_data"));
}

TEST_F(HardwareKeys, ProductDataAreWrittenWhereTheChipHasThem) {
    const std::string keys =
        "[adapter.eeprom.product_data]\nproduct = \"NAME\"\npart_number = \"P\"\n"
        "serial = \"S\"\nmac = \"000743112233\"\nv0 = \"a\"\nv5 = \"b\"\n";
    const std::string q4 = load(keys).eeprom(0x400, 512);
    EXPECT_EQ(q4.substr(0, 7), std::string("\x82\x10\0NAME", 7));
    EXPECT_EQ(q4.substr(19, 6), std::string("\x90\x87\x01PN\x10", 6));
    EXPECT_EQ(
        q4.substr(87, 15),
        "NA\x0C"
        "000743112233");
    kxsim::Host host;
    const std::string q3 = load(host, directory_, keys, "Q3", "03:00.0").eeprom(0xC00, 512);
    EXPECT_EQ(
        q3.substr(79, 15),
        "NA\x0C"
        "000743112233");
    EXPECT_EQ(
        q3.substr(153, 5),
        "V7\x02"
        "b ");
}

TEST_F(HardwareKeys, EepromPiecesGoOverTheProductData) {
    const kxsim::Hardware hardware = load(
        "[adapter.eeprom]\npolls = 0\n"
        "[adapter.eeprom.product_data]\nproduct = \"NAME\"\n"
        "[[adapter.eeprom.piece]]\naddress = 0x403\ntext = \"G\"\n");
    EXPECT_EQ(hardware.eeprom(0x403, 4), "GAME");
}

TEST_F(HardwareKeys, FileKeepsWhatIsWritten) {
    const std::string keys =
        "[adapter.flash]\nfile = \"flash.bin\"\n"
        "[[adapter.flash.piece]]\naddress = 16\ntext = \"first\"\n"
        "[adapter.eeprom]\nfile = \"eeprom.bin\"\n";
    {
        kxsim::Host host;
        kxsim::Hardware hardware = load(host, directory_, keys);
        EXPECT_EQ(hardware.flash(16, 5), "first");
        hardware.write_flash(32, "kept");
        hardware.write_eeprom(0x400, "too");
    }
    EXPECT_EQ(content("flash.bin").substr(32, 4), "kept");
    EXPECT_EQ(content("eeprom.bin").substr(0x400, 3), "too");
    {
        kxsim::Host host;
        kxsim::Hardware hardware = load(host, directory_, keys);
        EXPECT_EQ(hardware.flash(32, 4), "kept");
        EXPECT_EQ(hardware.flash(16, 5), "first");
        hardware.write_flash(16, "other");
    }
    kxsim::Host host;
    EXPECT_EQ(load(host, directory_, keys).flash(16, 5), "other") << "pieces are for a new file";
}

TEST_F(HardwareKeys, FaultsAreInForceFromTheStart) {
    EXPECT_EQ(
        complaint("[adapter.flash]\nstuck_busy_at = 1\nendless_write_at = 2\nflipped_bit_at = 3\n"
                  "power_cut_at = 4\nmisread_at = 5\nstuck_sector = 6\nmanufacturer = 0xEF\ntype = "
                  "1\nbusy_polls = 3\n"
                  "program_polls = 4\nerase_polls = 5\n"
                  "[adapter.eeprom]\ncapability = true\nsilent = true\nloses_writes = true\n"),
        "");
}

TEST_F(HardwareKeys, MistakesAreToldWithTheirPlace) {
    EXPECT_THAT(complaint("[adapter.flash]\nmanufacturer = 256\n"), HasSubstr("one.toml:5:1: "));
    EXPECT_THAT(complaint("[adapter.flash]\ncolour = 1\n"), HasSubstr("colour"));
    EXPECT_THAT(complaint("[adapter.eeprom]\ncolour = 1\n"), HasSubstr("colour"));
    EXPECT_THAT(complaint("[[adapter.flash.piece]]\ntext = \"x\"\n"), HasSubstr("address"));
    EXPECT_THAT(
        complaint("[[adapter.flash.piece]]\naddress = 0x400000\ntext = \"x\"\n"),
        HasSubstr("past the end"));
    EXPECT_THAT(
        complaint("[adapter.eeprom.product_data]\nmac = \"longer than twelve\"\n"),
        HasSubstr("longer than 12 characters"));
}

}  // namespace
