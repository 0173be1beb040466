// The models of an adapter's hardware: flash chip, controller, EEPROM and configuration space; and
// the parts of them that processes of a session see.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter.h>
#include <kxlinhw/flash.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <kxsim/host.hpp>
#include <numeric>
#include <string>
#include <vector>

#include "models/config_space.hpp"
#include "models/eeprom.hpp"
#include "models/flash_controller.hpp"
#include "models/register_window.hpp"
#include "models/serial_flash.hpp"

namespace {

using kxsim::models::SerialFlash;
using testing::Each;
using testing::ElementsAre;

// --- The chip ---

class FlashChip : public testing::Test {
protected:
    FlashChip() : content_(1 << 20, 0xFF) { kxsim::models::fit_flash(chip_, 0x20, 0x71, 20); }

    // Send a command whole; what comes back while `extra` more bytes are read.
    std::vector<uint8_t> send(const std::vector<uint8_t>& bytes, std::size_t extra = 0) {
        SerialFlash flash(chip_, faults_, content_);
        for (const uint8_t byte : bytes) {
            flash.exchange(byte);
        }
        std::vector<uint8_t> answers(extra);
        std::generate(answers.begin(), answers.end(), [&] { return flash.exchange(0); });
        flash.deselect();
        return answers;
    }

    void program(uint32_t address, const std::vector<uint8_t>& data) {
        std::vector<uint8_t> bytes{
            0x02, static_cast<uint8_t>(address >> 16), static_cast<uint8_t>(address >> 8),
            static_cast<uint8_t>(address)};
        bytes.insert(bytes.end(), data.begin(), data.end());
        send({0x06});
        send(bytes);
    }

    uint8_t status() { return send({0x05}, 1)[0]; }

    kxsim::state::SerialFlash chip_{};
    kxsim::state::FlashFaults faults_{};
    std::vector<uint8_t> content_;
};

TEST_F(FlashChip, IdentifiesItself) {
    EXPECT_THAT(send({0x9F}, 4), ElementsAre(0x20, 0x71, 20, 0));
}

TEST_F(FlashChip, ReadsFromItsAddressOnAndWrapsAroundAtItsEnd) {
    content_.back() = 9;
    content_[0] = 7;
    EXPECT_THAT(send({0x0B, 0x0F, 0xFF, 0xFF, 0}, 3), ElementsAre(9, 7, 0xFF));
}

TEST_F(FlashChip, WritesNothingWithoutWriteEnable) {
    send({0x02, 0, 0, 0, 1, 2, 3});
    send({0xD8, 0, 0, 0});
    EXPECT_THAT(content_, Each(0xFF));
    EXPECT_EQ(status(), 0);
    send({0x06});
    EXPECT_EQ(status(), 0x02);
}

TEST_F(FlashChip, WriteEnableHoldsForOneWrite) {
    program(0, {0x11});
    send({0x02, 0, 0, 1, 0x22});
    EXPECT_EQ(content_[0], 0x11);
    EXPECT_EQ(content_[1], 0xFF);
    EXPECT_EQ(status(), 0);
}

TEST_F(FlashChip, ProgramOnlyClearsBits) {
    program(0x10, {0xF0, 0x0F});
    program(0x10, {0x3C, 0xFF});
    EXPECT_EQ(content_[0x10], 0x30);
    EXPECT_EQ(content_[0x11], 0x0F);
}

TEST_F(FlashChip, ProgramWrapsAroundInItsPage) {
    program(0x1FE, {1, 2, 3, 4});
    EXPECT_EQ(content_[0x1FE], 1);
    EXPECT_EQ(content_[0x1FF], 2);
    EXPECT_EQ(content_[0x100], 3);
    EXPECT_EQ(content_[0x101], 4);
    EXPECT_EQ(content_[0x200], 0xFF);
}

TEST_F(FlashChip, LastOfMoreThanAPageCounts) {
    std::vector<uint8_t> data(257, 0x55);
    data[256] = 0x77;
    program(0, data);
    EXPECT_EQ(content_[0], 0x77);
    EXPECT_EQ(content_[1], 0x55);
}

TEST_F(FlashChip, EraseTakesAWholeSector) {
    std::fill(content_.begin(), content_.end(), uint8_t{0});
    send({0x06});
    send({0xD8, 0x01, 0x23, 0x45});
    EXPECT_EQ(std::count(content_.begin(), content_.end(), 0xFF), 0x10000);
    EXPECT_EQ(content_[0x10000], 0xFF);
    EXPECT_EQ(content_[0x1FFFF], 0xFF);
}

TEST_F(FlashChip, LargestKindHasLargeSectors) {
    kxsim::models::fit_flash(chip_, 0x20, 0x20, 24);
    std::fill(content_.begin(), content_.end(), uint8_t{0});
    send({0x06});
    send({0xD8, 0x05, 0, 0});
    EXPECT_EQ(std::count(content_.begin(), content_.end(), 0xFF), 0x40000);
    EXPECT_EQ(content_[0x40000], 0xFF);
}

TEST_F(FlashChip, IncompleteCommandsDoNothing) {
    send({0x06});
    send({0x02, 0, 0, 0});
    send({0xD8, 0, 0});
    send({0xD8, 0, 0, 0, 0});
    send({0x06, 0x06});
    EXPECT_THAT(content_, Each(0xFF));
    EXPECT_EQ(chip_.programs + chip_.erases, 0U);
}

TEST_F(FlashChip, WriteInProgressEndsAfterItsPollsAndBlocksTheRest) {
    chip_.program_polls = 2;
    program(0, {0x11});
    EXPECT_THAT(send({0x9F}, 3), Each(0xFF));
    program(1, {0x22});
    EXPECT_EQ(content_[1], 0xFF);
    EXPECT_EQ(status(), 0x01);
    EXPECT_EQ(status(), 0x01);
    EXPECT_EQ(status(), 0x00);
    EXPECT_THAT(send({0x9F}, 1), ElementsAre(0x20));
}

TEST_F(FlashChip, EndlessWriteNeverEnds) {
    faults_.endless_write_at = 2;
    program(0, {1});
    EXPECT_EQ(status(), 0);
    program(1, {1});
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(status(), 0x01);
    }
}

