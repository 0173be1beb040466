// Vital product data as the real lspci decodes them on the simulated bus, compared with the
// library's data about the same adapter.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/vpd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <kxsim/host.hpp>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "support/output.hpp"
#include "support/shell.hpp"

namespace {

using testing::HasSubstr;

const kxsim::ProductData kProduct{
    .product = "KX-PRODUCT",
    .part_number = "110-1146-40",
    .serial = "PT04140007",
    .mac = "00074311ABCD",
    .v0 = "v0",
    .v5 = "v5"};

// lspci shows fields that it does not know as bytes.
std::string text_of_bytes(const std::string& shown) {
    std::string text;
    for (std::size_t at = 0; at + 1 < shown.size(); at += 3) {
        text += static_cast<char>(std::stoi(shown.substr(at, 2), nullptr, 16));
    }
    return text;
}

std::string trimmed(std::string_view text) {
    return std::string(text.substr(0, text.find_last_not_of(std::string_view(" \0", 2)) + 1));
}

// The fields that lspci shows, by keyword; the name of the product has the keyword "".
std::map<std::string, std::string> fields_of(const std::string& output) {
    constexpr std::string_view kName = "Product Name: ";
    std::map<std::string, std::string> fields;
    for (const std::string& line : test::lines_of(output)) {
        if (const std::size_t at = line.find(kName); at != line.npos) {
            fields[""] = trimmed(line.substr(at + kName.size()));
        }
        const std::size_t open = line.find("\t[");
        const std::size_t colon = line.find(": ");
        if (open != line.npos && line.substr(open + 4, 1) == "]" && colon != line.npos) {
            const std::string value = line.substr(colon + 2);
            const bool unnamed = line.substr(open + 6, 7) == "Unknown";
            fields[line.substr(open + 2, 2)] = trimmed(unnamed ? text_of_bytes(value) : value);
        }
    }
    return fields;
}

class Lspci : public testing::TestWithParam<const char*> {
protected:
    ~Lspci() override { cleanup_and_exit(0); }

    void start() {
        host_.adapter({.chip = chip_, .location = location_, .eeprom = {.product_data = kProduct}});
        attached_.emplace(host_.attach());
    }

    [[nodiscard]] std::string decode() const {
        return test::shell("lspci -vv -s " + location_ + " 2>&1").output;
    }

