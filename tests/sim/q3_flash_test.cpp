// The serial flash of Q3 adapters: all differences from Q4 and Q5.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/flash.h>

#include <array>
#include <string>
#include <utility>
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

constexpr uint32_t kData = bench::kQ3Data;
constexpr uint32_t kOp = bench::kQ3Operation;
constexpr uint32_t kBusy = 1U << 31;
constexpr uint32_t kFlashSize = 0x80000;

const std::string kTimedOut = "ERROR: timed out waiting for serial flash to complete command!\n";
const std::string kIsBusy = "ERROR: adapter serial flash controller busy!\n";
const std::string kWriteFailed = "ERROR: write to serial flash failed!\n";
const std::string kReadFailed = "ERROR: could not read from serial flash!\n";
const std::string kOutside = "ERROR: invalid address, outside of flash size!\n";
const std::string kNoCommand = "ERROR: could not write/read from serial flash!\n";

class Q3Flash : public test::OutputTest {
protected:
    // Nothing is printed on standard output.
    template <class Call>
    auto run(const Call& call) {
        const auto result = OutputTest::run(call);
        EXPECT_EQ(printed_, "");
        return result;
    }

    bench::Adapter adapter_{bench::Family::kQ3, 19};
};

// --- Waiting for a register ---

TEST_F(Q3Flash, WaitStoresTheValueThatFulfilsTheMask) {
    adapter_.hardware.controller.latches.operation = 0x15;
    uint32_t value = 7;
    EXPECT_EQ(run([&] { return q3_wait_op_done_val(0, kOp, 0x10, 1, 3, 5, &value); }), 0);
    EXPECT_EQ(value, 0x15U);
    EXPECT_EQ(told_, "");
    EXPECT_EQ(q3_wait_op_done(0, kOp, kBusy, 0, 1, 5), 0);
}

TEST_F(Q3Flash, WaitThatTimesOutSaysSo) {
    uint32_t value = 7;
    EXPECT_EQ(
        run([&] { return q3_wait_op_done_val(0, kOp, kBusy, 1, 3, 10, &value); }),
        KX_Q3_FLASH_TIMED_OUT);
    EXPECT_EQ(told_, kTimedOut);
    EXPECT_EQ(value, 7U);
    EXPECT_THAT(adapter_.loads, SizeIs(3));
    EXPECT_THAT(adapter_.sleeps, ElementsAre(10U, 10U));
    EXPECT_EQ(run([] { return q3_wait_op_done(0, kOp, kBusy, 1, 1, 10); }), KX_Q3_FLASH_TIMED_OUT);
    EXPECT_EQ(told_, kTimedOut);
}

// --- Single transfers ---

TEST_F(Q3Flash, WriteTransferHasNoLock) {
    EXPECT_EQ(run([] { return q3_sf1_write(0, 4, 1, 0xA1B2C302); }), 0);
    EXPECT_THAT(adapter_.stores, ElementsAre(Store{kData, 0xA1B2C302}, Store{kOp, 0x0F}));
    EXPECT_THAT(adapter_.loads, ElementsAre(kOp, kOp));
    EXPECT_EQ(told_, "");
}

TEST_F(Q3Flash, ReadTransferHasNoLock) {
    uint32_t value = 0;
    EXPECT_EQ(run([&] { return q3_sf1_read(0, 4, 1, &value); }), 0);
    EXPECT_THAT(adapter_.stores, ElementsAre(Store{kOp, 0x0E}));
    EXPECT_THAT(adapter_.loads, ElementsAre(kOp, kOp, kData));
    EXPECT_EQ(value, 0xFFFFFFFFU);
}