TEST_F(FlashChip, FlippedBitStrikesOneProgram) {
    faults_.flipped_bit_at = 2;
    program(0, {0x10});
    program(0x100, {0x10});
    program(0x200, {0x10});
    EXPECT_EQ(content_[0], 0x10);
    EXPECT_EQ(content_[0x100], 0x11);
    EXPECT_EQ(content_[0x200], 0x10);
}

TEST_F(FlashChip, MisreadStrikesOneReadAndLeavesTheContent) {
    content_[0x100] = 0x10;
    faults_.misread_at = 2;
    EXPECT_THAT(send({0x0B, 0, 1, 0, 0}, 2), ElementsAre(0x10, 0xFF));
    EXPECT_THAT(send({0x0B, 0, 1, 0, 0}, 2), ElementsAre(0x11, 0xFF));
    EXPECT_THAT(send({0x0B, 0, 1, 0, 0}, 2), ElementsAre(0x10, 0xFF));
    EXPECT_EQ(chip_.reads, 3U);
}

TEST_F(FlashChip, StuckSectorIsNotErased) {
    faults_.stuck_sector = 2;
    for (uint8_t sector = 0; sector < 3; ++sector) {
        content_[std::size_t{sector} << 16] = 0x10;
        send({0x06});
        send({0xD8, sector, 0, 0});
        while (status() != 0) {
        }
    }
    EXPECT_EQ(content_[0], 0xFF);
    EXPECT_EQ(content_[0x10000], 0x10);
    EXPECT_EQ(content_[0x20000], 0xFF);
    program(0x10000, {0x0F});
    EXPECT_EQ(content_[0x10000], 0x00) << "a program clears bits";
}

TEST_F(FlashChip, WithoutContentNothingIsRead) {
    content_.clear();
    EXPECT_THAT(send({0x0B, 0, 0, 0, 0}, 2), Each(0xFF));
    program(0, {1});
    send({0x06});
    send({0xD8, 0, 0, 0});
}

// --- The controller behind its registers ---

