// Counters of a port, as the drivers of the simulated host give them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/statistics.h>
#include <linux/ethtool.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <kxsim/host.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/stat_entries.hpp"

#if defined(__SANITIZE_ADDRESS__)
// An allocation that is too large fails, as without a sanitizer.
extern "C" KX_EXPORT const char* __asan_default_options() { return "allocator_may_return_null=1"; }
#endif

namespace {

using test::Entry;
using testing::ElementsAre;
using testing::ElementsAreArray;

std::size_t open_descriptors() {
    const std::filesystem::directory_iterator directory("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(directory), end(directory)));
}

class PortStatistics : public testing::Test {
protected:
    PortStatistics() {
        host_.interface({.name = "eth2"});
        give({{"rx_bytes", 1}, {"tx_bytes", 2}, {"errors", 3}});
        attached_.emplace(host_.attach());
    }
    ~PortStatistics() override { test::free_entries(port_.stats); }

    void give(const std::vector<kxsim::NicCounter>& counters) {
        kxsim::Nic nic;
        nic.counters = counters;
        host_.nic("eth2", nic);
    }

    void change(const std::function<void(kxsim::Nic&)>& alter) {
        kxsim::Nic nic = host_.nic("eth2");
        alter(nic);
        host_.nic("eth2", nic);
    }

    std::vector<Entry> read() {
        EXPECT_EQ(getTxRxStats("eth2", &port_), 0U);
        return test::entries_of(port_.stats);
    }

    kxsim::Host host_;
    std::optional<kxsim::Attached> attached_;
    PortInfo port_{};
};

TEST_F(PortStatistics, StandInTheDriversOrderInGroup0) {
    EXPECT_THAT(
        read(),
        ElementsAre(Entry{0, "rx_bytes", 1}, Entry{0, "tx_bytes", 2}, Entry{0, "errors", 3}));
}

TEST_F(PortStatistics, CarryWholeCounters) {
    give({{"largest", 0xFFFFFFFFFFFFFFFF}, {"high", 0x0102030405060708}});
    EXPECT_THAT(
        read(),
        ElementsAre(Entry{0, "largest", 0xFFFFFFFFFFFFFFFF}, Entry{0, "high", 0x0102030405060708}));
}

TEST_F(PortStatistics, NamesAreCutAt30CharactersWithoutNul) {
    const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEF";  // 32, which leaves no NUL
    give({{letters, 5}, {letters.substr(0, 30), 6}, {letters.substr(0, 29), 7}});
    EXPECT_THAT(
        read(), ElementsAre(
                    Entry{0, letters.substr(0, 30), 5}, Entry{0, letters.substr(0, 30), 6},
                    Entry{0, letters.substr(0, 29), 7}));
}

TEST_F(PortStatistics, MoveWithTheDriver) {
    give({{"rx_frames", 100, 7}, {"errors", 3, 0}});
    EXPECT_THAT(read(), ElementsAre(Entry{0, "rx_frames", 100}, Entry{0, "errors", 3}));
    EXPECT_THAT(read(), ElementsAre(Entry{0, "rx_frames", 107}, Entry{0, "errors", 3}));
}

TEST_F(PortStatistics, TwoThousandCostOneSocketAndThreeRequests) {
    std::vector<kxsim::NicCounter> counters;
    std::vector<Entry> expected;
    for (unsigned k = 0; k < 2000; ++k) {
        counters.push_back({"queue_" + std::to_string(k) + "_frames", k});
        expected.push_back({0, counters.back().name, k});
    }
    give(counters);
    const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(getTxRxStats("eth2", &port_), 0U); });
    EXPECT_EQ(calls["socket"], 1U);
    std::vector<uint32_t> asked;
    for (const kxsim::LoggedCall& call : calls.log()) {
        if (call.call == "ioctl") {
            asked.push_back(call.command);
        }
    }
    EXPECT_THAT(asked, ElementsAre(ETHTOOL_GDRVINFO, ETHTOOL_GSTRINGS, ETHTOOL_GSTATS));
    EXPECT_THAT(test::entries_of(port_.stats), ElementsAreArray(expected));
}

TEST_F(PortStatistics, DriverWithoutCountersGives1) {
    give({});
    const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(getTxRxStats("eth2", &port_), 1U); });
    EXPECT_EQ(calls["ioctl"], 1U);
    EXPECT_TRUE(port_.stats == nullptr);
}

struct RefusedRequest {
    uint32_t command;
    const char* on_standard_error;
};

class RefusedStatistics : public PortStatistics,
                          public testing::WithParamInterface<RefusedRequest> {};

