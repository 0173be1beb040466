// The two lists of adapters, byte for byte, on a host with all three generations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/vpd.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr std::size_t kRecord = 7509;
constexpr std::size_t kInfoRecord = 1810;
constexpr char kVersionFile[] = "/lib/firmware/zfab4/q4-config.txt";

// The flash is ready at the first poll, so the counts are those of the protocol.
const kxsim::Flash kQuickFlash{.busy_polls = 0, .program_polls = 0, .erase_polls = 0};

// Bytes of a seed; neighbours differ.
std::string pattern(std::size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 31 + i / 256 + seed) % 251);
    }
    return bytes;
}

std::string with(std::string bytes, std::size_t offset, std::string_view piece) {
    return bytes.replace(offset, piece.size(), piece);
}

// --- The content of the host's adapters ---

const std::string kOptionRom = with(pattern(1024, 3), 0, "\x55\xAA");
const std::string kBootConfig = with(pattern(1668, 5), 0, "CBIO");

kxsim::Flash q4_flash() {
    kxsim::Flash flash = kQuickFlash;
    flash.content = {{0, kOptionRom}, {0x70000, kBootConfig}};
    return flash;
}

const kxsim::ProductData kProduct{
    .product = "Q404-CR",
    .part_number = "PART-4404",
    .serial = "SN0000000000000000000042",
    .mac = "00074311aBcD",
    .v0 = "v0-data",
    .v5 = "v5-data"};

kxsim::Adapter q4() {
    return {
        .chip = "Q4",
        .location = "0001:04:00.4",
        .device_id = 0x4410,
        .flash = q4_flash(),
        .eeprom = {.product_data = kProduct, .content = {{0x1C00, pattern(1024, 7)}}, .polls = 0}};
}

kxsim::Adapter q5() {
    kxsim::ProductData product = kProduct;
    product.product = "Q520-CR";
    product.serial = "PT99000000000000000000000000";
    return {
        .chip = "Q5",
        .location = "05:02.4",
        .device_id = 0x5410,
        .flash = q4_flash(),
        .eeprom = {.product_data = product, .polls = 0}};
}

// Settings with their signature, and an option ROM with the mark and block that identify it.
const std::string kSettings = with(pattern(448, 9), 0, std::string_view("CIB\0\x01", 5));
const std::string kDmBlock = "$DM$0123456789AB";
const std::string kQ3Rom = with(with(std::string(1024, '\0'), 0, "\x55\xAA"), 0x80, kDmBlock);

kxsim::Adapter q3(unsigned device_id = 0x31) {
    kxsim::ProductData product = kProduct;
    product.product = "Q3 PRODUCT";
    product.serial = "SN31000000000031";
    product.v0 = "v0";
    product.v5 = "75";
    kxsim::Flash flash = kQuickFlash;
    flash.content = {{0, kQ3Rom}, {0x30000, kSettings}};
    return {
        .chip = "Q3",
        .location = "03:00.0",
        .device_id = device_id,
        .flash = flash,
        .eeprom = {.product_data = product, .content = {{0x1000, pattern(4096, 11)}}, .polls = 0}};
}

// --- The expected records ---

class Expected {
public:
    explicit Expected(std::size_t size) : bytes_(size, '\0') {}

    Expected& at(std::size_t offset, std::string_view piece) {
        bytes_.replace(offset, piece.size(), piece);
        return *this;
    }
    Expected& at(std::size_t offset, std::initializer_list<int> values) {
        for (const int value : values) {
            bytes_[offset++] = static_cast<char>(value);
        }
        return *this;
    }
    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

// The VPD of an EEPROM in the layout of the generation's template, with its checksum.
std::string normalised(
    const std::string& eeprom, std::size_t size, void (*init)(void*), void (*sum)(void*)) {
    std::string vpd = eeprom + std::string(size - eeprom.size(), '\0');
    init(vpd.data());
    sum(vpd.data());
    return vpd;
}

template <class Record>
std::string bytes_of(const Record* record) {
    return {reinterpret_cast<const char*>(record), offsetof(Record, next)};
}

class AdapterLists : public test::OutputTest {
protected:
    ~AdapterLists() override { EXPECT_EQ(cleanup_and_exit(0), 0); }

    void start(const std::vector<kxsim::Adapter>& adapters) {
        for (const kxsim::Adapter& adapter : adapters) {
            host_.adapter(adapter);
        }
        host_.file(kVersionFile, "version = 0x0500\n");
        attached_.emplace(host_.attach());
    }

    uint32_t list() {
        return run([&] { return get_adapter_list(&first_); });
    }
    uint32_t info_list() {
        return run([&] { return get_adapterinfo_list(&first_info_); });
    }