    // The records of the adapter; what the library prints is dropped.
    AdapterInfoRecord info() {
        AdapterInfoRecord* first = nullptr;
        test::printed([&] { EXPECT_EQ(get_adapterinfo_list(&first), 0U); });
        return *first;
    }
    AdapterRecord record() {
        AdapterRecord* first = nullptr;
        test::printed([&] { EXPECT_EQ(get_adapter_list(&first), 0U); });
        return *first;
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
    std::string chip_ = GetParam();
    std::string location_ = chip_ == "Q3" ? "03:00.0" : "03:00.4";
    std::string serial_ = chip_ == "Q5" ? "SN" : "SL";
};

INSTANTIATE_TEST_SUITE_P(Chips, Lspci, testing::Values("Q3", "Q4", "Q5"), [](const auto& instance) {
    return std::string(instance.param);
});

template <std::size_t N>
std::string text(const char (&field)[N]) {
    return trimmed({field, strnlen(field, N)});
}

TEST_P(Lspci, TellsTheMakersDataAsTheLibraryDoes) {
    start();
    const std::string output = decode();
    auto fields = fields_of(output);
    const AdapterInfoRecord adapter = info();
    EXPECT_EQ(fields[""], "KX-PRODUCT") << output;
    EXPECT_EQ(fields[serial_], text(adapter.serial_number));
    EXPECT_EQ(fields["NA"], text(adapter.mac));
    if (chip_ != "Q3") {  // its name is the model, and its record has no part number
        EXPECT_EQ(fields[""], text(adapter.product_name));
        EXPECT_EQ(fields["PN"], text(adapter.part_number));
        EXPECT_EQ(fields["V0"], text(adapter.v0));
        EXPECT_EQ(fields["V5"], text(adapter.v5));
    }
    EXPECT_THAT(output, HasSubstr("checksum good"));
    EXPECT_THAT(output, HasSubstr("\tEnd\n"));
}

// Q5 data follow no template.
class LspciOnTemplates : public Lspci {};

INSTANTIATE_TEST_SUITE_P(
    Chips, LspciOnTemplates, testing::Values("Q3", "Q4"),
    [](const auto& instance) { return std::string(instance.param); });

TEST_P(LspciOnTemplates, TellTheSameNameAndNumbers) {
    start();
    const AdapterRecord adapter = record();
    const bool is_q3 = chip_ == "Q3";
    const std::string vpd =
        is_q3 ? std::string(reinterpret_cast<const char*>(adapter.q3_vpd), sizeof adapter.q3_vpd)
              : std::string(reinterpret_cast<const char*>(adapter.q4_vpd), sizeof adapter.q4_vpd);
    host_.hardware(location_).write_eeprom(is_q3 ? 0xC00 : 0x400, vpd);
    const std::string output = decode();
    auto fields = fields_of(output);
    EXPECT_EQ(fields[""], "KX-PRODUCT") << output;
    EXPECT_EQ(fields["PN"], kProduct.part_number);
    EXPECT_EQ(fields["SL"], kProduct.serial);
    EXPECT_EQ(fields["NA"], kProduct.mac);
    EXPECT_EQ(fields["V0"], kProduct.v0);
    if (is_q3) {
        // The checksum is the complement of the sum, for which lspci expects its negative.
        EXPECT_THAT(output, HasSubstr("checksum bad, 79 byte(s) reserved"));
        EXPECT_THAT(output, HasSubstr("173 byte(s) free"));
        EXPECT_THAT(output, HasSubstr("\tEnd\n"));
    } else {
        // The length of the read-only part in the template ends within "V9".
        EXPECT_THAT(output, testing::Not(HasSubstr("[VA]")));
    }
}

TEST_P(Lspci, SeesDamage) {
    host_.adapter(
        {.chip = chip_,
         .location = location_,
         .eeprom = {.product_data = kProduct, .damage = {kxsim::Damage::kChecksum}}});
    attached_.emplace(host_.attach());
    EXPECT_THAT(decode(), HasSubstr("checksum bad"));
}

// --- The file that lspci reads ---

class VpdFile : public testing::Test {
protected:
    int open_file(int flags) {
        return open("/sys/bus/pci/devices/0000:03:00.4/vpd", flags | O_CLOEXEC);
    }

    kxsim::Host host_;
};

TEST_F(VpdFile, BeginsWithTheProductDataAndEndsWithTheEeprom) {
    host_.adapter({.chip = "Q4", .location = "03:00.4", .eeprom = {.product_data = kProduct}});
    const auto attached = host_.attach();
    const int file = open_file(O_RDWR);
    ASSERT_GE(file, 0);
    std::string bytes(40000, '\0');
    ASSERT_EQ(read(file, bytes.data(), 3), 3) << "a descriptor goes on where it stands";
    ASSERT_EQ(read(file, bytes.data() + 3, bytes.size()), 32768 - 0x400 - 3);
    EXPECT_EQ(read(file, bytes.data(), 1), 0);
    EXPECT_EQ(bytes.substr(0, 512), host_.hardware("03:00.4").eeprom(0x400, 512));
    ASSERT_EQ(pwrite(file, "NAME", 4, 3), 4);
    EXPECT_EQ(host_.hardware("03:00.4").eeprom(0x403, 4), "NAME");
    EXPECT_EQ(pwrite(file, "NAME", 4, 32768), -1);
    EXPECT_EQ(errno, EFBIG);
    close(file);
}

TEST_F(VpdFile, OfASilentEepromTimesOut) {
    host_.adapter({.chip = "Q4", .location = "03:00.4", .eeprom = {.silent = true}});
    const auto attached = host_.attach();
    const int file = open_file(O_RDONLY);
    ASSERT_GE(file, 0);
    char byte = 0;
    EXPECT_EQ(read(file, &byte, 1), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    close(file);
}

TEST_F(VpdFile, IsNotThereWithoutTheCapability) {
    host_.adapter({.chip = "Q4", .location = "03:00.4", .eeprom = {.capability = false}});
    const auto attached = host_.attach();
    EXPECT_EQ(open_file(O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
