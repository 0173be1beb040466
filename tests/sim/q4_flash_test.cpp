// The serial flash of Q4 and Q5 adapters: exact transfers, budgets, statuses, messages and counts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/flash.h>

#include <array>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "sim/adapter_bench.hpp"
#include "support/output.hpp"

namespace {

using bench::counting;
using bench::Store;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint32_t kData = bench::kQ4Data;
constexpr uint32_t kOp = bench::kQ4Operation;
constexpr uint32_t kBusy = 1U << 31;

// The accesses that identify the flash: nine, including the loads.
const std::vector<Store> kIdentify{{kData, 0x9F}, {kOp, 0x09}, {kOp, 0x14}, {kOp, 0}};

std::vector<Store> operator+(std::vector<Store> left, const std::vector<Store>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class Q4Flash : public test::OutputTest {
protected:
    // Nothing is printed on standard error.
    template <class Call>
    auto run(const Call& call) {
        const auto result = OutputTest::run(call);
        EXPECT_EQ(told_, "");
        return result;
    }

    bench::Adapter adapter_{bench::Family::kQ4};
};

// --- Waiting for a register ---

TEST_F(Q4Flash, WaitStoresTheValueThatFulfilsTheMask) {
    adapter_.hardware.controller.latches.operation = 0x15;
    uint32_t value = 7;
    EXPECT_EQ(q4_wait_op_done_val(0, kOp, 0x10, 1, 3, 5, &value), 0);
    EXPECT_EQ(value, 0x15U);
    EXPECT_THAT(adapter_.loads, ElementsAre(kOp));
    EXPECT_THAT(adapter_.sleeps, IsEmpty());
}

TEST_F(Q4Flash, WaitForAClearBitAcceptsItAtOnce) {
    EXPECT_EQ(q4_wait_op_done(0, kOp, kBusy, 0, 1, 5), 0);
    EXPECT_THAT(adapter_.loads, SizeIs(1));
}

TEST_F(Q4Flash, WaitReadsAsOftenAsItHasAttemptsAndSleepsBetweenThem) {
    uint32_t value = 7;
    EXPECT_EQ(q4_wait_op_done_val(0, kOp, kBusy, 1, 10, 5, &value), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(value, 7U);
    EXPECT_THAT(adapter_.loads, SizeIs(10));
    EXPECT_THAT(adapter_.sleeps, ElementsAreArray(std::vector<unsigned>(9, 5)));
}

TEST_F(Q4Flash, WaitWithoutDelayDoesNotSleep) {
    EXPECT_EQ(q4_wait_op_done(0, kOp, kBusy, 1, 4, 0), KX_FLASH_TIMED_OUT);
    EXPECT_THAT(adapter_.sleeps, IsEmpty());
}

TEST_F(Q4Flash, WaitWithNoAttemptsGoesOnPastZero) {
    adapter_.hardware.controller.busy_polls = 20;
    ASSERT_EQ(q4_sf1_write(0, 1, 0, 0, 0x06), KX_FLASH_TIMED_OUT);  // ten polls are left
    EXPECT_EQ(q4_wait_op_done(0, kOp, kBusy, 0, 0, 0), 0);
}

// --- Single transfers ---

TEST_F(Q4Flash, WriteTransferLooksStoresStartsAndWaits) {
    EXPECT_EQ(q4_sf1_write(0, 4, 1, 1, 0xA1B2C302), 0);
    EXPECT_THAT(adapter_.stores, ElementsAre(Store{kData, 0xA1B2C302}, Store{kOp, 0x1F}));
    EXPECT_THAT(adapter_.loads, ElementsAre(kOp, kOp));
}

TEST_F(Q4Flash, ReadTransferReadsTheDataOnceItIsThere) {
    uint32_t value = 0;
    ASSERT_EQ(q4_sf1_write(0, 1, 1, 0, 0x9F), 0);
    adapter_.forget();
    adapter_.hardware.controller.busy_polls = 3;
    EXPECT_EQ(q4_sf1_read(0, 3, 0, 1, &value), 0);
    EXPECT_EQ(value, 0x162020U);
    EXPECT_THAT(adapter_.stores, ElementsAre(Store{kOp, 0x14}));
    EXPECT_THAT(adapter_.loads, ElementsAre(kOp, kOp, kOp, kOp, kOp, kData));
    EXPECT_THAT(adapter_.sleeps, ElementsAre(5U, 5U, 5U));
}

TEST_F(Q4Flash, TransfersEncodeCountContAndLock) {
    struct Row {
        uint32_t count;
        int cont;
        int lock;
        uint32_t operation;
    };
    for (const Row& row :
         {Row{1, 0, 0, 0x01}, Row{2, 0, 0, 0x03}, Row{3, 0, 0, 0x05}, Row{4, 0, 0, 0x07},
          Row{1, 1, 0, 0x09}, Row{1, 0, 1, 0x11}, Row{4, 2, -1, 0x1F}}) {
        adapter_.forget();
        EXPECT_EQ(q4_sf1_write(0, row.count, row.cont, row.lock, 0), 0);
        EXPECT_THAT(adapter_.stores, ElementsAre(Store{kData, 0}, Store{kOp, row.operation}));
        adapter_.forget();
        uint32_t value = 0;
        EXPECT_EQ(q4_sf1_read(0, row.count, row.cont, row.lock, &value), 0);
        EXPECT_THAT(adapter_.stores, ElementsAre(Store{kOp, row.operation & ~1U}));
    }
}

TEST_F(Q4Flash, TransfersRefuseOtherByteCountsBeforeTouchingTheController) {
    uint32_t value = 7;
    for (const uint32_t count : {0U, 5U, 8U, 0xFFFFFFFFU}) {
        EXPECT_EQ(q4_sf1_write(0, count, 0, 0, 0), KX_FLASH_INVALID) << count;
        EXPECT_EQ(q4_sf1_read(0, count, 0, 0, &value), KX_FLASH_INVALID) << count;
    }
    EXPECT_EQ(q4_sf1_read(0, 1, 0, 0, nullptr), KX_FLASH_INVALID);
    EXPECT_EQ(adapter_.accesses(), 0U);
    EXPECT_EQ(value, 7U);
}

TEST_F(Q4Flash, TransfersRefuseABusyController) {
    adapter_.hardware.controller.latches.stuck = 1;
    uint32_t value = 7;
    EXPECT_EQ(q4_sf1_write(0, 1, 0, 0, 0x06), KX_FLASH_BUSY);
    EXPECT_EQ(q4_sf1_read(0, 1, 0, 0, &value), KX_FLASH_BUSY);
    EXPECT_THAT(adapter_.stores, IsEmpty());
    EXPECT_THAT(adapter_.loads, ElementsAre(kOp, kOp));
    EXPECT_EQ(value, 7U);
}

TEST_F(Q4Flash, TransfersThatStayBusyTimeOutAfterTenPolls) {
    adapter_.hardware.faults.stuck_busy_at = 1;
    uint32_t value = 7;
    EXPECT_EQ(q4_sf1_read(0, 1, 1, 0, &value), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(value, 7U);
    EXPECT_THAT(adapter_.loads, ElementsAreArray(std::vector<uint32_t>(11, kOp)));
    EXPECT_THAT(adapter_.sleeps, ElementsAreArray(std::vector<unsigned>(9, 5)));
}

TEST_F(Q4Flash, TransferThatEndsAtTheTenthPollSucceeds) {
    adapter_.hardware.controller.busy_polls = 9;
    EXPECT_EQ(q4_sf1_write(0, 1, 0, 0, 0x06), 0);
    kxsim::models::restore_power(adapter_.hardware);
    adapter_.hardware.controller.busy_polls = 10;
    EXPECT_EQ(q4_sf1_write(0, 1, 0, 0, 0x06), KX_FLASH_TIMED_OUT);
}

// --- Waiting for the flash ---

TEST_F(Q4Flash, WaitForFlashSendsTheStatusCommandLocked) {
    EXPECT_EQ(q4_flash_wait_op(0, 1, 500), 0);
    EXPECT_THAT(
        adapter_.stores, ElementsAre(Store{kData, 0x05}, Store{kOp, 0x19}, Store{kOp, 0x10}));
    EXPECT_THAT(adapter_.loads, ElementsAre(kOp, kOp, kOp, kOp, kData));
}

TEST_F(Q4Flash, WaitForFlashSleepsMillisecondsBetweenItsAttempts) {
    adapter_.hardware.flash.latches.busy_polls = 3;
    EXPECT_EQ(q4_flash_wait_op(0, 4, 2), 0);
    EXPECT_THAT(adapter_.sleeps, ElementsAre(2000U, 2000U, 2000U));
    adapter_.hardware.flash.latches.busy_polls = 4;
    EXPECT_EQ(q4_flash_wait_op(0, 4, 0), KX_FLASH_TIMED_OUT);
}

TEST_F(Q4Flash, WaitForFlashReturnsTheErrorOfEitherTransfer) {
    for (const uint32_t at : {1U, 2U}) {
        adapter_.stick_at(at);
        EXPECT_EQ(q4_flash_wait_op(0, 4, 2), KX_FLASH_TIMED_OUT) << at;
    }
}

// --- Identification ---

TEST_F(Q4Flash, IdentificationTakesNineAccesses) {
    EXPECT_EQ(get_flash_params(0), 4 << 20);
    EXPECT_THAT(adapter_.stores, ElementsAreArray(kIdentify));
    EXPECT_EQ(adapter_.accesses(), 9U);
    adapter_.forget();
    EXPECT_EQ(get_flash_params_sf_nsec(0), 64);
    EXPECT_THAT(adapter_.stores, ElementsAreArray(kIdentify));
    EXPECT_EQ(adapter_.accesses(), 9U);
}

TEST_F(Q4Flash, EveryManufacturerButOneIsRefused) {
    for (int manufacturer = 0; manufacturer < 256; ++manufacturer) {
        adapter_.hardware.flash.manufacturer = static_cast<uint8_t>(manufacturer);
        const bool known = manufacturer == 0x20;
        EXPECT_EQ(get_flash_params(0), known ? 4 << 20 : KX_FLASH_INVALID) << manufacturer;
        EXPECT_EQ(get_flash_params_sf_nsec(0), known ? 64 : KX_FLASH_INVALID) << manufacturer;
    }
}

TEST_F(Q4Flash, EveryCapacityCodeHasItsSizeAndSectors) {
    for (int code = 0; code < 256; ++code) {
        adapter_.hardware.flash.capacity_code = static_cast<uint8_t>(code);
        EXPECT_EQ(get_flash_params(0), static_cast<int32_t>(1U << (code % 32))) << code;
        const int sectors = code >= 20 && code <= 23 ? 1 << (code - 16)
                            : code == 24             ? 64
                                                     : int{KX_FLASH_INVALID};
        EXPECT_EQ(get_flash_params_sf_nsec(0), sectors) << code;
    }
}

TEST_F(Q4Flash, IdentificationReturnsTheTransferErrorWithoutReleasing) {
    adapter_.hardware.faults.stuck_busy_at = 2;
    EXPECT_EQ(get_flash_params(0), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(adapter_.stores.back(), (Store{kOp, 0x14}));
    EXPECT_EQ(get_flash_params_sf_nsec(0), KX_FLASH_BUSY);
}

// --- Erase ---

TEST_F(Q4Flash, EraseOfASectorIsLockedAndReleasedAtTheEnd) {
    EXPECT_EQ(run([] { return q4_flash_erase_sectors(0, 7, 7); }), 0);
    EXPECT_EQ(printed_, "");
    EXPECT_THAT(
        adapter_.stores,
        ElementsAre(
            Store{kData, 0x06}, Store{kOp, 0x11}, Store{kData, 0x7D8}, Store{kOp, 0x17},
            Store{kData, 0x05}, Store{kOp, 0x19}, Store{kOp, 0x10}, Store{kOp, 0}));
}

TEST_F(Q4Flash, EraseOfManySectorsTakesSixteenAccessesEachAndOneMore) {
    for (const int sectors : {1, 2, 5, 64}) {
        adapter_.forget();
        EXPECT_EQ(q4_flash_erase_sectors(0, 0, sectors - 1), 0);
        EXPECT_EQ(adapter_.accesses(), 16U * static_cast<unsigned>(sectors) + 1U);
    }
}

TEST_F(Q4Flash, EraseClearsItsSectorsAndNoOthers) {
    std::fill(adapter_.content.begin(), adapter_.content.end(), uint8_t{0});
    EXPECT_EQ(q4_flash_erase_sectors(0, 2, 3), 0);
    for (std::size_t sector = 0; sector < 64; ++sector) {
        const int value = sector == 2 || sector == 3 ? 0xFF : 0;
        EXPECT_THAT(adapter_.bytes(sector << 16, 1 << 16), Each(value)) << sector;
    }
}

TEST_F(Q4Flash, EraseOfNothingOnlyReleases) {
    EXPECT_EQ(q4_flash_erase_sectors(0, 3, 2), 0);
    EXPECT_THAT(adapter_.stores, ElementsAre(Store{kOp, 0}));
    EXPECT_THAT(adapter_.loads, IsEmpty());
}

TEST_F(Q4Flash, EraseWaitsFourteenTimesHalfASecond) {
    adapter_.hardware.flash.erase_polls = 13;
    EXPECT_EQ(q4_flash_erase_sectors(0, 0, 0), 0);
    EXPECT_THAT(adapter_.sleeps, ElementsAreArray(std::vector<unsigned>(13, 500000)));
    adapter_.hardware.flash.erase_polls = 14;
    EXPECT_EQ(run([] { return q4_flash_erase_sectors(0, 4, 5); }), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(printed_, "erase of flash sector 4 failed, error -11\n");
    EXPECT_EQ(adapter_.stores.back(), (Store{kOp, 0}));
}

TEST_F(Q4Flash, EraseStopsAtTheFirstErrorWhateverTheTransfer) {
    for (const uint32_t at : {1U, 2U, 3U, 4U}) {
        adapter_.stick_at(at + 4);  // in the second sector
        EXPECT_EQ(run([] { return q4_flash_erase_sectors(0, 1, 3); }), KX_FLASH_TIMED_OUT);
        EXPECT_EQ(printed_, "erase of flash sector 2 failed, error -11\n") << at;
        EXPECT_EQ(adapter_.stores.back(), (Store{kOp, 0})) << at;
    }
}

TEST_F(Q4Flash, RangeEraseRoundsUpToTheFlashsOwnSectors) {
    struct Row {
        uint8_t code;
        uint32_t start;
        uint32_t size;
        std::vector<uint32_t> sectors;
        std::string line;
    };
    const Row rows[] = {
        {22, 0x70000, 0x10000, {7}, "sf_size 4194304 sf_nsec 64\n"},
        {22, 0x70000, 0x10001, {7, 8}, "sf_size 4194304 sf_nsec 64\n"},
        {22, 0x71234, 1, {7}, "sf_size 4194304 sf_nsec 64\n"},
        {22, 0, 0x60000, {0, 1, 2, 3, 4, 5}, "sf_size 4194304 sf_nsec 64\n"},
        {22, 0x20000, 0, {}, "sf_size 4194304 sf_nsec 64\n"},
        // With sectors of 256 KiB the first one still counts as 64 KiB.
        {24, 0x70000, 0x50000, {7, 8}, "sf_size 16777216 sf_nsec 64\n"},
        {20, 0x10000, 0x20000, {1, 2}, "sf_size 1048576 sf_nsec 16\n"},
    };
    for (const Row& row : rows) {
        adapter_.hardware.flash.capacity_code = row.code;
        adapter_.forget();
        EXPECT_EQ(run([&] { return q4_erase(0, row.start, row.size); }), 0);
        EXPECT_EQ(printed_, row.line);
        EXPECT_THAT(adapter_.erased_sectors(), ElementsAreArray(row.sectors));
        EXPECT_EQ(adapter_.accesses(), 2 * 9U + 16U * row.sectors.size() + 1U);
    }
}

TEST_F(Q4Flash, RangeEraseTellsWhatFailed) {
    adapter_.hardware.flash.manufacturer = 0xEF;
    EXPECT_EQ(run([] { return q4_erase(0, 0, 1); }), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "get flash params sf_size failed\n");
    adapter_.hardware.flash.manufacturer = 0x20;
    adapter_.hardware.flash.capacity_code = 19;
    EXPECT_EQ(run([] { return q4_erase(0, 0, 1); }), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "get flash params sf_nsec failed\n");
    adapter_.hardware.flash.capacity_code = 22;
    adapter_.hardware.flash.erase_polls = 99;
    EXPECT_EQ(run([] { return q4_erase(0, 0x70000, 0x10000); }), KX_FLASH_INVALID);
    EXPECT_EQ(
        printed_,
        "sf_size 4194304 sf_nsec 64\n"
        "erase of flash sector 7 failed, error -11\n"
        "q4_erase failed\n"
        "Error: q4_erase sizeof conf data 65536\n");
}

// --- Read ---

TEST_F(Q4Flash, ReadSendsTheAddressSwappedAndLocksWithTheLastWord) {
    uint32_t words[3] = {};
    EXPECT_EQ(q4_read_flash(0, 0x012344, 3, words, 0), 0);
    EXPECT_THAT(
        adapter_.stores, ElementsAreArray(
                             kIdentify + std::vector<Store>{
                                             {kData, 0x4423010B},
                                             {kOp, 0x0F},
                                             {kOp, 0x08},
                                             {kOp, 0x0E},
                                             {kOp, 0x0E},
                                             {kOp, 0x16},
                                             {kOp, 0}}));
}

TEST_F(Q4Flash, ReadOfManyWordsTakesFourAccessesEach) {
    for (const uint32_t count : {1U, 2U, 64U, 256U, 417U}) {
        std::vector<uint32_t> words(count);
        adapter_.forget();
        EXPECT_EQ(q4_read_flash(0, 0, count, words.data(), 0), 0);
        EXPECT_EQ(adapter_.accesses(), 18U + 4U * count);
    }
}

TEST_F(Q4Flash, ReadGivesTheBytesInFlashOrderOrSwapped) {
    adapter_.fill(0x100, counting(8));
    uint32_t words[2] = {};
    EXPECT_EQ(q4_read_flash(0, 0x100, 2, words, 0), 0);
    EXPECT_THAT(words, ElementsAre(0x04030201U, 0x08070605U));
    EXPECT_EQ(q4_read_flash(0, 0x100, 2, words, 1), 0);
    EXPECT_THAT(words, ElementsAre(0x01020304U, 0x05060708U));
}

TEST_F(Q4Flash, ReadMayFillWordsAtAnyAddress) {
    adapter_.fill(0, counting(8));
    std::array<uint8_t, 10> buffer{};
    EXPECT_EQ(q4_read_flash(0, 0, 2, reinterpret_cast<uint32_t*>(buffer.data() + 1), 0), 0);
    EXPECT_THAT(buffer, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 0));
}

TEST_F(Q4Flash, ReadOfAnUnalignedAddressDoesNotTouchTheController) {
    uint32_t word = 7;
    for (const uint32_t address : {1U, 2U, 3U, 0x1001U}) {
        EXPECT_EQ(q4_read_flash(0, address, 1, &word, 0), KX_FLASH_INVALID);
    }
    EXPECT_EQ(q4_read_flash(0, 0, 1, nullptr, 0), KX_FLASH_INVALID);
    EXPECT_EQ(adapter_.accesses(), 0U);
    EXPECT_EQ(word, 7U);
}

TEST_F(Q4Flash, ReadEndsAtTheFlashsEnd) {
    constexpr uint32_t kSize = 4 << 20;
    uint32_t words[2] = {};
    EXPECT_EQ(q4_read_flash(0, kSize - 8, 2, words, 0), 0);
    for (const auto& [address, count] :
         {std::pair{kSize - 4, 2U},
          {kSize, 1U},
          {0xFFFFFFFCU, 1U},
          {4U, 0x3FFFFFFFU},
          {0U, 0xFFFFFFFFU},
          {8U, 0xC0000000U}}) {
        adapter_.forget();
        EXPECT_EQ(q4_read_flash(0, address, count, words, 0), KX_FLASH_INVALID);
        EXPECT_EQ(adapter_.accesses(), 9U) << "nothing but the identification";
    }
}

TEST_F(Q4Flash, ReadOfNoWordsSendsNoCommand) {
    uint32_t word = 7;
    EXPECT_EQ(q4_read_flash(0, 0, 0, &word, 0), 0);
    EXPECT_EQ(adapter_.accesses(), 9U);
    EXPECT_EQ(word, 7U);
}

TEST_F(Q4Flash, ReadOfAnUnknownFlashIsInvalid) {
    uint32_t word = 0;
    adapter_.hardware.flash.manufacturer = 0;
    EXPECT_EQ(q4_read_flash(0, 0, 1, &word, 0), KX_FLASH_INVALID);
    adapter_.hardware.flash.manufacturer = 0x20;
    adapter_.hardware.flash.capacity_code = 255;
    EXPECT_EQ(q4_read_flash(0, 0, 1, &word, 0), KX_FLASH_INVALID);
    adapter_.hardware.flash.capacity_code = 0;
    EXPECT_EQ(q4_read_flash(0, 0, 1, &word, 0), KX_FLASH_INVALID);
}

TEST_F(Q4Flash, ReadReturnsAnErrorAtOnceWithoutReleasing) {
    // Two transfers identify the flash; the command, the dummy byte and the words follow.
    for (const uint32_t at : {3U, 4U, 5U, 6U, 7U}) {
        adapter_.stick_at(at);
        uint32_t words[3] = {};
        EXPECT_EQ(q4_read_flash(0, 0, 3, words, 0), KX_FLASH_TIMED_OUT) << at;
        EXPECT_NE(adapter_.stores.back(), (Store{kOp, 0})) << at;
        EXPECT_EQ(adapter_.hardware.controller.transfers, at);
    }
}

// --- Program ---

std::vector<Store> program_stores(uint32_t command, const std::vector<uint32_t>& words) {
    std::vector<Store> stores =
        kIdentify + std::vector<Store>{{kData, 0x06}, {kOp, 0x11}, {kData, command}, {kOp, 0x1F}};
    for (std::size_t i = 0; i < words.size(); ++i) {
        stores.push_back({kData, words[i]});
        stores.push_back({kOp, i + 1 == words.size() ? 0x17U : 0x1FU});
    }
    return stores + std::vector<Store>{{kData, 0x05}, {kOp, 0x19}, {kOp, 0x10}, {kOp, 0}};
}

std::vector<Store> read_back_stores(uint32_t command) {
    std::vector<Store> stores =
        kIdentify + std::vector<Store>{{kData, command}, {kOp, 0x0F}, {kOp, 0x08}};
    stores.insert(stores.end(), 63, Store{kOp, 0x0E});
    return stores + std::vector<Store>{{kOp, 0x16}, {kOp, 0}};
}

TEST_F(Q4Flash, ProgramSendsMostSignificantByteLastAndReadsThePageBack) {
    const auto data = counting(8);
    EXPECT_EQ(run([&] { return q4_write_flash(0, 0x012310, 8, data.data(), 0); }), 0);
    EXPECT_EQ(printed_, "");
    EXPECT_THAT(
        adapter_.stores,
        ElementsAreArray(
            program_stores(0x10230102, {0x04030201, 0x08070605}) + read_back_stores(0x0023010B)));
    EXPECT_EQ(adapter_.bytes(0x12310, 8), data);
}

TEST_F(Q4Flash, ByteOrientedProgramSendsEachWordReversed) {
    const auto data = counting(8);
    EXPECT_EQ(q4_write_flash(0, 0x100, 8, data.data(), 1), 0);
    EXPECT_THAT(
        adapter_.stores,
        ElementsAreArray(
            program_stores(0x00010002, {0x01020304, 0x05060708}) + read_back_stores(0x0001000B)));
    EXPECT_THAT(adapter_.bytes(0x100, 8), ElementsAre(4, 3, 2, 1, 8, 7, 6, 5));
}

TEST_F(Q4Flash, ProgramOfAWholePageTakes556Accesses) {
    const auto data = counting(256);
    EXPECT_EQ(q4_write_flash(0, 0x200, 256, data.data(), 0), 0);
    EXPECT_EQ(adapter_.accesses(), 556U);
    EXPECT_EQ(adapter_.bytes(0x200, 256), data);
}

TEST_F(Q4Flash, ProgramUpToThePagesEndIsAccepted) {
    const auto data = counting(16);
    EXPECT_EQ(q4_write_flash(0, 0x2F0, 16, data.data(), 0), 0);
    EXPECT_EQ(adapter_.bytes(0x2F0, 16), data);
}

TEST_F(Q4Flash, ProgramPastThePagesEndIsRefused) {
    const auto data = counting(300);
    for (const auto& [address, count] :
         {std::pair{0x2F0U, 17U},
          {0U, 257U},
          {1U, 256U},
          {0xFFU, 2U},
          {0U, 0xFFFFFFFFU},
          {8U, 0xFFFFFFF8U}}) {
        adapter_.forget();
        EXPECT_EQ(
            run([&, a = address, n = count] { return q4_write_flash(0, a, n, data.data(), 0); }),
            KX_FLASH_INVALID);
        EXPECT_EQ(printed_, "invalid sf_size\n");
        EXPECT_EQ(adapter_.accesses(), 9U) << "nothing but the identification";
    }
}

TEST_F(Q4Flash, ProgramPastTheFlashsEndIsRefused) {
    const auto data = counting(4);
    for (const uint32_t address : {4U << 20, 0xFFFFFF00U}) {
        EXPECT_EQ(
            run([&] { return q4_write_flash(0, address, 4, data.data(), 0); }), KX_FLASH_INVALID);
        EXPECT_EQ(printed_, "invalid sf_size\n");
    }
}

TEST_F(Q4Flash, ProgramOfAnUnknownFlashIsRefused) {
    const auto data = counting(4);
    adapter_.hardware.flash.manufacturer = 0x1F;
    EXPECT_EQ(run([&] { return q4_write_flash(0, 0, 4, data.data(), 0); }), KX_FLASH_INVALID);
    EXPECT_EQ(printed_, "get_flash_params failed\n");
}

TEST_F(Q4Flash, ProgramOfNullTouchesNothing) {
    EXPECT_EQ(q4_write_flash(0, 0, 4, nullptr, 0), KX_FLASH_INVALID);
    EXPECT_EQ(adapter_.accesses(), 0U);
}

TEST_F(Q4Flash, ProgramOfNothingSendsNoCommand) {
    const auto data = counting(4);
    EXPECT_EQ(q4_write_flash(0, 0, 0, data.data(), 0), 0);
    EXPECT_EQ(adapter_.accesses(), 9U);
}

TEST_F(Q4Flash, ProgramOfAShortLastWordSendsZerosAndFailsItsComparison) {
    const auto data = counting(6);
    EXPECT_EQ(run([&] { return q4_write_flash(0, 0x40, 6, data.data(), 0); }), KX_FLASH_MISMATCH);
    EXPECT_EQ(printed_, "failed to correctly write the flash page at 0x40\n");
    EXPECT_THAT(adapter_.bytes(0x40, 7), ElementsAre(1, 2, 3, 4, 0, 0, 0xFF));
}

TEST_F(Q4Flash, ProgramOverWrittenBytesOnlyClearsBitsAndTellsSo) {
    adapter_.content[0x10] = 0xF0;
    const auto data = counting(4);
    EXPECT_EQ(run([&] { return q4_write_flash(0, 0x10, 4, data.data(), 0); }), KX_FLASH_MISMATCH);
    EXPECT_EQ(printed_, "failed to correctly write the flash page at 0x10\n");
    EXPECT_EQ(adapter_.content[0x10], 0x00);
}

TEST_F(Q4Flash, ProgramNoticesAFlippedBit) {
    adapter_.hardware.faults.flipped_bit_at = 1;
    const auto data = counting(256);
    EXPECT_EQ(run([&] { return q4_write_flash(0, 0, 256, data.data(), 0); }), KX_FLASH_MISMATCH);
    EXPECT_EQ(printed_, "failed to correctly write the flash page at 0\n");
}

TEST_F(Q4Flash, ProgramWaitsEightTimesAMillisecond) {
    const auto data = counting(4);
    adapter_.hardware.flash.program_polls = 7;
    EXPECT_EQ(q4_write_flash(0, 0, 4, data.data(), 0), 0);
    EXPECT_THAT(adapter_.sleeps, ElementsAreArray(std::vector<unsigned>(7, 1000)));
    adapter_.hardware.flash.program_polls = 8;
    EXPECT_EQ(run([&] { return q4_write_flash(0, 4, 4, data.data(), 0); }), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(printed_, "q4_flash_wait_op failed\n");
    EXPECT_EQ(adapter_.stores.back(), (Store{kOp, 0}));
}

TEST_F(Q4Flash, ProgramReleasesAfterAnErrorOfAnyTransfer) {
    // 2 transfers identify; 3 and 4 enable and command; 5 and 6 carry data; 7 and 8 ask the status.
    for (const uint32_t at : {3U, 4U, 5U, 6U, 7U, 8U}) {
        adapter_.stick_at(at);
        const auto data = counting(8);
        EXPECT_EQ(
            run([&] { return q4_write_flash(0, 0x80, 8, data.data(), 0); }), KX_FLASH_TIMED_OUT);
        EXPECT_EQ(printed_, at < 7 ? "q4_sf1_write failed\n" : "q4_flash_wait_op failed\n") << at;
        EXPECT_EQ(adapter_.stores.back(), (Store{kOp, 0})) << at;
        EXPECT_EQ(adapter_.hardware.controller.transfers, at);
    }
}

TEST_F(Q4Flash, ProgramReturnsTheErrorOfItsReadBack) {
    const auto data = counting(4);
    adapter_.hardware.faults.stuck_busy_at = 2 + 2 + 1 + 2 + 2 + 1;  // the read-back's command
    EXPECT_EQ(run([&] { return q4_write_flash(0, 0, 4, data.data(), 0); }), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(printed_, "read flash failed during verify\n");
}

TEST_F(Q4Flash, AnotherAdaptersFlashIsNeitherReadNorTakenForKnown) {
    uint32_t word = 0;
    EXPECT_EQ(q4_read_flash(1, 0, 1, &word, 0), KX_FLASH_INVALID);
    EXPECT_THAT(adapter_.loads, IsEmpty());
}

}  // namespace