    kxsim::Hardware hardware(const std::string& location) { return host_.hardware(location); }

    static std::uint64_t accesses(const kxsim::HardwareCounts& counts) {
        return counts.loads + counts.stores;
    }

    kxsim::Host host_;
    AdapterRecord* first_ = nullptr;
    AdapterInfoRecord* first_info_ = nullptr;

private:
    std::optional<kxsim::Attached> attached_;
};

static_assert(sizeof(AdapterRecord) == kRecord && sizeof(AdapterInfoRecord) == kInfoRecord);

// The next pointers are not aligned. A + in front makes a copy where a reference would be taken.

// --- The list of adapters ---

TEST_F(AdapterLists, Q4RecordByteForByte) {
    start({q4()});
    EXPECT_EQ(list(), 0U);
    ASSERT_NE(first_, nullptr);
    const std::string eeprom = hardware("0001:04:00.4").eeprom(0x400, 512);
    Expected expected(kRecord - 8);
    expected.at(0, {0, 1, 0, 4, 0, 4})
        .at(6, {KESTRIX_PCI_VENDOR_ID & 0xFF, KESTRIX_PCI_VENDOR_ID >> 8, 0x10, 0x44})
        .at(10, std::string_view("Q404-CR\0        ", 16))
        .at(42, {0x00, 0x07, 0x43, 0x11, 0xAB, 0xCD})
        .at(48, {4})
        .at(1021, normalised(eeprom, 685, vpd_init_Q4, vpd_chksum_Q4))
        .at(1706, pattern(1024, 7))
        .at(5834, {1, 1, 2})
        .at(5837, with(kBootConfig, 12, kOptionRom.substr(16, 4)).substr(0, 1664));
    EXPECT_EQ(bytes_of(first_), expected.bytes());
    EXPECT_EQ(+first_->next, nullptr);
    EXPECT_EQ(first_, g_KestrixAdapters);
    EXPECT_EQ(g_adapter_count, 1);
    EXPECT_EQ(mmapd_addr, 0U);
}

TEST_F(AdapterLists, Q5RecordByteForByte) {
    start({q5()});
    EXPECT_EQ(list(), 0U);
    ASSERT_NE(first_, nullptr);
    // The serial number runs into the MAC address, which is written behind it.
    Expected expected(kRecord - 8);
    expected.at(0, {0, 0, 0, 5, 2, 4})
        .at(6, {KESTRIX_PCI_VENDOR_ID & 0xFF, KESTRIX_PCI_VENDOR_ID >> 8, 0x10, 0x54})
        .at(48, {2})
        .at(1022, {16, 0})
        .at(1024, "Q520-CR         ")
        .at(1083, {32})
        .at(1084, "PT99000000000000000000000000    ")
        .at(1110, {12})
        .at(1111, "00074311aBcD")
        .at(1196, {8})
        .at(1197, "v5-data ")
        .at(5834, {2, 1, 2})
        .at(5837, with(kBootConfig, 12, kOptionRom.substr(16, 4)).substr(0, 1664));
    EXPECT_EQ(bytes_of(first_), expected.bytes());
}

TEST_F(AdapterLists, Q3RecordByteForByte) {
    start({q3()});
    EXPECT_EQ(list(), 0U);
    ASSERT_NE(first_, nullptr);
    const std::string eeprom = hardware("03:00.0").eeprom(0xC00, 512);
    Expected expected(kRecord - 8);
    expected.at(0, {0, 0, 0, 3, 0, 0})
        .at(6, {KESTRIX_PCI_VENDOR_ID & 0xFF, KESTRIX_PCI_VENDOR_ID >> 8, 0x31, 0})
        .at(10, "Q320-CR")
        .at(26, "SN31000000000031")
        .at(42, {0x00, 0x07, 0x43, 0x11, 0xAB, 0xCD})
        .at(49, kSettings.substr(0, 444))
        .at(493, kDmBlock)
        .at(509, normalised(eeprom, 512, vpd_init_Q3, vpd_chksum_Q3))
        .at(1706, pattern(4096, 11));
    EXPECT_EQ(bytes_of(first_), expected.bytes());
    EXPECT_EQ(first_->chip_class, KX_CLASS_Q3);
}

TEST_F(AdapterLists, RecordsAreLinkedInTheOrderOfTheBus) {
    start({q3(), q4(), q5()});
    EXPECT_EQ(list(), 0U);
    std::vector<int> classes;
    std::vector<int> indexes;
    for (const AdapterRecord* record = first_; record != nullptr; record = record->next) {
        classes.push_back(record->chip_class);
        indexes.push_back(record->adapter);
    }
    EXPECT_THAT(classes, ElementsAre(0, 1, 2));
    EXPECT_THAT(indexes, ElementsAre(0, 1, 2));
    EXPECT_EQ(g_adapter_count, 3);
}

TEST_F(AdapterLists, ListPrintsWhatAgentsExpect) {
    start({q4()});
    EXPECT_EQ(list(), 0U);
    std::string expected = "get_adapter_list:: Entered function...\n\nvpd length 16\n";
    const std::string name("Q404-CR\0        ", 16);
    for (const char character : name) {
        char line[64];
        const int length = std::snprintf(
            line, sizeof line, "adp->product_name %x %c\n", static_cast<unsigned char>(character),
            character);
        expected.append(line, static_cast<std::size_t>(length));
    }
    const std::array<unsigned, 6> mac{0x00, 0x07, 0x43, 0x11, 0xAB, 0xCD};
    for (std::size_t i = 0; i < mac.size(); ++i) {
        char line[64];
        std::snprintf(line, sizeof line, "adp->factory_mac[%zu] %x \n", i, mac[i]);
        expected += line;
    }
    const auto version = [](std::size_t byte) {
        return std::to_string(static_cast<unsigned char>(kOptionRom[byte]));
    };
    const std::string text =
        version(16) + "." + version(17) + "." + version(18) + "." + version(19);
    expected += "Q4 Bios Version: " + text + "\nQ4 Adapter 0 bios version: " + text +
                "\nValid OPROM presented\nFound the Conf File[" + kVersionFile +
                "] Signature: version = 0x0500\n\nget_adapter_list: Exit function...\n";
    EXPECT_EQ(printed_, expected);
    EXPECT_EQ(told_, "");
}

TEST_F(AdapterLists, Q4WithoutVpdHasItsPlaceClassAndDefaultVersion) {
    kxsim::Adapter adapter = q4();
    adapter.eeprom.capability = false;
    start({adapter});
    EXPECT_EQ(list(), 0U);
    Expected expected(kRecord - 8);
    expected.at(0, {0, 1, 0, 4, 0, 4})
        .at(6, {KESTRIX_PCI_VENDOR_ID & 0xFF, KESTRIX_PCI_VENDOR_ID >> 8, 0x10, 0x44})
        .at(48, {4})
        .at(5834, {1, 0, 2});
    EXPECT_EQ(bytes_of(first_), expected.bytes());
    EXPECT_THAT(
        printed_, StartsWith("get_adapter_list:: Entered function...\n"
                             "WARNING: vpdcheck  failed for Q4 card\n"
                             "Found the Conf File["));
    EXPECT_EQ(told_, "ERROR: Capability 03 not found.\n");
    EXPECT_EQ(accesses(hardware("0001:04:00.4").counts()), 0U);
}

TEST_F(AdapterLists, Q5WithoutVpdIsSkippedLikeAQ4) {
    kxsim::Adapter adapter = q5();
    adapter.eeprom.loses_writes = true;
    start({adapter});
    EXPECT_EQ(list(), 0U);
    EXPECT_THAT(printed_, HasSubstr("WARNING: vpdcheck  failed for Q4 card\n"));
    EXPECT_EQ(first_->default_config_version, 2);
    EXPECT_EQ(first_->option_rom_valid, 0);
}

TEST_F(AdapterLists, Q3WithoutVpdHasTheTemplateAlone) {
    kxsim::Adapter adapter = q3(0x20);
    adapter.eeprom.capability = false;
    start({adapter});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(
        std::string(reinterpret_cast<const char*>(first_->q3_vpd), 512),
        normalised(std::string(), 512, vpd_init_Q3, vpd_chksum_Q3));
    EXPECT_EQ(hardware("03:00.0").counts().dwords_read, 0U);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(first_->q3_option_rom), 16), kDmBlock);
}