class Controller : public testing::TestWithParam<kxsim::state::Family> {
protected:
    Controller() : content_(1 << 20, 0xFF) {
        hardware_.family = GetParam();
        kxsim::models::fit_flash(hardware_.flash, 0x20, 0x20, 20);
    }

    [[nodiscard]] bool is_q4() const { return GetParam() == kxsim::state::Family::kQ4; }
    [[nodiscard]] uint32_t data_register() const { return is_q4() ? 0x193F8 : 0x6D8; }
    [[nodiscard]] uint32_t operation_register() const { return data_register() + 4; }

    uint32_t load(uint32_t offset) {
        return kxsim::models::load_register(hardware_, content_, offset);
    }
    void store(uint32_t offset, uint32_t value) {
        kxsim::models::store_register(hardware_, content_, offset, value);
    }
    uint32_t operation() { return load(operation_register()); }
    uint32_t data() { return load(data_register()); }
    void transfer(uint32_t operation, uint32_t value) {
        store(data_register(), value);
        store(operation_register(), operation);
    }

    kxsim::state::AdapterHardware hardware_{};
    std::vector<uint8_t> content_;
};

constexpr uint32_t kBusy = 1U << 31;

INSTANTIATE_TEST_SUITE_P(
    Families, Controller, testing::Values(kxsim::state::Family::kQ3, kxsim::state::Family::kQ4),
    [](const auto& instance) { return instance.param == kxsim::state::Family::kQ3 ? "Q3" : "Q4"; });

TEST_P(Controller, DataComesOnceTheTransferHasEnded) {
    hardware_.controller.busy_polls = 2;
    transfer(0x09, 0x9F);
    EXPECT_EQ(operation(), 0x09 | kBusy);
    EXPECT_EQ(operation(), 0x09 | kBusy);
    EXPECT_EQ(operation(), 0x09U);
    store(operation_register(), 0x04);
    EXPECT_EQ(data(), 0x9FU) << "what was written last";
    operation();
    EXPECT_EQ(data(), 0x9FU);
    operation();
    EXPECT_EQ(data(), 0x142020U);
}

TEST_P(Controller, StoresWhileBusyAreLost) {
    hardware_.controller.busy_polls = 1;
    transfer(0x09, 0x9F);
    transfer(0x01, 0x06);
    EXPECT_EQ(hardware_.controller.transfers, 1U);
    EXPECT_EQ(hardware_.flash.latches.command, 0x9F);
}

TEST_P(Controller, LeastSignificantByteGoesFirst) {
    content_[0x030201] = 0x77;
    transfer(0x0F, 0x0102030B);
    store(operation_register(), 0x08);
    store(operation_register(), 0x02);
    EXPECT_EQ(data(), 0xFF77U);
}

TEST_P(Controller, StuckTransferIsBusyForEver) {
    hardware_.faults.stuck_busy_at = 2;
    transfer(0x01, 0x06);
    EXPECT_EQ(operation(), 0x01U);
    transfer(0x01, 0x06);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(operation(), 0x01 | kBusy);
    }
    kxsim::models::restore_power(hardware_);
    EXPECT_EQ(operation(), 0U);
}

TEST_P(Controller, PowerIsGoneFromTheCutOn) {
    hardware_.faults.power_cut_at = 2;
    transfer(0x01, 0x06);
    transfer(0x07, 0xD8);
    EXPECT_EQ(operation(), 0xFFFFFFFFU);
    EXPECT_EQ(data(), 0xFFFFFFFFU);
    EXPECT_EQ(load(0), 0xFFFFFFFFU);
    transfer(0x01, 0x06);
    EXPECT_EQ(hardware_.controller.transfers, 2U);
    kxsim::models::restore_power(hardware_);
    EXPECT_EQ(operation(), 0U);
    EXPECT_EQ(hardware_.flash.latches.write_enabled, 0) << "the latch is volatile";
    EXPECT_EQ(hardware_.flash.erases, 0U);
}

TEST_P(Controller, StoreOfZeroReleasesOnQ4AndReadsAByteOnQ3) {
    transfer(0x19, 0x05);
    EXPECT_EQ(hardware_.controller.latches.locked, 1);
    EXPECT_EQ(hardware_.controller.latches.selected, 1);
    store(operation_register(), 0);
    EXPECT_EQ(hardware_.controller.latches.locked, 0);
    EXPECT_EQ(hardware_.controller.latches.selected, 0);
    EXPECT_EQ(hardware_.controller.transfers, is_q4() ? 1U : 2U);
}