TEST_P(RefusedStatistics, Give1AndNoEntryAndCloseTheSocket) {
    host_.refuse("eth2", GetParam().command, EBUSY);
    const std::size_t before = open_descriptors();
    std::string printed;
    const std::string told = test::told(
        [&] { printed = test::printed([&] { EXPECT_EQ(getTxRxStats("eth2", &port_), 1U); }); });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(told, GetParam().on_standard_error);
    EXPECT_TRUE(port_.stats == nullptr);
    EXPECT_EQ(open_descriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, RefusedStatistics,
    testing::Values(
        RefusedRequest{ETHTOOL_GDRVINFO, ""},
        RefusedRequest{
            ETHTOOL_GSTRINGS, "Cannot get stats strings information: Device or resource busy\n"},
        RefusedRequest{ETHTOOL_GSTATS, ""}));

TEST_F(PortStatistics, RefusedRequestLeavesAnExistingChain) {
    port_.stats = test::make_chain(1);
    host_.refuse("eth2", ETHTOOL_GSTATS, EIO);
    EXPECT_EQ(getTxRxStats("eth2", &port_), 1U);
    EXPECT_THAT(test::entries_of(port_.stats), ElementsAre(Entry{9, "old", 999}));
}

TEST_F(PortStatistics, NothingIsAskedWithoutASocket) {
    host_.fail({.call = "socket", .error = ENFILE});
    const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(getTxRxStats("eth2", &port_), 1U); });
    EXPECT_EQ(calls["ioctl"], 0U);
    EXPECT_TRUE(port_.stats == nullptr);
}

TEST_F(PortStatistics, CloseTheirSocket) {
    const std::size_t before = open_descriptors();
    read();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(PortStatistics, ExistingChainIsOverwrittenAndNotLengthened) {
    port_.stats = test::make_chain(2);
    StatEntry* const first = port_.stats;
    EXPECT_THAT(read(), ElementsAre(Entry{0, "rx_bytes", 1}, Entry{0, "tx_bytes", 2}));
    EXPECT_TRUE(port_.stats == first);
}

TEST_F(PortStatistics, ExistingChainIsNotShortened) {
    port_.stats = test::make_chain(4);
    EXPECT_THAT(
        read(), ElementsAre(
                    Entry{0, "rx_bytes", 1}, Entry{0, "tx_bytes", 2}, Entry{0, "errors", 3},
                    Entry{9, "old", 999}));
}

// There are as many entries as the driver announces; those that it does not fill are empty.
TEST_F(PortStatistics, AnnouncedNumberCountsWhateverTheAnswersSay) {
    change([](kxsim::Nic& nic) { nic.announced_counters = 2; });
    EXPECT_THAT(read(), ElementsAre(Entry{0, "rx_bytes", 1}, Entry{0, "tx_bytes", 2}));
    change([](kxsim::Nic& nic) { nic.announced_counters = 5; });
    test::drop_entries(&port_.stats);
    EXPECT_THAT(
        read(), ElementsAre(
                    Entry{0, "rx_bytes", 1}, Entry{0, "tx_bytes", 2}, Entry{0, "errors", 3},
                    Entry{0, "", 0}, Entry{0, "", 0}));
    change([](kxsim::Nic& nic) { nic.announced_counters = {}; });
    for (const auto member : {&kxsim::Nic::named_counters, &kxsim::Nic::valued_counters}) {
        for (const uint32_t number : {0U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
            change([&](kxsim::Nic& nic) { nic.*member = number; });
            test::drop_entries(&port_.stats);
            EXPECT_EQ(read().size(), 3U) << number;
            change([&](kxsim::Nic& nic) { nic.*member = {}; });
        }
    }
}

TEST_F(PortStatistics, MoreCountersThanMemoryCanHoldGive66) {
    change([](kxsim::Nic& nic) { nic.announced_counters = 0xFFFFFFFF; });
    for (const unsigned block : {1U, 2U}) {
        kxsim::FaultRule rule =
            host_.fail({.call = "calloc", .nth = block, .error = ENOMEM, .from = "libkxlinhw"});
        kxsim::Calls calls = host_.count([&] { EXPECT_EQ(getTxRxStats("eth2", &port_), 66U); });
        EXPECT_EQ(calls["ioctl"], 1U);
        rule.remove();
    }
    EXPECT_TRUE(port_.stats == nullptr);
}

// The two blocks, then an entry for each counter.
TEST_F(PortStatistics, EveryAllocationThatFailsGives66AndKeepsWhatWasRead) {
    const unsigned positions = kxsim::sweep(
        host_, {.call = "calloc", .error = ENOMEM, .from = "libkxlinhw"}, [&](unsigned nth) {
            EXPECT_EQ(getTxRxStats("eth2", &port_), nth <= 5 ? 66U : 0U) << nth;
            EXPECT_EQ(test::entries_of(port_.stats).size(), nth <= 2 ? 0U : nth - 3);
            test::drop_entries(&port_.stats);
        });
    EXPECT_EQ(positions, 5U);
}

TEST_F(PortStatistics, RefuseNullArguments) {
    EXPECT_EQ(getTxRxStats(nullptr, &port_), 317U);
    EXPECT_EQ(getTxRxStats("eth2", nullptr), 317U);
}

TEST_F(PortStatistics, UnknownInterfaceGives1) {
    EXPECT_EQ(getTxRxStats("eth9", &port_), 1U);
    EXPECT_TRUE(port_.stats == nullptr);
}

}  // namespace