TEST_F(AdapterLists, Q3WhoseVpdCheckFailsIsReadAllTheSame) {
    kxsim::Adapter adapter = q3();
    adapter.eeprom.loses_writes = true;
    start({adapter});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(told_, "ERROR: PCI configuration write/read check failed.\n");
    EXPECT_EQ(first_->q3_vpd[3], 'Q');
}

TEST_F(AdapterLists, Q3OfAnUnknownModelIsNamedByItsVpd) {
    start({q3(0x20)});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(std::string(first_->product_name, 16), std::string("Q3 PRODUCT\0     ", 16));
}

TEST_F(AdapterLists, NameOfSixteenCharactersMeetsTheSerialNumber) {
    kxsim::Adapter adapter = q3(0x20);
    adapter.eeprom.product_data->product = "ABCDEFGHIJKLMNOP";
    start({adapter});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(std::string(first_->product_name, 32), "ABCDEFGHIJKLMNOPSN31000000000031");
}

TEST_F(AdapterLists, NameOfSpacesKeepsItsFirst) {
    kxsim::Adapter adapter = q4();
    adapter.eeprom.product_data->product = "";
    start({adapter});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(std::string(first_->product_name, 16), std::string(" \0              ", 16));
}

TEST_F(AdapterLists, BadDigitsOfAMacAddressCountAsAllOnes) {
    kxsim::Adapter adapter = q4();
    adapter.eeprom.product_data->mac = "0g07g3xx4411";
    start({adapter});
    EXPECT_EQ(list(), 0U);
    EXPECT_THAT(first_->factory_mac, ElementsAre(0xFF, 0x07, 0xF3, 0xEF, 0x44, 0x11));
}