TEST_F(Q3Flash, TransfersRefuseOtherByteCountsWithTheWritersMessage) {
    uint32_t value = 7;
    EXPECT_EQ(run([] { return q3_sf1_write(0, 0, 0, 0); }), KX_FLASH_INVALID);
    EXPECT_EQ(told_, "ERROR: wrong byte count of 0 to write!\n");
    EXPECT_EQ(run([] { return q3_sf1_write(0, 5, 0, 0); }), KX_FLASH_INVALID);
    EXPECT_EQ(told_, "ERROR: wrong byte count of 5 to write!\n");
    EXPECT_EQ(run([&] { return q3_sf1_read(0, 0, 0, &value); }), KX_FLASH_INVALID);
    EXPECT_EQ(told_, "ERROR: wrong byte count of 0 to write!\n");
    EXPECT_EQ(run([&] { return q3_sf1_read(0, 5, 0, &value); }), KX_FLASH_INVALID);
    EXPECT_EQ(told_, "ERROR: wrong byte count of 5 to write!\n");
    EXPECT_EQ(run([] { return q3_sf1_read(0, 1, 0, nullptr); }), KX_FLASH_INVALID);
    EXPECT_EQ(adapter_.accesses(), 0U);
    EXPECT_EQ(value, 7U);
}

TEST_F(Q3Flash, TransfersRefuseABusyController) {
    adapter_.hardware.controller.latches.stuck = 1;
    uint32_t value = 7;
    EXPECT_EQ(run([] { return q3_sf1_write(0, 1, 0, 6); }), KX_FLASH_BUSY);
    EXPECT_EQ(told_, kIsBusy);
    EXPECT_EQ(run([&] { return q3_sf1_read(0, 1, 0, &value); }), KX_FLASH_BUSY);
    EXPECT_EQ(told_, kIsBusy);
    EXPECT_THAT(adapter_.stores, IsEmpty());
    EXPECT_EQ(value, 7U);
}

TEST_F(Q3Flash, WriteTransferThatStaysBusyTimesOutAfterFivePolls) {
    adapter_.stick_at(1);
    EXPECT_EQ(run([] { return q3_sf1_write(0, 1, 0, 6); }), KX_Q3_FLASH_TIMED_OUT);
    EXPECT_EQ(told_, kTimedOut + kWriteFailed);
    EXPECT_THAT(adapter_.loads, ElementsAreArray(std::vector<uint32_t>(6, kOp)));
    EXPECT_THAT(adapter_.sleeps, ElementsAreArray(std::vector<unsigned>(4, 10)));
}

TEST_F(Q3Flash, ReadTransferThatStaysBusyHasAStatusOfItsOwn) {
    adapter_.stick_at(1);
    uint32_t value = 7;
    EXPECT_EQ(run([&] { return q3_sf1_read(0, 1, 0, &value); }), KX_Q3_FLASH_READ);
    EXPECT_EQ(told_, kTimedOut + kReadFailed);
    EXPECT_EQ(value, 7U);
    EXPECT_THAT(adapter_.loads, ElementsAreArray(std::vector<uint32_t>(6, kOp)));
    EXPECT_THAT(adapter_.sleeps, ElementsAreArray(std::vector<unsigned>(4, 10)));
}

TEST_F(Q3Flash, TransferThatEndsAtTheFifthPollSucceeds) {
    adapter_.hardware.controller.busy_polls = 4;
    EXPECT_EQ(q3_sf1_write(0, 1, 0, 6), 0);
}

// --- Waiting for the flash ---

TEST_F(Q3Flash, WaitForFlashReadsTheStatusByStoringZero) {
    EXPECT_EQ(run([] { return q3_flash_wait_op(0, 1, 500); }), 0);
    EXPECT_THAT(adapter_.stores, ElementsAre(Store{kData, 5}, Store{kOp, 0x09}, Store{kOp, 0}));
    EXPECT_THAT(adapter_.loads, ElementsAre(kOp, kOp, kOp, kOp, kData));
}

