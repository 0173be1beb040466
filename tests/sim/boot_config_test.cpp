// The boot configuration record in Q4 and Q5 flash.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/boot_config.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include "sim/adapter_bench.hpp"
#include "support/output.hpp"

namespace {

using bench::counting;
using bench::Store;
using testing::Each;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::size_t kConfig = 0x70000;
constexpr std::size_t kRecord = 1664;

// Transfers of an identification, and of a read of n words with its own identification.
constexpr uint32_t kIdentify = 2;
constexpr uint32_t read_transfers(uint32_t words) { return kIdentify + 2 + words; }

class BootConfig : public test::OutputTest {
protected:
    BootConfig() { adapter_.fill(16, std::array<uint8_t, 4>{1, 2, 3, 4}); }

    // Counts begin at 0; nothing is printed on standard error.
    template <class Call>
    auto run(const Call& call) {
        adapter_.forget();
        const auto result = OutputTest::run(call);
        EXPECT_EQ(told_, "");
        return result;
    }

    void no_option_rom() { adapter_.fill(16, std::array<uint8_t, 4>{0xFF, 0xFF, 0xFF, 0xFF}); }

    bench::Adapter adapter_{bench::Family::kQ4};
};

// --- BIOS version ---

TEST_F(BootConfig, BiosVersionIsFourBytesOfTheOptionRom) {
    EXPECT_EQ(run([] { return read_q4biosversion_from_boot(0); }), 0x04030201U);
    EXPECT_EQ(printed_, "Q4 Bios Version: 1.2.3.4\n");
    EXPECT_EQ(adapter_.accesses(), 18U + 4U * 256U);
}

TEST_F(BootConfig, BiosVersionOfAnErasedFlashIsAllOnes) {
    no_option_rom();
    EXPECT_EQ(run([] { return read_q4biosversion_from_boot(0); }), 0xFFFFFFFFU);
    EXPECT_EQ(printed_, "Q4 Bios Version: 255.255.255.255\n");
}

TEST_F(BootConfig, BiosVersionThatCannotBeReadIsOne) {
    adapter_.hardware.flash.manufacturer = 0;
    EXPECT_EQ(run([] { return read_q4biosversion_from_boot(0); }), 1U);
    EXPECT_EQ(printed_, "Q4 Bios version read error from flash\n");
}

// --- Read ---

TEST_F(BootConfig, ReadGives1668BytesWithTheBiosVersionInThem) {
    const auto record = counting(1700);
    adapter_.fill(kConfig, record);
    std::vector<uint8_t> buffer(KX_BOOT_CONFIG_BUFFER + 4, 0xEE);
    EXPECT_EQ(run([&] { return read_flash_for_config(0, buffer.data()); }), 0);
    EXPECT_EQ(printed_, "Q4 Bios Version: 1.2.3.4\nQ4 Adapter 0 bios version: 1.2.3.4\n");
    std::vector<uint8_t> expected(record.begin(), record.begin() + KX_BOOT_CONFIG_BUFFER);
    std::iota(expected.begin() + 12, expected.begin() + 16, uint8_t{1});
    expected.insert(expected.end(), 4, 0xEE);
    EXPECT_EQ(buffer, expected);
}

TEST_F(BootConfig, ReadTakesTwoChunksAndTheOptionRomsHead) {
    std::vector<uint8_t> buffer(KX_BOOT_CONFIG_BUFFER);
    EXPECT_EQ(run([&] { return read_flash_for_config(0, buffer.data()); }), 0);
    EXPECT_EQ(adapter_.accesses(), 18 + 4 * 256 + 18 + 4 * 161 + 18 + 4 * 256U);
    EXPECT_THAT(adapter_.addresses(0x0B), ElementsAreArray({0x70000, 0x70400, 0}));
}

TEST_F(BootConfig, ReadMayFillABufferAtAnyAddress) {
    adapter_.fill(kConfig, counting(KX_BOOT_CONFIG_BUFFER));
    std::vector<uint8_t> buffer(KX_BOOT_CONFIG_BUFFER + 1);
    EXPECT_EQ(read_flash_for_config(0, buffer.data() + 1), 0);
    EXPECT_EQ(buffer[1], 1);
}

TEST_F(BootConfig, ReadSucceedsWithoutAnOptionRom) {
    no_option_rom();
    adapter_.fill(kConfig, counting(KX_BOOT_CONFIG_BUFFER));
    std::vector<uint8_t> buffer(KX_BOOT_CONFIG_BUFFER);
    EXPECT_EQ(run([&] { return read_flash_for_config(0, buffer.data()); }), 0);
    EXPECT_EQ(
        printed_,
        "Q4 Bios Version: 255.255.255.255\n"
        "Valid Option Rom is not presented for adapter index: 0\n");
    EXPECT_EQ(buffer, counting(KX_BOOT_CONFIG_BUFFER));
}

TEST_F(BootConfig, ReadTakesTheVersionWordOneForUnreadable) {
    adapter_.fill(16, std::array<uint8_t, 4>{1, 0, 0, 0});
    std::vector<uint8_t> buffer(KX_BOOT_CONFIG_BUFFER);
    EXPECT_EQ(run([&] { return read_flash_for_config(0, buffer.data()); }), 0);
    EXPECT_EQ(
        printed_,
        "Q4 Bios Version: 1.0.0.0\n"
        "Warning: Unable to get the Q4 bios version for the adapter: 0\n");
    EXPECT_EQ(buffer[12], 0xFF);
}

TEST_F(BootConfig, ReadSucceedsWhenOnlyTheVersionCannotBeRead) {
    adapter_.stick_at(read_transfers(256) + read_transfers(161) + 1);
    std::vector<uint8_t> buffer(KX_BOOT_CONFIG_BUFFER);
    EXPECT_EQ(run([&] { return read_flash_for_config(0, buffer.data()); }), 0);
    EXPECT_EQ(
        printed_,
        "Q4 Bios version read error from flash\n"
        "Warning: Unable to get the Q4 bios version for the adapter: 0\n");
}

TEST_F(BootConfig, ReadFailsInEitherChunk) {
    std::vector<uint8_t> buffer(KX_BOOT_CONFIG_BUFFER);
    for (const uint32_t at : {1U, read_transfers(256) + 1}) {
        adapter_.stick_at(at);
        EXPECT_EQ(run([&] { return read_flash_for_config(0, buffer.data()); }), KX_FLASH_INVALID);
        EXPECT_EQ(printed_, "flash read error sizeof conf data 417\n");
        EXPECT_EQ(adapter_.hardware.controller.transfers, at);
    }
    EXPECT_EQ(read_flash_for_config(0, nullptr), KX_FLASH_INVALID);
}

// --- Validity ---

TEST_F(BootConfig, AnyRecordThatBeginsWithItsSignatureIsValid) {
    no_option_rom();
    adapter_.fill(kConfig, std::array<uint8_t, 4>{'C', 'B', 'I', 'O'});
    EXPECT_EQ(run([] { return Is_Valid_q4config_Present(0); }), 0);
    EXPECT_EQ(
        printed_,
        "Q4 Bios Version: 255.255.255.255\n"
        "Valid Option Rom is not presented for adapter index: 0\n"
        "Valid Config header presented\n");
}

TEST_F(BootConfig, RecordWithoutItsSignatureIsInvalid) {
    for (const std::string signature : {"CBIX", "cbio", "XBIO", "CXIO", "CBXO"}) {
        adapter_.fill(kConfig, {reinterpret_cast<const uint8_t*>(signature.data()), 4});
        EXPECT_EQ(run([] { return Is_Valid_q4config_Present(0); }), KX_FLASH_INVALID);
        EXPECT_THAT(printed_, testing::EndsWith("\nIs_Valid_q4config_Present Failed 1\n"));
    }
}

TEST_F(BootConfig, RecordThatCannotBeReadIsInvalid) {
    adapter_.hardware.flash.manufacturer = 0;
    EXPECT_EQ(run([] { return Is_Valid_q4config_Present(0); }), KX_FLASH_INVALID);
    EXPECT_EQ(
        printed_, "flash read error sizeof conf data 417\nIs_Valid_q4config_Present Failed 2\n");
}

// --- Write ---

TEST_F(BootConfig, WriteErasesTheSectorAndWritesSevenPages) {
    std::fill(
        adapter_.content.begin() + 0x60000, adapter_.content.begin() + 0x90000, uint8_t{0x5A});
    const auto record = counting(kRecord);
    EXPECT_EQ(run([&] { return write_flash_for_config(0, record.data()); }), 0);
    EXPECT_EQ(printed_, "sf_size 4194304 sf_nsec 64\n");
    EXPECT_THAT(adapter_.erased_sectors(), ElementsAreArray({7}));
    EXPECT_EQ(adapter_.hardware.flash.programs, 7U);
    EXPECT_EQ(adapter_.bytes(kConfig, kRecord), record);
    EXPECT_THAT(adapter_.bytes(kConfig + kRecord, 0x10000 - kRecord), Each(0xFF));
    EXPECT_THAT(adapter_.bytes(0x60000, 0x10000), Each(0x5A));
    EXPECT_THAT(adapter_.bytes(0x80000, 0x10000), Each(0x5A));
}

TEST_F(BootConfig, WriteTakes3799Accesses) {
    const auto record = counting(kRecord);
    EXPECT_EQ(run([&] { return write_flash_for_config(0, record.data()); }), 0);
    EXPECT_EQ(adapter_.accesses(), 3799U);
}

TEST_F(BootConfig, WriteTellsWhatFailed) {
    const auto record = counting(kRecord);
    const auto write = [&] { return write_flash_for_config(0, record.data()); };
    adapter_.hardware.flash.manufacturer = 0;
    EXPECT_EQ(run(write), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "get flash params sf_size failed\n");
    adapter_.hardware.flash.manufacturer = 0x20;
    adapter_.hardware.flash.capacity_code = 25;
    EXPECT_EQ(run(write), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "get flash params sf_nsec failed\n");
    adapter_.hardware.flash.capacity_code = 22;

    adapter_.hardware.faults.endless_write_at = 1;
    EXPECT_EQ(run(write), KX_FLASH_INVALID);
    EXPECT_EQ(
        printed_,
        "sf_size 4194304 sf_nsec 64\n"
        "erase of flash sector 7 failed, error -11\n"
        "q4_flash_erase_sectors failed\n"
        "flash write error sizeof conf data 1664\n");

    adapter_.repair();
    adapter_.hardware.faults.endless_write_at = 4;
    EXPECT_EQ(run(write), KX_FLASH_INVALID);
    EXPECT_EQ(
        printed_,
        "sf_size 4194304 sf_nsec 64\n"
        "q4_flash_wait_op failed\n"
        "flash write error sizeof conf data 1664\n");
    EXPECT_EQ(adapter_.hardware.flash.programs, 3U) << "nothing is written behind a failing page";

    EXPECT_EQ(write_flash_for_config(0, nullptr), KX_FLASH_INVALID);
}

// --- Defaults ---

// The default record for a number of ports, byte by byte as in the flash.
std::vector<uint8_t> default_record(unsigned ports) {
    std::vector<uint8_t> record(kRecord);
    const auto put = [&](std::size_t offset, std::initializer_list<uint8_t> bytes) {
        std::copy(bytes.begin(), bytes.end(), record.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    put(0, {'C', 'B', 'I', 'O'});
    put(10, {1});
    put(12, {1, 2, 3, 4});
    put(56, {30, 0, 6, 0});
    put(196, {20, 0, 20, 0, 64, 0, 0, 1, 1, 0, 8, 0, 0xBC, 0x0C, 0, 5});
    put(213, {30, 0, 1, 1});
    put(220, {1});
    const std::string name = "iqn.2010-06.com.kestrix:boot:";
    std::copy(name.begin(), name.end(), record.begin() + 304);
    for (unsigned port = 0; port < ports; ++port) {
        put(16 + port, {1});
        put(60 + port, {14});
        put(192 + port, {14});
        put(240 + 4 * port, {0xFF, 0xFF, 0xFF, 0xFF});
        put(280 + port, {1});
    }
    return record;
}

TEST_F(BootConfig, DefaultRecordHasEveryFieldAndEveryPort) {
    for (const unsigned ports : {0U, 1U, 2U, 4U}) {
        EXPECT_EQ(run([&] { return q4_load_default_config(0, ports); }), 0);
        EXPECT_EQ(printed_, "Q4 Bios Version: 1.2.3.4\nsf_size 4194304 sf_nsec 64\n");
        EXPECT_EQ(adapter_.bytes(kConfig, kRecord), default_record(ports)) << ports;
    }
}

TEST_F(BootConfig, DefaultRecordOfMorePortsRunsIntoWhatFollows) {
    EXPECT_EQ(q4_load_default_config(0, 6), 0);
    EXPECT_EQ(adapter_.bytes(kConfig, kRecord), default_record(6));
}

TEST_F(BootConfig, DefaultRecordOfAnyNumberOfPortsStaysARecord) {
    for (const uint32_t ports : {1000U, 1664U, 0xFFFFFFFFU}) {
        EXPECT_EQ(q4_load_default_config(0, ports), 0);
        EXPECT_THAT(adapter_.bytes(kConfig + kRecord, 256), Each(0xFF));
    }
}

TEST_F(BootConfig, DefaultRecordIsNotWrittenWithoutAnOptionRomsVersion) {
    no_option_rom();
    EXPECT_EQ(run([] { return q4_load_default_config(0, 2); }), 0);
    EXPECT_EQ(
        printed_,
        "Q4 Bios Version: 255.255.255.255\n"
        "Valid Option Rom is not presented for adapter index: 0\n");
    adapter_.fill(16, std::array<uint8_t, 4>{1, 0, 0, 0});
    EXPECT_EQ(run([] { return q4_load_default_config(0, 2); }), 0);
    EXPECT_EQ(
        printed_,
        "Q4 Bios Version: 1.0.0.0\n"
        "Warning: Unable to get the Q4 bios version for the adapter: 0\n");
    EXPECT_EQ(adapter_.hardware.flash.erases, 0U);
}

TEST_F(BootConfig, DefaultRecordThatCannotBeWrittenSaysSo) {
    adapter_.hardware.faults.endless_write_at = 1;
    EXPECT_EQ(run([] { return q4_load_default_config(0, 2); }), KX_FLASH_INVALID);
    EXPECT_THAT(
        printed_, testing::EndsWith("flash write error sizeof conf data 1664\n"
                                    "Error: q4_load_default_config failed\n"));
}

TEST(InitiatorName, BaseKeepsItsColonUnderAnEmptySuffix) {
    std::vector<uint8_t> record(kRecord, 0xEE);
    const char base[] = "iqn.2010-06.com.kestrix:boot:";
    const char suffix[12] = {};
    CopyInitiatorName(record.data(), base, suffix, sizeof base);
    std::vector<uint8_t> expected(kRecord, 0xEE);
    std::fill_n(expected.begin() + 304, 42, uint8_t{0});
    std::copy_n(base, 29, expected.begin() + 304);
    EXPECT_EQ(record, expected);
}

TEST(InitiatorName, SuffixGoesOverTheLastByteOfTheBase) {
    std::vector<uint8_t> record(kRecord, 0xEE);
    CopyInitiatorName(record.data(), "abcdef", "0123456789AB", 6);
    EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + 304), "abcde0123456789AB");
    EXPECT_EQ(record[304 + 18], 0xEE);
}

TEST(InitiatorName, StaysWithinTheRecord) {
    std::vector<uint8_t> record(kRecord, 0xEE);  // a sanitizer watches its end
    const std::string base(2000, 'b');
    for (const int length : {1348, 1349, 1355, 1360, 1361, 2000}) {
        CopyInitiatorName(record.data(), base.data(), "0123456789AB", length);
    }
    const std::vector<uint8_t> before = record;
    CopyInitiatorName(record.data(), base.data(), "0123456789AB", -1);
    CopyInitiatorName(record.data(), base.data(), "0123456789AB", INT32_MIN);
    CopyInitiatorName(record.data(), nullptr, "0123456789AB", 4);
    CopyInitiatorName(record.data(), base.data(), nullptr, 4);
    CopyInitiatorName(nullptr, base.data(), "0123456789AB", 4);
    EXPECT_EQ(record, before);
    CopyInitiatorName(record.data(), base.data(), "0123456789AB", 0);
    EXPECT_EQ(record[303], '0');
}

// --- Repair ---

TEST(BootConfigRepair, ErasedFieldsGetTheirDefaultsAndAllElseStays) {
    std::vector<uint8_t> record(kRecord, 0xFF);
    Set_q4config_property_with_Default_Settings(record.data());
    std::vector<uint8_t> expected(kRecord, 0xFF);
    std::copy_n("CBIO", 4, expected.begin());
    expected[58] = 6;
    expected[59] = 0;
    std::fill_n(expected.begin() + 60, 4, uint8_t{14});
    std::fill_n(expected.begin() + 64, 128, uint8_t{0});
    std::fill_n(expected.begin() + 192, 4, uint8_t{14});
    expected[211] = 5;
    EXPECT_EQ(record, expected);
}

TEST(BootConfigRepair, OtherBytesThanErasedOnesStay) {
    for (const uint8_t value : std::array<uint8_t, 4>{0x00, 0x01, 0x7F, 0xFE}) {
        std::vector<uint8_t> record(kRecord, value);
        Set_q4config_property_with_Default_Settings(record.data());
        EXPECT_EQ(std::string(record.begin(), record.begin() + 4), "CBIO");
        EXPECT_THAT(std::vector<uint8_t>(record.begin() + 4, record.end()), Each(value));
    }
    Set_q4config_property_with_Default_Settings(nullptr);
}

// --- Erase ---

TEST_F(BootConfig, EraseTakesItsSectorOnly) {
    EXPECT_EQ(run([] { return q4_erase_config(0); }), 0);
    EXPECT_EQ(printed_, "sf_size 4194304 sf_nsec 64\n");
    EXPECT_THAT(adapter_.erased_sectors(), ElementsAreArray({7}));
}

TEST_F(BootConfig, EraseThatFailsSaysSo) {
    adapter_.hardware.faults.endless_write_at = 1;
    EXPECT_EQ(run([] { return q4_erase_config(0); }), KX_FLASH_INVALID);
    EXPECT_THAT(
        printed_, testing::EndsWith(
                      "Error: q4_erase sizeof conf data 65536\nError: q4_erase_config failed\n"));
}

}  // namespace