TEST_F(AdapterLists, PortsAreThoseOfTheProduct) {
    kxsim::Adapter unknown = q4();
    unknown.device_id = 0x44FF;
    start({unknown});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(first_->port_count, 0);
}

TEST_F(AdapterLists, ClassZeroOutsideOfTheQ3IdsIsReadAsQ3) {
    kxsim::Adapter odd = q4();
    odd.device_id = 0x6401;
    odd.eeprom.capability = false;
    start({odd});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(first_->chip_class, KX_CLASS_Q3);
    EXPECT_EQ(first_->q3_vpd[0], 0x82);
}

// --- Q3: data from the flash ---

class Q3Records : public AdapterLists {
protected:
    // Build both lists of a Q3 adapter with this option ROM and these settings.
    void build(const std::string& rom, const std::string& settings) {
        kxsim::Adapter adapter = q3();
        adapter.flash.content = {{0, rom}, {0x30000, settings}};
        start({adapter});
        EXPECT_EQ(list(), 0U);
        EXPECT_EQ(info_list(), 0U);
    }

    void expect(const std::string& settings, const std::string& option_rom) const {
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(first_->q3_settings), 444), settings);
        EXPECT_EQ(
            std::string(reinterpret_cast<const char*>(first_->q3_option_rom), 16), option_rom);
        const auto& q3 = first_info_->boot.q3;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(q3.settings), 444), settings);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(q3.option_rom), 16), option_rom);
    }
};

const std::string kNoSettings(444, '\0');
const std::string kNoOptionRom(16, '\0');

TEST_F(Q3Records, OptionRomWithoutItsMarkHasAPxeVersion) {
    const std::string rom =
        with(with(std::string(1024, '\0'), 0, "\x55\xAA"), 0x80, "PXE-2.0 3.1.0.7");
    build(rom, kSettings);
    expect(kSettings.substr(0, 444), std::string("$PXE\x01\x03\x07\0\0\0\0\0\0\0\0\0", 16));
}

TEST_F(Q3Records, OptionRomThatTellsNothingHasNoRecordButSettings) {
    build(with(std::string(1024, '\0'), 0, "\x55\xAA"), kSettings);
    expect(kSettings.substr(0, 444), kNoOptionRom);
}

TEST_F(Q3Records, SettingsWithoutTheirSignatureAreZero) {
    build(kQ3Rom, with(kSettings, 0, "CIBX"));
    expect(kNoSettings, kDmBlock);
}

TEST_F(Q3Records, FlashWithoutOptionRomIsLeftAlone) {
    build("\xAA\x55", kSettings);
    expect(kNoSettings, kNoOptionRom);
    EXPECT_EQ(told_, "");
    EXPECT_EQ(accesses(hardware("03:00.0").counts()), 2 * (8 + 4 * 7U));
}

TEST_F(AdapterLists, Q3FlashThatCannotBeReadIsToldOf) {
    start({q3()});
    hardware("03:00.0").faults({.stuck_busy_at = 3});
    EXPECT_EQ(list(), 0U);
    EXPECT_THAT(told_, testing::EndsWith("ERROR: Could not read data at start of Option ROM!\n"));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(first_->q3_settings), 444), kNoSettings);
    EXPECT_EQ(mmapd_addr, 0U);
}

TEST_F(AdapterLists, FlashErrorsLeaveTheirFieldsZero) {
    start({q4()});
    hardware("0001:04:00.4").identify_as(0xEF, 0x20, 22);
    EXPECT_EQ(list(), 0U);
    const std::string record = bytes_of(first_);
    EXPECT_EQ(record.substr(5835, 1 + 1), std::string("\x00\x02", 2));
    EXPECT_EQ(record.substr(5837, 1664), std::string(1664, '\0'));
    EXPECT_EQ(record.substr(10, 7), "Q404-CR");
    EXPECT_EQ(info_list(), 0U);
    EXPECT_EQ(bytes_of(first_info_).substr(138, 1664), std::string(1664, '\0'));
}

