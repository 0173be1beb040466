// Counters of a card, from the files of the offload drivers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/statistics.h>

#include <cerrno>
#include <cstring>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/stat_entries.hpp"

namespace {

using test::Entry;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Field;
using testing::SizeIs;

constexpr char kSnmp[] = "/proc/net/zfab3/toe0/snmp";
constexpr char kTcp[] = "/proc/driver/zfab4/0000:04:00.4/tcp_stats";

// "Aa: 1", "Ab: 2", ... "Ba: 27"
std::string counter_name(unsigned number) {
    const char letters[] = {
        static_cast<char>('A' + (number - 1) / 26), static_cast<char>('a' + (number - 1) % 26), 0};
    return letters;
}

std::string counter_lines(unsigned first, unsigned last) {
    std::string lines;
    for (unsigned number = first; number <= last; ++number) {
        lines += counter_name(number) + ": " + std::to_string(number) + "\n";
    }
    return lines;
}

class CardStatistics : public testing::Test {
protected:
    CardStatistics() { attached_.emplace(host_.attach()); }
    ~CardStatistics() override {
        test::free_entries(chain_);
        test::free_entries(card_.stats);
    }

    // The output of a reader; status_ receives its status.
    template <class Read>
    std::string output_of(Read read) {
        return test::printed([&] { status_ = read(); });
    }

    std::string read_q3(const char* device = "toe0") {
        return output_of([&] { return getCardStats(&chain_, device); });
    }

    std::string read_q4(const char* location = "04:00.4") {
        std::strcpy(card_.pci_bus_location, location);
        return output_of([&] { return getQ4CardStats(&card_); });
    }

    std::vector<Entry> q3_entries(const std::string& content) {
        host_.file(kSnmp, content);
        test::drop_entries(&chain_);
        read_q3();
        EXPECT_EQ(status_, 0U);
        return test::entries_of(chain_);
    }

