// Both lists of adapters with damaged vital product data: the library reports what is present,
// reads nothing past its end, and continues with the next adapter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/vpd.h>

#include <cstring>
#include <kxsim/host.hpp>
#include <kxsim/scenario.hpp>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"

namespace {

using kxsim::Damage;
using testing::Each;
using testing::HasSubstr;

const kxsim::ProductData kProduct{
    .product = "PRODUCT",
    .part_number = "PART",
    .serial = "SERIAL",
    .mac = "00074311ABCD",
    .v0 = "v0",
    .v5 = "v5"};

template <std::size_t N>
std::string bytes(const char (&field)[N]) {
    return {field, N};
}

template <std::size_t N>
std::string text(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

std::string padded(std::string value, std::size_t size) {
    value.resize(size, ' ');
    return value;
}

class DamagedVpd : public testing::Test {
protected:
    ~DamagedVpd() override { EXPECT_EQ(cleanup_and_exit(0), 0); }

    // The adapter's two records.
    void read(const std::string& chip, std::vector<Damage> damage) {
        host_.adapter(
            {.chip = chip,
             .location = chip == "Q3" ? "03:00.0" : "03:00.4",
             .device_id = chip == "Q3" ? 0x20U : 0U,
             .eeprom = {.product_data = kProduct, .damage = std::move(damage), .polls = 0}});
        attached_.emplace(host_.attach());
        build();
    }

    void build() {
        test::told([&] {
            printed_ = test::printed([&] {
                EXPECT_EQ(get_adapter_list(&record_), 0U);
                EXPECT_EQ(get_adapterinfo_list(&info_), 0U);
            });
        });
        ASSERT_NE(record_, nullptr);
        ASSERT_NE(info_, nullptr);
    }

    // The content of the EEPROM, with the template and the checksum.
    std::string under_template(std::size_t size, void (*init)(void*), void (*sum)(void*)) {
        const bool is_q3 = size == KX_Q3_VPD_SIZE;
        std::string vpd = host_.hardware(is_q3 ? "03:00.0" : "03:00.4")
                              .eeprom(is_q3 ? 0xC00 : 0x400, KX_VPD_READ_SIZE);
        vpd.resize(size, '\0');
        init(vpd.data());
        sum(vpd.data());
        return vpd;
    }

    kxsim::Host host_;
    AdapterRecord* record_ = nullptr;
    AdapterInfoRecord* info_ = nullptr;
    std::string printed_;

private:
    std::optional<kxsim::Attached> attached_;
};

// --- Q5, whose keywords are searched ---

TEST_F(DamagedVpd, ErasedQ5NamesItselfWithErasedBytes) {
    read("Q5", {Damage::kErased});
    // The library accepts no length of the name but 255.
    EXPECT_EQ(bytes(info_->product_name), std::string(32, '\xFF'));
    EXPECT_THAT(info_->serial_number, Each(0));
    EXPECT_THAT(info_->part_number, Each(0));
    EXPECT_THAT(info_->mac, Each(0));
    EXPECT_THAT(info_->v0, Each(0));
    EXPECT_THAT(info_->v5, Each(0));
    std::string vpd(KX_Q4_VPD_SIZE, '\0');
    vpd.replace(1, 2, std::string("\x10\0", 2)).replace(3, 16, std::string(16, '\xFF'));
    vpd[62] = 32;
    vpd[89] = 12;
    vpd[175] = 8;
    EXPECT_EQ(std::string(reinterpret_cast<char*>(record_->q4_vpd), vpd.size()), vpd);
}

TEST_F(DamagedVpd, LengthsOfAQ5AreCutAtItsFields) {
    read("Q5", {Damage::kLengths});
    EXPECT_EQ(bytes(info_->product_name), padded("PRODUCT", 16) + std::string(16, '\0'));
    const std::string behind = host_.hardware("03:00.4").eeprom(0x400 + 25, 32);
    EXPECT_EQ(bytes(info_->part_number), behind) << "the part number swallows what follows it";
    EXPECT_THAT(info_->serial_number, Each(0));
    EXPECT_THAT(info_->mac, Each(0));
}

TEST_F(DamagedVpd, Q5WithoutItsEndTagIsReadByItsLengths) {
    read("Q5", {Damage::kNoEndTag, Damage::kChecksum});
    EXPECT_EQ(text(info_->product_name), padded("PRODUCT", 16));
    EXPECT_EQ(bytes(info_->serial_number), padded("SERIAL", 32));
    EXPECT_EQ(text(info_->part_number), padded("PART", 16));
    EXPECT_EQ(bytes(info_->mac), "00074311ABCD");
    EXPECT_EQ(bytes(info_->v0), padded("v0", 8));
    EXPECT_EQ(bytes(info_->v5), padded("v5", 8));
}

TEST_F(DamagedVpd, Q5WithUnknownKeywordsHasItsNameAlone) {
    read("Q5", {Damage::kKeywords});
    EXPECT_EQ(text(info_->product_name), padded("PRODUCT", 16));
    EXPECT_THAT(info_->serial_number, Each(0));
    EXPECT_THAT(info_->part_number, Each(0));
    EXPECT_THAT(info_->mac, Each(0));
    EXPECT_THAT(info_->v0, Each(0));
    EXPECT_THAT(info_->v5, Each(0));
}

// --- Q4 and Q3, whose template fixes the offset of each value ---

TEST_F(DamagedVpd, ErasedQ4IsErasedBytesUnderTheTemplate) {
    read("Q4", {Damage::kErased});
    EXPECT_EQ(bytes(record_->product_name), std::string(16, '\xFF'));
    EXPECT_THAT(record_->factory_mac, Each(0xEF)) << "no digits";
    EXPECT_THAT(printed_, HasSubstr("vpd length 16\nadp->product_name ff \xFF\n"));
    EXPECT_EQ(
        std::string(reinterpret_cast<char*>(record_->q4_vpd), KX_Q4_VPD_SIZE),
        under_template(KX_Q4_VPD_SIZE, vpd_init_Q4, vpd_chksum_Q4));
    EXPECT_EQ(bytes(info_->serial_number), std::string(24, '\xFF') + std::string(8, '\0'));
    EXPECT_EQ(bytes(info_->part_number), std::string(16, '\xFF') + std::string(16, '\0'));
    EXPECT_EQ(bytes(info_->mac), std::string(12, '\xFF'));
}

TEST_F(DamagedVpd, ErasedQ3IsErasedBytesUnderTheTemplate) {
    read("Q3", {Damage::kErased});
    EXPECT_EQ(bytes(record_->product_name), std::string(16, '\xFF'));
    EXPECT_EQ(bytes(record_->serial_number), std::string(16, '\xFF'));
    EXPECT_THAT(record_->factory_mac, Each(0xEF));
    EXPECT_EQ(
        std::string(reinterpret_cast<char*>(record_->q3_vpd), KX_Q3_VPD_SIZE),
        under_template(KX_Q3_VPD_SIZE, vpd_init_Q3, vpd_chksum_Q3));
    EXPECT_EQ(bytes(info_->v5), "\xFF\xFF" + std::string(6, '\0'));
}

TEST_F(DamagedVpd, LengthsKeywordsAndEndTagOfAQ4DoNotCount) {
    read("Q4", {Damage::kLengths, Damage::kKeywords, Damage::kNoEndTag, Damage::kChecksum});
    EXPECT_EQ(text(record_->product_name), "PRODUCT");
    EXPECT_THAT(record_->factory_mac, testing::ElementsAre(0, 7, 0x43, 0x11, 0xAB, 0xCD));
    EXPECT_EQ(text(info_->part_number), padded("PART", 16));
    EXPECT_EQ(text(info_->serial_number), padded("SERIAL", 24));
    EXPECT_EQ(record_->q4_vpd[684], 0x78);
}

TEST_F(DamagedVpd, LengthsKeywordsAndEndTagOfAQ3DoNotCount) {
    read("Q3", {Damage::kLengths, Damage::kKeywords, Damage::kNoEndTag, Damage::kChecksum});
    EXPECT_EQ(text(record_->product_name), "PRODUCT");
    EXPECT_EQ(bytes(record_->serial_number), padded("SERIAL", 16));
    EXPECT_EQ(text(info_->mac), "00074311ABCD");
    EXPECT_EQ(text(info_->v5), "v5");
    EXPECT_EQ(record_->q3_vpd[511], 0x78);
}

// --- The scenario with all of them ---

class DamagedHost : public testing::Test {
protected:
    DamagedHost() {
        kxsim::load_scenario(host_, kxsim::find_scenario("damaged-vpd"));
        attached_.emplace(host_.attach());
    }
    ~DamagedHost() override { cleanup_and_exit(0); }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
};

TEST_F(DamagedHost, EveryAdapterIsInBothLists) {
    AdapterRecord* first = nullptr;
    AdapterInfoRecord* first_info = nullptr;
    std::string printed;
    const std::string told = test::told([&] {
        printed = test::printed([&] {
            EXPECT_EQ(get_adapter_list(&first), 0U);
            EXPECT_EQ(get_adapterinfo_list(&first_info), 0U);
        });
    });
    std::map<int, std::string> names;
    for (const AdapterInfoRecord* info = first_info; info != nullptr; info = info->next) {
        names[info->bus] = text(info->product_name);
    }
    EXPECT_EQ(names.size(), 9U);
    EXPECT_EQ(names[6], padded("Q404-CR", 16));
    EXPECT_EQ(names[7], "") << "without the capability";
    EXPECT_EQ(names[8], "") << "without its register";
    EXPECT_EQ(names[9], "Q320-CR");
    std::size_t records = 0;
    for (const AdapterRecord* record = first; record != nullptr; record = record->next) {
        ++records;
        if (record->bus == 9) {
            EXPECT_THAT(record->q3_option_rom, Each(0)) << "no version without its fourth part";
        }
    }
    EXPECT_EQ(records, 9U);
    EXPECT_THAT(told, HasSubstr("ERROR: Capability 03 not found.\n"));
    EXPECT_THAT(told, HasSubstr("ERROR: PCI configuration write/read check failed.\n"));
    EXPECT_THAT(printed, HasSubstr("WARNING: vpdcheck  failed for Q4 card\n"));
}

}  // namespace