TEST_F(AdapterLists, ConfigurationReadOnlyInPartIsZeroToo) {
    start({q4()});
    hardware("0001:04:00.4").faults({.stuck_busy_at = 2 + 2 + 256 + 2 + 2 + 5});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(bytes_of(first_).substr(5837, 1664), std::string(1664, '\0'));
}

// --- The list of adapter information ---

TEST_F(AdapterLists, Q4InformationByteForByte) {
    start({q4()});
    EXPECT_EQ(info_list(), 0U);
    ASSERT_NE(first_info_, nullptr);
    Expected expected(kInfoRecord - 8);
    expected.at(0, {0, 1, 0, 4, 0, 4})
        .at(6, {KESTRIX_PCI_VENDOR_ID & 0xFF, KESTRIX_PCI_VENDOR_ID >> 8, 0x10, 0x44})
        .at(11, {1, 2, 1})
        .at(14, "Q404-CR         ")
        .at(46, "SN0000000000000000000042")
        .at(78, "PART-4404       ")
        .at(110, "00074311aBcD")
        .at(122, "v0-data ")
        .at(130, "v5-data ")
        .at(138, with(kBootConfig, 12, kOptionRom.substr(16, 4)).substr(0, 1664));
    EXPECT_EQ(bytes_of(first_info_), expected.bytes());
    EXPECT_EQ(+first_info_->next, nullptr) << "the configuration read runs past its field";
    EXPECT_EQ(first_info_, g_KestrixAdapterInfo);
    EXPECT_EQ(mmapd_addr, 0U);
}

TEST_F(AdapterLists, Q5InformationByteForByte) {
    start({q5()});
    EXPECT_EQ(info_list(), 0U);
    ASSERT_NE(first_info_, nullptr);
    Expected expected(kInfoRecord - 8);
    expected.at(0, {0, 0, 0, 5, 2, 4})
        .at(6, {KESTRIX_PCI_VENDOR_ID & 0xFF, KESTRIX_PCI_VENDOR_ID >> 8, 0x10, 0x54})
        .at(11, {2, 2, 1})
        .at(14, "Q520-CR         ")
        .at(46, "PT99000000000000000000000000    ")
        .at(78, "PART-4404       ")
        .at(110, "00074311aBcD")
        .at(122, "v0-data ")
        .at(130, "v5-data ")
        .at(138, with(kBootConfig, 12, kOptionRom.substr(16, 4)).substr(0, 1664));
    EXPECT_EQ(bytes_of(first_info_), expected.bytes());
    EXPECT_EQ(+first_info_->next, nullptr);
}

TEST_F(AdapterLists, Q3InformationByteForByte) {
    start({q3()});
    EXPECT_EQ(info_list(), 0U);
    ASSERT_NE(first_info_, nullptr);
    Expected expected(kInfoRecord - 8);
    expected.at(0, {0, 0, 0, 3, 0, 0})
        .at(6, {KESTRIX_PCI_VENDOR_ID & 0xFF, KESTRIX_PCI_VENDOR_ID >> 8, 0x31, 0})
        .at(14, "Q320-CR")
        .at(46, "SN31000000000031")
        .at(110, "00074311aBcD")
        .at(130, "75")
        .at(138, kSettings.substr(0, 444))
        .at(582, kDmBlock);
    EXPECT_EQ(bytes_of(first_info_), expected.bytes());
}

TEST_F(AdapterLists, InformationIsLinkedWhateverTheFlashHolds) {
    // The bytes behind the configuration record belong to the next pointer.
    start({q4(), q5()});
    EXPECT_EQ(info_list(), 0U);
    ASSERT_NE(+first_info_->next, nullptr);
    EXPECT_EQ(first_info_->next->chip_class, KX_CLASS_Q5);
    EXPECT_EQ(+first_info_->next->next, nullptr);
    EXPECT_THAT(printed_, StartsWith("get_adapterinfo_list: Enter function...\n"));
    EXPECT_THAT(printed_, testing::EndsWith("get_adapterinfo_list: Exit function...\n"));
}

TEST_F(AdapterLists, InformationWithoutVpdIsThePlaceAlone) {
    kxsim::Adapter blind_q4 = q4();
    blind_q4.eeprom.capability = false;
    kxsim::Adapter blind_q3 = q3();
    blind_q3.eeprom.capability = false;
    start({blind_q4, blind_q3});
    EXPECT_EQ(info_list(), 0U);
    Expected expected(kInfoRecord - 8);
    expected.at(0, {0, 1, 0, 4, 0, 4})
        .at(6, {KESTRIX_PCI_VENDOR_ID & 0xFF, KESTRIX_PCI_VENDOR_ID >> 8, 0x10, 0x44})
        .at(11, {1});
    EXPECT_EQ(bytes_of(first_info_), expected.bytes());
    EXPECT_EQ(bytes_of(first_info_->next).substr(12), std::string(kInfoRecord - 8 - 12, '\0'));
    EXPECT_EQ(
        printed_,
        "get_adapterinfo_list: Enter function...\nget_adapterinfo_list: Exit function...\n");
}