TEST_F(Q3Flash, WaitForFlashSpendsItsBudgetSilently) {
    adapter_.hardware.flash.latches.busy_polls = 4;
    EXPECT_EQ(run([] { return q3_flash_wait_op(0, 4, 2); }), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(told_, "");
    EXPECT_THAT(adapter_.sleeps, ElementsAre(2000U, 2000U, 2000U));
}

TEST_F(Q3Flash, WaitForFlashReturnsTheErrorOfEitherTransfer) {
    adapter_.stick_at(1);
    EXPECT_EQ(run([] { return q3_flash_wait_op(0, 4, 2); }), KX_Q3_FLASH_TIMED_OUT);
    adapter_.stick_at(2);
    EXPECT_EQ(run([] { return q3_flash_wait_op(0, 4, 2); }), KX_Q3_FLASH_READ);
}

// --- Erase ---

TEST_F(Q3Flash, EraseNeitherLocksNorReleases) {
    EXPECT_EQ(run([] { return q3_flash_erase_sectors(0, 3, 3); }), 0);
    EXPECT_THAT(
        adapter_.stores,
        ElementsAre(
            Store{kData, 0x06}, Store{kOp, 0x01}, Store{kData, 0x3D8}, Store{kOp, 0x07},
            Store{kData, 0x05}, Store{kOp, 0x09}, Store{kOp, 0}));
    EXPECT_EQ(adapter_.accesses(), 16U);
    EXPECT_EQ(told_, "");
}

TEST_F(Q3Flash, EraseClearsItsSectorsAndNoOthers) {
    std::fill(adapter_.content.begin(), adapter_.content.end(), uint8_t{0});
    EXPECT_EQ(q3_flash_erase_sectors(0, 0, 2), 0);
    EXPECT_EQ(adapter_.accesses(), 3 * 16U);
    EXPECT_THAT(adapter_.bytes(0, 0x30000), Each(0xFF));
    EXPECT_THAT(adapter_.bytes(0x30000, 0x50000), Each(0));
}

TEST_F(Q3Flash, EraseEndsWithSuccessAtANegativeSector) {
    EXPECT_EQ(run([] { return q3_flash_erase_sectors(0, -1, 3); }), 0);
    EXPECT_EQ(run([] { return q3_flash_erase_sectors(0, 2, 1); }), 0);
    EXPECT_EQ(adapter_.accesses(), 0U);
}

TEST_F(Q3Flash, EraseWaitsFiveTimesHalfASecondAndIsSilent) {
    adapter_.hardware.flash.erase_polls = 4;
    EXPECT_EQ(q3_flash_erase_sectors(0, 0, 0), 0);
    EXPECT_THAT(adapter_.sleeps, ElementsAreArray(std::vector<unsigned>(4, 500000)));
    adapter_.hardware.flash.erase_polls = 5;
    adapter_.forget();
    EXPECT_EQ(run([] { return q3_flash_erase_sectors(0, 1, 2); }), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(told_, "");
    EXPECT_EQ(adapter_.hardware.flash.erases, 2U);
}

TEST_F(Q3Flash, EraseStopsAtTheFirstErrorWhateverTheTransfer) {
    for (const uint32_t at : {1U, 2U, 3U, 4U}) {
        adapter_.stick_at(at + 4);
        EXPECT_EQ(
            run([] { return q3_flash_erase_sectors(0, 0, 2); }),
            at == 4 ? KX_Q3_FLASH_READ : KX_Q3_FLASH_TIMED_OUT);
        EXPECT_EQ(told_, kTimedOut + (at == 4 ? kReadFailed : kWriteFailed));
        EXPECT_EQ(adapter_.hardware.controller.transfers, at + 4);
    }
}

// --- Read ---

TEST_F(Q3Flash, ReadNeitherIdentifiesNorLocksNorReleases) {
    adapter_.fill(0x012344, counting(12));
    uint32_t words[3] = {};
    EXPECT_EQ(run([&] { return q3_read_flash(0, 0x012344, 3, words); }), 0);
    EXPECT_THAT(
        adapter_.stores, ElementsAre(
                             Store{kData, 0x4423010B}, Store{kOp, 0x0F}, Store{kOp, 0x08},
                             Store{kOp, 0x0E}, Store{kOp, 0x0E}, Store{kOp, 0x06}));
    EXPECT_THAT(words, ElementsAre(0x04030201U, 0x08070605U, 0x0C0B0A09U));
    EXPECT_EQ(told_, "");
}

TEST_F(Q3Flash, ReadOfManyWordsTakesFourAccessesEachAndEightMore) {
    for (const uint32_t count : {1U, 7U, 111U, 128U}) {
        std::vector<uint32_t> words(count);
        adapter_.forget();
        EXPECT_EQ(q3_read_flash(0, 0, count, words.data()), 0);
        EXPECT_EQ(adapter_.accesses(), 8U + 4U * count);
    }
}

TEST_F(Q3Flash, ReadMayFillWordsAtAnyAddress) {
    adapter_.fill(0, counting(4));
    std::array<uint8_t, 6> buffer{};
    EXPECT_EQ(q3_read_flash(0, 0, 1, reinterpret_cast<uint32_t*>(buffer.data() + 1)), 0);
    EXPECT_THAT(buffer, ElementsAre(0, 1, 2, 3, 4, 0));
}

TEST_F(Q3Flash, ReadOutsideOf512KiBIsRefused) {
    uint32_t words[2] = {};
    EXPECT_EQ(run([&] { return q3_read_flash(0, kFlashSize - 8, 2, words); }), 0);
    adapter_.forget();
    for (const auto& [address, count] :
         {std::pair{kFlashSize - 4, 2U},
          {kFlashSize, 1U},
          {0xFFFFFFFCU, 1U},
          {4U, 0x3FFFFFFFU},
          {1U, 1U},
          {2U, 1U},
          {3U, 1U}}) {
        EXPECT_EQ(
            run([&, a = address, n = count] { return q3_read_flash(0, a, n, words); }),
            KX_FLASH_INVALID);
        EXPECT_EQ(told_, kOutside);
    }
    EXPECT_EQ(run([] { return q3_read_flash(0, 0, 1, nullptr); }), KX_FLASH_INVALID);
    EXPECT_EQ(adapter_.accesses(), 0U);
}

TEST_F(Q3Flash, ReadOfNoWordsSendsNoCommand) {
    uint32_t word = 7;
    EXPECT_EQ(q3_read_flash(0, 0, 0, &word), 0);
    EXPECT_EQ(adapter_.accesses(), 0U);
    EXPECT_EQ(word, 7U);
}

TEST_F(Q3Flash, ReadWhoseCommandFailsStillAsksForTheDummyByte) {
    adapter_.stick_at(1);
    uint32_t word = 0;
    EXPECT_EQ(
        run([&] { return q3_read_flash(0, 0, 1, &word); }), KX_Q3_FLASH_TIMED_OUT | KX_FLASH_BUSY);
    EXPECT_EQ(told_, kTimedOut + kWriteFailed + kIsBusy + kNoCommand);
}

TEST_F(Q3Flash, ReadWhoseDummyByteFailsSaysSo) {
    adapter_.stick_at(2);
    uint32_t word = 0;
    EXPECT_EQ(run([&] { return q3_read_flash(0, 0, 1, &word); }), KX_Q3_FLASH_READ);
    EXPECT_EQ(told_, kTimedOut + kReadFailed + kNoCommand);
}

TEST_F(Q3Flash, ReadWhoseWordFailsStopsThere) {
    for (const uint32_t at : {3U, 4U, 5U}) {
        adapter_.stick_at(at);
        uint32_t words[3] = {};
        EXPECT_EQ(run([&] { return q3_read_flash(0, 0, 3, words); }), KX_Q3_FLASH_READ);
        EXPECT_EQ(told_, kTimedOut + kReadFailed + kReadFailed);
        EXPECT_EQ(adapter_.hardware.controller.transfers, at);
    }
}

// --- Program ---

TEST_F(Q3Flash, ProgramSendsTheBytesInOrderAndDoesNotReadBack) {
    const auto data = counting(6);
    EXPECT_EQ(run([&] { return q3_write_flash(0, 0x012310, 6, data.data()); }), 0);
    EXPECT_THAT(
        adapter_.stores,
        ElementsAre(
            Store{kData, 0x06}, Store{kOp, 0x01}, Store{kData, 0x10230102}, Store{kOp, 0x0F},
            Store{kData, 0x04030201}, Store{kOp, 0x0F}, Store{kData, 0x0605}, Store{kOp, 0x03},
            Store{kData, 0x05}, Store{kOp, 0x09}, Store{kOp, 0}));
    EXPECT_EQ(adapter_.bytes(0x12310, 6), data);
    EXPECT_EQ(adapter_.content[0x12316], 0xFF);
    EXPECT_EQ(told_, "");
}

TEST_F(Q3Flash, ProgramOfAWholePageTakes272Accesses) {
    const auto data = counting(256);
    EXPECT_EQ(q3_write_flash(0, 0x200, 256, data.data()), 0);
    EXPECT_EQ(adapter_.accesses(), 272U);
    EXPECT_EQ(adapter_.bytes(0x200, 256), data);
}

TEST_F(Q3Flash, ProgramReadsNoByteBehindItsData) {
    const std::vector<uint8_t> data(7, 0x11);  // a sanitizer watches its end
    EXPECT_EQ(q3_write_flash(0, 0, 7, data.data()), 0);
    EXPECT_THAT(adapter_.bytes(0, 8), ElementsAre(0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0xFF));
}

TEST_F(Q3Flash, ProgramPastThePageOrTheFlashIsRefusedWithItsEndInThePage) {
    const auto data = counting(300);
    struct Row {
        uint32_t address;
        uint32_t count;
        const char* end;
    };
    for (const Row& row :
         {Row{0, 257, "0x101"}, Row{0x2F0, 17, "0x101"}, Row{0xFF, 256, "0x1ff"},
          Row{kFlashSize - 4, 5, "0x101"}, Row{kFlashSize, 1, "0x1"}, Row{0xFFFFFF00, 1, "0x1"},
          Row{8, 0xFFFFFFF8, "0x0"}}) {
        EXPECT_EQ(
            run([&] { return q3_write_flash(0, row.address, row.count, data.data()); }),
            KX_FLASH_INVALID);
        EXPECT_EQ(
            told_, std::string("ERROR: write offset outside of flash size: ") + row.end + "\n");
    }
    EXPECT_EQ(run([] { return q3_write_flash(0, 0, 4, nullptr); }), KX_FLASH_INVALID);
    EXPECT_EQ(adapter_.accesses(), 0U);
}

TEST_F(Q3Flash, ProgramUpToThePagesAndTheFlashsEndIsAccepted) {
    const auto data = counting(256);
    EXPECT_EQ(q3_write_flash(0, kFlashSize - 256, 256, data.data()), 0);
    EXPECT_EQ(q3_write_flash(0, 0x1F0, 16, data.data()), 0);
    EXPECT_EQ(adapter_.bytes(kFlashSize - 256, 256), data);
}

TEST_F(Q3Flash, ProgramOfNothingSendsNoCommand) {
    const auto data = counting(4);
    EXPECT_EQ(q3_write_flash(0, 0, 0, data.data()), 0);
    EXPECT_EQ(adapter_.accesses(), 0U);
}

TEST_F(Q3Flash, ProgramWaitsFiveTimesAMillisecond) {
    const auto data = counting(4);
    adapter_.hardware.flash.program_polls = 4;
    EXPECT_EQ(q3_write_flash(0, 0, 4, data.data()), 0);
    EXPECT_THAT(adapter_.sleeps, ElementsAreArray(std::vector<unsigned>(4, 1000)));
    adapter_.hardware.flash.program_polls = 5;
    EXPECT_EQ(run([&] { return q3_write_flash(0, 4, 4, data.data()); }), KX_FLASH_TIMED_OUT);
    EXPECT_EQ(told_, "");
}

TEST_F(Q3Flash, ProgramStopsAtTheFirstErrorWithoutAStoreMore) {
    const auto data = counting(8);
    for (const uint32_t at : {1U, 2U, 3U, 4U, 5U, 6U}) {
        adapter_.stick_at(at);
        const bool reading = at == 6;
        EXPECT_EQ(
            run([&] { return q3_write_flash(0, 0, 8, data.data()); }),
            reading ? KX_Q3_FLASH_READ : KX_Q3_FLASH_TIMED_OUT);
        EXPECT_EQ(told_, kTimedOut + (reading ? kReadFailed : kWriteFailed)) << at;
        EXPECT_EQ(adapter_.hardware.controller.transfers, at);
        EXPECT_EQ(adapter_.stores.back().offset, kOp);
    }
}

TEST_F(Q3Flash, ProgramDoesNotNoticeAFlippedBit) {
    adapter_.hardware.faults.flipped_bit_at = 1;
    const auto data = counting(4);
    EXPECT_EQ(q3_write_flash(0, 0, 4, data.data()), 0);
    EXPECT_NE(adapter_.bytes(0, 4), data);
}

TEST_F(Q3Flash, AnotherAdaptersRegistersAreNotTouched) {
    const auto data = counting(4);
    EXPECT_EQ(q3_write_flash(1, 0, 4, data.data()), 0);  // registers that read 0 look like success
    EXPECT_EQ(adapter_.accesses(), 0U);
}

}  // namespace