TEST_P(Controller, OtherRegistersReadZeroAndAccessesAreCounted) {
    EXPECT_EQ(load(0), 0U);
    store(0, 5);
    EXPECT_EQ(load(0), 0U);
    EXPECT_EQ(hardware_.loads, 2U);
    EXPECT_EQ(hardware_.stores, 1U);
}

// --- EEPROM and configuration space ---

TEST(EepromModel, DwordsAreLittleEndianAndErasedBehindTheContent) {
    std::vector<uint8_t> content{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(kxsim::models::read_eeprom(content, 0), 0x04030201U);
    EXPECT_EQ(kxsim::models::read_eeprom(content, 3), 0x04030201U);
    EXPECT_EQ(kxsim::models::read_eeprom(content, 4), 0xFFFF0605U);
    EXPECT_EQ(kxsim::models::read_eeprom(content, 0x7FFC), 0xFFFFFFFFU);
    kxsim::models::write_eeprom(content, 4, 0x0A0B0C0D);
    EXPECT_THAT(content, ElementsAre(1, 2, 3, 4, 0x0D, 0x0C));
}

class VpdCapability : public testing::Test {
protected:
    VpdCapability() : bytes_(256), eeprom_(64) {
        std::iota(eeprom_.begin(), eeprom_.end(), uint8_t{0});
        hardware_.vpd.offset = 0x50;
        bytes_[0x50] = 3;
    }

    [[nodiscard]] kxsim::models::ConfigSpace space() { return {hardware_, bytes_, eeprom_}; }

    uint32_t read(std::size_t offset) {
        std::array<uint8_t, 4> out{};
        EXPECT_EQ(read_config(space(), offset, out), 4U);
        uint32_t value = 0;
        std::memcpy(&value, out.data(), sizeof value);
        return value;
    }
    void write(std::size_t offset, uint32_t value) {
        std::array<uint8_t, 4> in;
        std::memcpy(in.data(), &value, sizeof value);
        EXPECT_EQ(write_config(space(), offset, in), 4U);
    }

    kxsim::state::AdapterHardware hardware_{};
    std::vector<uint8_t> bytes_;
    std::vector<uint8_t> eeprom_;
};

TEST_F(VpdCapability, ReadRequestIsAnsweredAfterItsPolls) {
    hardware_.vpd.polls = 2;
    write(0x50, 0x00080000);
    EXPECT_EQ(read(0x50), 0x00080003U);
    EXPECT_EQ(read(0x50), 0x00080003U);
    EXPECT_EQ(read(0x50), 0x80080003U);
    EXPECT_EQ(read(0x54), 0x0B0A0908U);
    EXPECT_EQ(hardware_.dwords_read, 1U);
}

TEST_F(VpdCapability, WriteRequestReachesTheEeprom) {
    write(0x54, 0xAABBCCDD);
    write(0x50, 0x80040000);
    EXPECT_EQ(read(0x50), 0x00040003U);
    EXPECT_EQ(eeprom_[4], 0xDD);
    EXPECT_EQ(eeprom_[7], 0xAA);
    EXPECT_EQ(hardware_.dwords_read, 0U);
}

TEST_F(VpdCapability, SilentAdapterNeverAnswers) {
    hardware_.vpd.silent = 1;
    write(0x50, 0x00080000);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(read(0x50), 0x00080003U);
    }
}

TEST_F(VpdCapability, DataRegisterMayForget) {
    write(0x54, 5);
    EXPECT_EQ(read(0x54), 5U);
    hardware_.vpd.loses_writes = 1;
    write(0x54, 6);
    EXPECT_EQ(read(0x54), 5U);
}

TEST_F(VpdCapability, BytesAndLongReadsSeeTheSameRegisters) {
    write(0x54, 0x11223344);
    std::array<uint8_t, 16> out{};
    EXPECT_EQ(read_config(space(), 0x4E, out), 16U);
    EXPECT_EQ(out[2], 3);
    EXPECT_EQ(out[6], 0x44);
    EXPECT_EQ(out[9], 0x11);
    std::array<uint8_t, 1> byte{0x99};
    EXPECT_EQ(write_config(space(), 0x55, byte), 1U);
    EXPECT_EQ(read(0x54), 0x11229944U);
}