// --- Counts ---

TEST_F(AdapterLists, EachEepromDwordIsReadOnceWithItsDelay) {
    start({q3(), q4(), q5()});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(hardware("03:00.0").counts().dwords_read, (512 + 4096) / 4U);
    EXPECT_EQ(hardware("0001:04:00.4").counts().dwords_read, (512 + 1024) / 4U);
    EXPECT_EQ(hardware("05:02.4").counts().dwords_read, (512 + 1024) / 4U);
    EXPECT_EQ(host_.slept_microseconds(), 2 * (512 + 1024) / 4 * 1000U) << "none for Q3";
    EXPECT_EQ(info_list(), 0U);
    EXPECT_EQ(hardware("0001:04:00.4").counts().dwords_read, 2 * (512 + 1024) / 4U);
}

TEST_F(AdapterLists, FlashIsReadAsOftenAsItsStepsNeed) {
    start({q3(), q4(), q5()});
    EXPECT_EQ(list(), 0U);
    // Configuration record in two chunks, the option ROM's version, the option ROM's signature.
    const std::uint64_t q4_accesses =
        (18 + 4 * 256) + (18 + 4 * 161) + (18 + 4 * 256) + (18 + 4 * 256);
    EXPECT_EQ(accesses(hardware("0001:04:00.4").counts()), q4_accesses);
    EXPECT_EQ(accesses(hardware("05:02.4").counts()), q4_accesses);
    // The option ROM's signature, its mark, the settings.
    EXPECT_EQ(accesses(hardware("03:00.0").counts()), (8 + 4 * 7) + (8 + 4 * 128) + (8 + 4 * 111U));
}

TEST_F(AdapterLists, WindowIsOpenedOnceForEachAdapter) {
    start({q3(), q4(), q5()});
    for (const bool info : {false, true}) {
        const auto calls = host_.count([&] { EXPECT_EQ(info ? info_list() : list(), 0U); });
        EXPECT_EQ(calls.on("open", "/dev/mem"), 3U);
        EXPECT_EQ(calls.on("mmap", "/dev/mem"), 3U);
    }
}

// --- Failures ---

TEST_F(AdapterLists, HostWithoutAdaptersKeepsTheListBefore) {
    start({q3()});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(info_list(), 0U);
    AdapterRecord* const before = first_;
    host_.remove("/sys/bus/pci/devices/0000:03:00.0");
    EXPECT_EQ(list(), 244U);
    EXPECT_EQ(printed_, "NO PCI devices\n");
    EXPECT_EQ(info_list(), 244U);
    EXPECT_EQ(g_KestrixAdapters, before);
    EXPECT_EQ(first_, before);
    EXPECT_EQ(g_adapter_count, 0);
    EXPECT_EQ(before->device_id, 0x31) << "and is still there";
}

TEST_F(AdapterLists, RefusedWindowEndsTheListWithItsStatus) {
    for (const kxsim::Adapter& adapter : {q3(), q4(), q5()}) {
        kxsim::Host host;
        host.adapter(adapter);
        const auto attached = host.attach();
        host.fail({.call = "open", .error = EPERM, .object = "/dev/mem"});
        EXPECT_EQ(list(), static_cast<uint32_t>(KX_ADAPTER_INVALID));
        EXPECT_THAT(told_, testing::EndsWith("open /dev/mem failed!"));
        EXPECT_THAT(printed_, Not(HasSubstr("Exit function")));
        EXPECT_EQ(first_, g_KestrixAdapters);
        cleanup_and_exit(0);
    }
}

TEST_F(AdapterLists, FailureInTheMiddleLeavesWhatWasBuilt) {
    start({q3(), q4(), q5()});
    host_.fail({.call = "open", .nth = 2, .error = EPERM, .object = "/dev/mem"});
    EXPECT_EQ(list(), static_cast<uint32_t>(KX_ADAPTER_INVALID));
    ASSERT_NE(g_KestrixAdapters, nullptr);
    EXPECT_EQ(g_KestrixAdapters->chip_class, KX_CLASS_Q3);
    EXPECT_EQ(first_, +g_KestrixAdapters->next) << "the newest record";
    EXPECT_EQ(std::string(first_->product_name), "Q404-CR");
    EXPECT_EQ(+first_->next, nullptr);
    EXPECT_EQ(list(), 0U) << "and the next build frees it";
}