    std::vector<Entry> q4_entries(const std::string& content) {
        host_.file(kTcp, content);
        test::drop_entries(&card_.stats);
        read_q4();
        EXPECT_EQ(status_, 0U);
        return test::entries_of(card_.stats);
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
    uint32_t status_ = 0xEE;
    StatEntry* chain_ = nullptr;
    CardInfo card_{};
};

TEST_F(CardStatistics, Q3ReadsTwentyFiveLinesThirteenOfThemInGroup1) {
    std::vector<Entry> expected;
    for (unsigned number = 1; number <= 25; ++number) {
        expected.push_back({number <= 13 ? 1 : 2, counter_name(number), number});
    }
    EXPECT_THAT(q3_entries(counter_lines(1, 30)), ElementsAreArray(expected));
    EXPECT_THAT(q3_entries(counter_lines(1, 25)), ElementsAreArray(expected));
    expected.pop_back();
    EXPECT_THAT(q3_entries(counter_lines(1, 24)), ElementsAreArray(expected));
}

TEST_F(CardStatistics, Q3PrintsItsLine) {
    host_.file(kSnmp, counter_lines(1, 2));
    EXPECT_EQ(read_q3(), "In getCardStats\n");
    EXPECT_EQ(read_q3("toe7"), "In getCardStats\n");
}

TEST_F(CardStatistics, Q3FileThatCannotBeOpenedGives1AndLeavesTheSlot) {
    chain_ = test::make_chain(1);
    read_q3();
    EXPECT_EQ(status_, 1U);
    host_.file(kSnmp, counter_lines(1, 2), 0);
    read_q3();
    EXPECT_EQ(status_, 1U);
    EXPECT_THAT(test::entries_of(chain_), ElementsAre(Entry{9, "old", 999}));
    test::drop_entries(&chain_);
    read_q3();
    EXPECT_TRUE(chain_ == nullptr);
}

TEST_F(CardStatistics, Q3DeviceNamesTheDirectory) {
    host_.file("/proc/net/zfab3/toe3/snmp", "Three: 3\n");
    host_.file(kSnmp, "Zero: 0\n");
    read_q3("toe3");
    EXPECT_THAT(test::entries_of(chain_), ElementsAre(Entry{1, "Three", 3}));
}

TEST_F(CardStatistics, Q3EmptyFileGivesNoEntry) {
    EXPECT_THAT(q3_entries(""), SizeIs(0));
    EXPECT_TRUE(chain_ == nullptr);
}

TEST_F(CardStatistics, LineThatDoesNotParseGivesWhatItHas) {
    EXPECT_THAT(
        q3_entries("TcpOut: 5\n"
                   "rx_bytes: 6\n"  // a name has only letters, so it ends at the underscore
                   "NoNumber: x\n"
                   "NoColon 7\n"
                   " Indented: 8\n"  // a blank is no letter
                   "\n"
                   "123: 9\n"
                   "Glued:10\n"
                   "Spaced :11\n"
                   "Wide:    12\n"
                   "Tail: 13 units\n"
                   "Open: 14"),
        ElementsAre(
            Entry{1, "TcpOut", 5}, Entry{1, "rx", 0}, Entry{1, "NoNumber", 0},
            Entry{1, "NoColon", 0}, Entry{1, "", 0}, Entry{1, "", 0}, Entry{1, "", 0},
            Entry{1, "Glued", 10}, Entry{1, "Spaced", 0}, Entry{1, "Wide", 12},
            Entry{1, "Tail", 13}, Entry{1, "Open", 14}));
}

TEST_F(CardStatistics, CountersReachTheLargestNumberAndStopThere) {
    EXPECT_THAT(
        q3_entries("Largest: 18446744073709551615\n"
                   "Beyond: 99999999999999999999999\n"
                   "Negative: -2\n"),
        ElementsAre(
            Entry{1, "Largest", 0xFFFFFFFFFFFFFFFF}, Entry{1, "Beyond", 0xFFFFFFFFFFFFFFFF},
            Entry{1, "Negative", 0xFFFFFFFFFFFFFFFE}));
}

TEST_F(CardStatistics, NameIsCutAtItsFieldAndItsCounterKept) {
    const std::string name(60, 'N');
    EXPECT_THAT(q3_entries(name + ": 44\n"), ElementsAre(Entry{1, std::string(29, 'N'), 44}));
    EXPECT_THAT(
        q4_entries("head\n" + name + ": 44\n"), ElementsAre(Entry{2, std::string(29, 'N'), 44}));
}

TEST_F(CardStatistics, LongLineCountsInPiecesOf119Characters) {
    EXPECT_THAT(
        q3_entries(std::string(119, ' ') + "Behind: 1\n" + std::string(118, ' ') + "\nNext: 2\n"),
        ElementsAre(Entry{1, "", 0}, Entry{1, "Behind", 1}, Entry{1, "", 0}, Entry{1, "Next", 2}));
    EXPECT_THAT(q3_entries(std::string(9999, 'x')), SizeIs(25));
    EXPECT_THAT(q4_entries(std::string(9999, 'x')), SizeIs(24));
}

TEST_F(CardStatistics, LineEndsAtANulInIt) {
    EXPECT_THAT(
        q3_entries(std::string("Cut\0: 5\nWhole: 6\n", 17)),
        ElementsAre(Entry{1, "Cut", 0}, Entry{1, "Whole", 6}));
}

TEST_F(CardStatistics, Q3ChainThatExistsIsOverwrittenAndKeepsItsLength) {
    host_.file(kSnmp, counter_lines(1, 3));
    chain_ = test::make_chain(2);
    StatEntry* const first = chain_;
    read_q3();
    EXPECT_EQ(status_, 0U);
    EXPECT_TRUE(chain_ == first);
    EXPECT_THAT(test::entries_of(chain_), ElementsAre(Entry{1, "Aa", 1}, Entry{1, "Ab", 2}));
    host_.file(kSnmp, "Only: 7\n");
    read_q3();
    EXPECT_THAT(test::entries_of(chain_), ElementsAre(Entry{1, "Only", 7}, Entry{1, "Ab", 2}));
}

TEST_F(CardStatistics, OverwrittenEntryKeepsNothingOfTheOldOne) {
    host_.file(kSnmp, "x_y: 3\n");
    chain_ = test::make_chain(1);
    read_q3();
    EXPECT_THAT(test::entries_of(chain_), ElementsAre(Entry{1, "x", 0}));
}

TEST_F(CardStatistics, Q3SlotMayStandAtAnyAddress) {
    host_.file(kSnmp, counter_lines(1, 2));
    char bytes[sizeof(StatEntry*) + 1] = {};
    KxStatEntryPtr* const slot = reinterpret_cast<KxStatEntryPtr*>(bytes + 1);
    output_of([&] { return getCardStats(slot, "toe0"); });
    EXPECT_THAT(test::entries_of(*slot), SizeIs(2));
    test::drop_entries(slot);
}

TEST_F(CardStatistics, Q3AllocationThatFailsGives66AndKeepsWhatWasRead) {
    host_.file(kSnmp, counter_lines(1, 3));
    const unsigned positions = kxsim::sweep(
        host_, {.call = "calloc", .error = ENOMEM, .from = "libkxlinhw"}, [&](unsigned nth) {
            EXPECT_EQ(getCardStats(&chain_, "toe0"), nth <= 3 ? 66U : 0U) << nth;
            EXPECT_EQ(test::entries_of(chain_).size(), nth - 1);
            test::drop_entries(&chain_);
        });
    EXPECT_EQ(positions, 3U);
}

TEST_F(CardStatistics, Q3RefusesNullArguments) {
    EXPECT_EQ(read_q3(nullptr), "");
    EXPECT_EQ(status_, 317U);
    EXPECT_EQ(getCardStats(nullptr, "toe0"), 317U);
}

TEST_F(CardStatistics, Q4SkipsTheFirstLineAndReadsTwentyFour) {
    std::vector<Entry> expected;
    for (unsigned number = 2; number <= 25; ++number) {
        expected.push_back({2, counter_name(number), number});
    }
    EXPECT_THAT(q4_entries(counter_lines(1, 40)), ElementsAreArray(expected));
    EXPECT_THAT(q4_entries(counter_lines(1, 25)), ElementsAreArray(expected));
    expected.pop_back();
    EXPECT_THAT(q4_entries(counter_lines(1, 24)), ElementsAreArray(expected));
}

TEST_F(CardStatistics, Q4HeadingAloneGivesNoEntry) {
    EXPECT_THAT(q4_entries("TCP statistics\n"), SizeIs(0));
    EXPECT_TRUE(card_.stats == nullptr);
    EXPECT_THAT(q4_entries(""), SizeIs(0));
}

TEST_F(CardStatistics, Q4PrintsTheLocationAndEveryCounterAsASignedNumber) {
    host_.file(kTcp, "head: 1\nOut: 5\nLargest: 18446744073709551615\nno_number\n");
    EXPECT_EQ(read_q4(), "cardInfo->PCIBusLocation: 04:00.4\nOut\t5\nLargest\t-1\nno\t0\n");
}

TEST_F(CardStatistics, Q4DirectoryThatIsMissingNullsTheStatistics) {
    host_.remove("/proc/driver/zfab4");
    StatEntry agents_entry{};
    card_.stats = &agents_entry;
    EXPECT_EQ(read_q4(), "cardInfo->PCIBusLocation: 04:00.4\n");
    EXPECT_EQ(status_, 0xFFFFFFFFU);
    EXPECT_TRUE(card_.stats == nullptr);
}

TEST_F(CardStatistics, Q4DeviceThatIsNotListedLeavesTheStatistics) {
    host_.file("/proc/driver/zfab4/0000:05:00.4/tcp_stats", counter_lines(1, 3));
    card_.stats = test::make_chain(1);
    read_q4();
    EXPECT_EQ(status_, 0U);
    EXPECT_THAT(test::entries_of(card_.stats), ElementsAre(Entry{9, "old", 999}));
}

TEST_F(CardStatistics, Q4FileThatCannotBeReadNullsTheStatistics) {
    host_.directory("/proc/driver/zfab4/0000:04:00.4");
    StatEntry agents_entry{};
    card_.stats = &agents_entry;
    read_q4();
    EXPECT_EQ(status_, 0xFFFFFFFFU);
    EXPECT_TRUE(card_.stats == nullptr);
    host_.file(kTcp, counter_lines(1, 3), 0);
    card_.stats = &agents_entry;
    read_q4();
    EXPECT_EQ(status_, 0xFFFFFFFFU);
    EXPECT_TRUE(card_.stats == nullptr);
}

TEST_F(CardStatistics, Q4TakesTheFirstEntryThatContainsTheLocation) {
    host_.file("/proc/driver/zfab4/x04:00.4y/tcp_stats", "head\nFirst: 1\n");
    host_.file(kTcp, "head\nSecond: 2\n");
    read_q4();
    EXPECT_THAT(test::entries_of(card_.stats), ElementsAre(Entry{2, "First", 1}));
    host_.order("/proc/driver/zfab4", {"0000:04:00.4", "x04:00.4y"});
    test::drop_entries(&card_.stats);
    read_q4();
    EXPECT_THAT(test::entries_of(card_.stats), ElementsAre(Entry{2, "Second", 2}));
}

TEST_F(CardStatistics, Q4LocationMayFillItsField) {
    std::memset(card_.pci_bus_location, '1', sizeof card_.pci_bus_location);
    card_.vendor_id = 0x32323232;
    const std::string output = output_of([&] { return getQ4CardStats(&card_); });
    EXPECT_EQ(output, "cardInfo->PCIBusLocation: " + std::string(16, '1') + "\n");
}

TEST_F(CardStatistics, Q4ChainThatExistsIsOverwrittenAndKeepsItsLength) {
    host_.file(kTcp, counter_lines(1, 5));
    card_.stats = test::make_chain(2);
    StatEntry* const first = card_.stats;
    read_q4();
    EXPECT_EQ(status_, 0U);
    EXPECT_TRUE(card_.stats == first);
    EXPECT_THAT(test::entries_of(card_.stats), ElementsAre(Entry{2, "Ab", 2}, Entry{2, "Ac", 3}));
    host_.file(kTcp, "head\nOnly: 7\n");
    read_q4();
    EXPECT_THAT(test::entries_of(card_.stats), ElementsAre(Entry{2, "Only", 7}, Entry{2, "Ac", 3}));
}

TEST_F(CardStatistics, Q4AllocationThatFailsIsAFailure) {
    host_.file(kTcp, counter_lines(1, 4));
    std::strcpy(card_.pci_bus_location, "04:00.4");
    unsigned positions = 0;
    test::printed([&] {
        positions = kxsim::sweep(
            host_, {.call = "calloc", .error = ENOMEM, .from = "libkxlinhw"}, [&](unsigned nth) {
                EXPECT_EQ(getQ4CardStats(&card_), nth <= 3 ? 0xFFFFFFFF : 0U) << nth;
                test::drop_entries(&card_.stats);
            });
    });
    EXPECT_EQ(positions, 3U);
}

TEST_F(CardStatistics, Q4RefusesNull) { EXPECT_EQ(getQ4CardStats(nullptr), 317U); }

}  // namespace