TEST_F(VpdCapability, AllElseIsReadOnlyAndEnds) {
    write(0x00, 0xFFFFFFFF);
    write(0x58, 0xFFFFFFFF);
    EXPECT_EQ(read(0x00), 0U);
    EXPECT_EQ(read(0x58), 0U);
    std::array<uint8_t, 8> out{};
    EXPECT_EQ(read_config(space(), 252, out), 4U);
    EXPECT_EQ(read_config(space(), 256, out), 0U);
    EXPECT_EQ(write_config(space(), 252, out), 4U);
    EXPECT_EQ(write_config(space(), 4000, out), 0U);
}

TEST_F(VpdCapability, AdapterWithoutOneHasPlainBytes) {
    hardware_.vpd.offset = 0;
    write(0x54, 5);
    EXPECT_EQ(read(0x54), 0U);
    hardware_.vpd.offset = 252;  // would run past the end
    write(252, 5);
    EXPECT_EQ(read(252), 0U);
}

// --- On a host ---

class AdapterOnHost : public testing::Test {
protected:
    AdapterOnHost() {
        host_.adapter({.chip = "Q4", .location = "03:00.4"});
        host_.adapter(
            {.chip = "Q3", .location = "04:00.0", .eeprom = {.content = {{0xC00, "vpd"}}}});
    }

    kxsim::Host host_;
};