TEST_F(AdapterLists, RefusedWindowDoesNotEndTheInformation) {
    start({q3(), q4(), q5()});
    host_.fail({.call = "open", .nth = 2, .error = EPERM, .object = "/dev/mem"});
    EXPECT_EQ(info_list(), 0U) << "the last adapter's status";
    ASSERT_NE(first_info_, nullptr);
    EXPECT_EQ(first_info_->next->option_rom_valid, 0);
    EXPECT_EQ(std::string(first_info_->next->product_name, 7), "Q404-CR");
    EXPECT_EQ(first_info_->next->next->option_rom_valid, 1);
    host_.fail({.call = "open", .nth = 3, .error = EPERM, .object = "/dev/mem"});
    EXPECT_EQ(info_list(), static_cast<uint32_t>(KX_ADAPTER_INVALID));
    EXPECT_EQ(first_info_, g_KestrixAdapterInfo);
    EXPECT_THAT(printed_, HasSubstr("Exit function"));
}

TEST_F(AdapterLists, StatusIsThatOfTheLastAdapterWithVpd) {
    kxsim::Adapter blind = q5();
    blind.eeprom.capability = false;
    start({q4(), blind});
    host_.fail({.call = "open", .nth = 1, .error = EPERM, .object = "/dev/mem"});
    EXPECT_EQ(info_list(), static_cast<uint32_t>(KX_ADAPTER_INVALID));
}

TEST_F(AdapterLists, RecordThatCannotBeAllocatedEndsTheList) {
    start({q3(), q4()});
    for (const bool info : {false, true}) {
        kxsim::FaultRule rule =
            host_.fail({.call = "calloc", .nth = 2, .error = ENOMEM, .from = "libkxlinhw"});
        uint32_t status = 0;
        host_.count([&] { status = info ? info_list() : list(); });
        rule.remove();
        EXPECT_EQ(status, 273U);
        if (info) {
            EXPECT_EQ(first_info_, nullptr);
            ASSERT_NE(g_KestrixAdapterInfo, nullptr);
            EXPECT_EQ(+g_KestrixAdapterInfo->next, nullptr);
        } else {
            EXPECT_EQ(first_, nullptr);
            ASSERT_NE(g_KestrixAdapters, nullptr);
            EXPECT_EQ(+g_KestrixAdapters->next, nullptr);
        }
    }
}

TEST_F(AdapterLists, FirstRecordThatCannotBeAllocatedLeavesNoList) {
    start({q3()});
    EXPECT_EQ(list(), 0U);
    kxsim::FaultRule rule = host_.fail({.call = "calloc", .error = ENOMEM, .from = "libkxlinhw"});
    uint32_t status = 0;
    host_.count([&] { status = list(); });
    rule.remove();
    EXPECT_EQ(status, 273U);
    EXPECT_EQ(first_, nullptr);
    EXPECT_EQ(g_KestrixAdapters, nullptr);
}

TEST_F(AdapterLists, NullOutputIsRefused) {
    start({q3()});
    EXPECT_EQ(get_adapter_list(nullptr), 317U);
    EXPECT_EQ(get_adapterinfo_list(nullptr), 317U);
    EXPECT_EQ(q3_get_adapterinfo(0, 0xD0, nullptr), KX_ADAPTER_INVALID);
    EXPECT_EQ(q4_get_adapterinfo(0, 0xD0, nullptr), KX_ADAPTER_INVALID);
    EXPECT_EQ(q5_get_adapterinfo(0, 0xD0, nullptr), KX_ADAPTER_INVALID);
}

// --- Life of the lists ---

TEST_F(AdapterLists, RecordOfAFailedBuildMayBeFreedBeforeTheNextBuild) {
    start({q3(), q4(), q5()});
    host_.fail({.call = "open", .nth = 2, .error = EPERM, .object = "/dev/mem"});
    EXPECT_EQ(list(), static_cast<uint32_t>(KX_ADAPTER_INVALID));
    ASSERT_NE(first_, g_KestrixAdapters) << "the newest record";
    EXPECT_EQ(adapter_list_free(first_), 0U);
    EXPECT_EQ(+g_KestrixAdapters->next, nullptr);
    EXPECT_EQ(list(), 0U) << "frees the rest alone";
    EXPECT_NE(+first_->next->next, nullptr);
}

TEST_F(AdapterLists, EndOfAListMayBeFreed) {
    start({q3(), q4(), q5()});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(adapter_list_free(first_->next), 0U);
    EXPECT_EQ(+first_->next, nullptr);
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(info_list(), 0U);
    EXPECT_EQ(adapterinfo_list_free(first_info_->next->next), 0U);
    EXPECT_EQ(+first_info_->next->next, nullptr);
    EXPECT_EQ(adapterinfo_list_free(first_info_->next), 0U);
    EXPECT_EQ(+first_info_->next, nullptr);
    EXPECT_EQ(info_list(), 0U);
}