TEST_F(AdapterOnHost, FlashOutlivesTheProcessThatWroteIt) {
    std::string page(256, '\x12');
    const pid_t child = fork();
    if (child == 0) {
        const auto attached = host_.attach();
        scan_hbas();
        connect_to_hba_Q4(0);
        const int32_t status =
            q4_write_flash(0, 0x1000, 256, reinterpret_cast<const uint8_t*>(page.data()), 0);
        _exit(status == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(host_.hardware("03:00.4").flash(0x1000, 256), page);
    EXPECT_GT(host_.hardware("03:00.4").counts().stores, 0U);
    EXPECT_EQ(host_.hardware("04:00.0").counts().stores, 0U);
}

TEST_F(AdapterOnHost, TakenOverSessionHasItsAdapters) {
    kxsim::Hardware hardware = host_.hardware("03:00.4");
    hardware.write_flash(0x2000, "kept");
    kxsim::Host again(host_.root());
    EXPECT_EQ(again.hardware("0000:03:00.4").flash(0x2000, 4), "kept");
    EXPECT_EQ(again.hardware("04:00.0").eeprom(0xC00, 3), "vpd");
}

TEST_F(AdapterOnHost, RegistersOutsideOfEveryWindowReadAllOnes) {
    const auto attached = host_.attach();
    ASSERT_EQ(scan_hbas(), 2);
    ASSERT_EQ(connect_to_hba_Q4(0), 0);
    const uint64_t window = mmapd_addr;
    disconnect_from_hba(0);
    kxsim::Host empty;
    {
        const auto other = empty.attach();
        EXPECT_EQ(readl(window), 0xFFFFFFFFU);
        writel_Q4(1, window);
    }
}

TEST_F(AdapterOnHost, TwoWindowsReachTwoAdapters) {
    const auto attached = host_.attach();
    ASSERT_EQ(scan_hbas(), 2);
    ASSERT_EQ(connect_to_hba_Q4(0), 0);
    EXPECT_EQ(get_flash_params(0), 4 << 20);
    disconnect_from_hba(0);
    ASSERT_EQ(connect_to_hba(1), 0);
    uint32_t word = 0;
    EXPECT_EQ(q3_read_flash(1, 0, 1, &word), 0);
    disconnect_from_hba(1);
    EXPECT_GT(host_.hardware("03:00.4").counts().loads, 0U);
    EXPECT_GT(host_.hardware("04:00.0").counts().loads, 0U);
}

TEST_F(AdapterOnHost, ReleasedControllerIsUnlocked) {
    const auto attached = host_.attach();
    ASSERT_EQ(scan_hbas(), 2);
    ASSERT_EQ(connect_to_hba_Q4(0), 0);
    EXPECT_EQ(q4_flash_erase_sectors(0, 1, 1), 0);
    EXPECT_FALSE(host_.hardware("03:00.4").locked());
    EXPECT_FALSE(host_.hardware("03:00.4").selected());
    uint32_t value = 0;
    EXPECT_EQ(q4_sf1_read(0, 1, 1, 1, &value), 0);
    EXPECT_TRUE(host_.hardware("03:00.4").locked());
    EXPECT_TRUE(host_.hardware("03:00.4").selected());
    disconnect_from_hba(0);
}

TEST_F(AdapterOnHost, FaultsCountFromWhenTheyAreSet) {
    const auto attached = host_.attach();
    ASSERT_EQ(scan_hbas(), 2);
    ASSERT_EQ(connect_to_hba_Q4(0), 0);
    kxsim::Hardware hardware = host_.hardware("03:00.4");
    EXPECT_EQ(get_flash_params(0), 4 << 20);
    hardware.faults({.power_cut_at = 3});
    EXPECT_EQ(get_flash_params(0), 4 << 20);
    EXPECT_TRUE(hardware.powered());
    EXPECT_EQ(get_flash_params(0), KX_FLASH_TIMED_OUT);
    EXPECT_FALSE(hardware.powered());
    hardware.restore_power();
    EXPECT_EQ(get_flash_params(0), 4 << 20);
    disconnect_from_hba(0);
}

TEST_F(AdapterOnHost, ConfigurationSpaceCanBeReadAsAFile) {
    const auto attached = host_.attach();
    const int file = open("/sys/bus/pci/devices/0000:04:00.0/config", O_RDWR);
    ASSERT_GE(file, 0);
    const uint32_t request = 0x0C00 << 16;
    EXPECT_EQ(pwrite(file, &request, 4, 0xD0), 4);
    uint32_t word = 0;
    EXPECT_EQ(pread(file, &word, 4, 0xD0), 4);
    EXPECT_EQ(pread(file, &word, 4, 0xD0), 4);
    EXPECT_EQ(word >> 16, 0x8C00U);
    char text[5] = {};
    EXPECT_EQ(pread(file, text, 4, 0xD4), 4);
    EXPECT_STREQ(text, "vpd\xFF");
    const uint32_t other = 0x12345678;
    EXPECT_EQ(pwrite(file, &other, 4, 0x60), 4);
    EXPECT_EQ(pread(file, &word, 4, 0x60), 4);
    EXPECT_EQ(word, other) << "other bytes keep what is written";
    EXPECT_EQ(pwrite(file, &other, 4, 4094), 2);
    EXPECT_EQ(pwrite(file, &other, 4, 8192), 0);
    EXPECT_EQ(pread(file, &word, 4, 0xD0), 4);
    EXPECT_EQ(word & 0xFFFF, 0x0003U) << "the capability's header does not";
    std::array<char, 8> first{};
    std::array<char, 8> again{};
    EXPECT_EQ(read(file, first.data(), 4), 4);
    EXPECT_EQ(read(file, first.data() + 4, 4), 4);
    EXPECT_EQ(pread(file, again.data(), 8, 0), 8);
    EXPECT_EQ(first, again);
    close(file);
}

TEST_F(AdapterOnHost, MistakesOfTheBuilderAreTold) {
    EXPECT_THROW(static_cast<void>(host_.hardware("05:00.4")), std::invalid_argument);
    kxsim::Hardware hardware = host_.hardware("03:00.4");
    EXPECT_THROW(hardware.write_flash((4 << 20) - 1, "ab"), std::invalid_argument);
    EXPECT_THROW(hardware.write_eeprom(32767, "ab"), std::invalid_argument);
    EXPECT_THROW(hardware.identify_as(256, 0, 0), std::invalid_argument);
    EXPECT_THROW(
        host_.adapter(
            {.chip = "Q5",
             .location = "07:00.4",
             .eeprom = {.product_data = kxsim::ProductData{.product = "longer than sixteen"}}}),
        std::invalid_argument);
}

}  // namespace