TEST_F(AdapterLists, RecordOfTheAgentsOwnLeavesAFreedListAlone) {
    start({q3(), q4()});
    EXPECT_EQ(info_list(), 0U);
    EXPECT_EQ(adapterinfo_list_free(g_KestrixAdapterInfo), 0U);
    EXPECT_EQ(
        adapterinfo_list_free(
            static_cast<AdapterInfoRecord*>(std::calloc(1, sizeof(AdapterInfoRecord)))),
        0U);
    EXPECT_EQ(info_list(), 0U);
}

TEST_F(AdapterLists, NextBuildFreesItsOwnListOnly) {
    start({q3()});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(info_list(), 0U);
    AdapterInfoRecord* const info = first_info_;
    EXPECT_EQ(list(), 0U);  // a sanitizer reports a leak or a second release
    EXPECT_EQ(g_KestrixAdapterInfo, info);
    EXPECT_EQ(info->device_id, 0x31);
}

TEST_F(AdapterLists, FreedListKeepsItsHeadAndIsNotFreedAgain) {
    start({q3(), q4()});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(info_list(), 0U);
    EXPECT_EQ(adapter_list_free(first_), 0U);
    EXPECT_EQ(adapterinfo_list_free(first_info_), 0U);
    EXPECT_EQ(g_KestrixAdapters, first_);
    EXPECT_EQ(g_KestrixAdapterInfo, first_info_);
    EXPECT_EQ(adapter_list_free(nullptr), 0U);
    EXPECT_EQ(adapterinfo_list_free(nullptr), 0U);
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(info_list(), 0U);
    adapter_list_free(first_);
    adapterinfo_list_free(first_info_);
}

// The agent made a chain of two records itself; the library frees it.
template <class Record>
void free_own_chain(uint32_t (*free_list)(Record*)) {
    auto* const first = static_cast<Record*>(std::calloc(1, sizeof(Record)));
    first->next = static_cast<Record*>(std::calloc(1, sizeof(Record)));
    EXPECT_EQ(free_list(first), 0U);
}

TEST_F(AdapterLists, ChainsOfTheAgentAreFreedEachTime) {
    const std::size_t before = mallinfo2().uordblks;
    for (int round = 0; round < 20; ++round) {  // the allocator gives the same addresses again
        free_own_chain(adapter_list_free);
        free_own_chain(adapterinfo_list_free);
    }
    EXPECT_LT(mallinfo2().uordblks, before + 2 * (kRecord + kInfoRecord));
}

TEST_F(AdapterLists, MemoryOfOldListsComesBackWhoeverFreedThem) {
    start({q3()});
    EXPECT_EQ(list(), 0U);
    const std::size_t before = mallinfo2().uordblks;
    for (int round = 0; round < 40; ++round) {
        EXPECT_EQ(list(), 0U);
        if (round % 3 == 0) {
            adapter_list_free(first_);
        }
        EXPECT_EQ(info_list(), 0U);
        if (round % 3 == 1) {
            adapterinfo_list_free(first_info_);
        }
    }
    EXPECT_LT(mallinfo2().uordblks, before + 5 * (kRecord + kInfoRecord));
}

TEST_F(AdapterLists, HeadItselfMayBeTheOutput) {
    start({q3(), q4()});
    EXPECT_EQ(run([] { return get_adapter_list(&g_KestrixAdapters); }), 0U);
    ASSERT_NE(g_KestrixAdapters, nullptr);
    EXPECT_EQ(g_KestrixAdapters->chip_class, KX_CLASS_Q3);
    EXPECT_NE(+g_KestrixAdapters->next, nullptr);
}

TEST_F(AdapterLists, CleanupGivesEverythingBack) {
    start({q3(), q4()});
    EXPECT_EQ(list(), 0U);
    EXPECT_EQ(info_list(), 0U);
    ASSERT_EQ(connect_to_hba(0), 0);
    EXPECT_EQ(cleanup_and_exit(-7), -7);
    EXPECT_EQ(mmapd_addr, 0U);
    EXPECT_EQ(pci_access_p, nullptr);
    EXPECT_EQ(g_adapter_count, 0);
    EXPECT_EQ(g_KestrixAdapters, nullptr);
    EXPECT_EQ(g_KestrixAdapterInfo, nullptr);
    EXPECT_THAT(kestrix_hbas, testing::Each(nullptr));
    EXPECT_EQ(cleanup_and_exit(3), 3);
    EXPECT_EQ(list(), 0U) << "and everything works again";
}

}  // namespace
