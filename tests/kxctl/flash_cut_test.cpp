// Changes of a flash that are cut: at transfers of the flash, at operations on files with the loss
// of what was not flushed, and by SIGKILL at system calls. After "flash recover" the flash has
// exactly the old content or exactly the new one. KX_THOROUGH (./run faults): at every position.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <set>

#include "kxctl/flash_changes.hpp"
#include "kxctl/run_killed.hpp"

namespace {

using test::FlashCommand;
using test::FlashHost;

constexpr const char* kWays[] = {"--continue", "--roll-back"};
constexpr unsigned kSamples = 3;
constexpr unsigned kNear = 100;     // transfers
constexpr unsigned kClose = 1000;   // and these
constexpr unsigned kKillStep = 16;  // a run that is traced takes long

class CutChange : public testing::TestWithParam<FlashCommand> {
protected:
    CutChange() {
        const kxsim::HardwareCounts start = bench_.hardware().counts();
        EXPECT_EQ(bench_.run(words_).exit, 0);
        const kxsim::HardwareCounts end = bench_.hardware().counts();
        all_ = end.transfers - start.transfers;
        changes_ = end.erases + end.programs - start.erases - start.programs;
        new_content_ = bench_.whole();
        EXPECT_FALSE(new_content_ == bench_.old_content);
    }

    // The transfers that change the flash, counted from the beginning of the command.
    std::vector<unsigned> changing_transfers() {
        std::vector<unsigned> all;
        for (unsigned i = 1; i <= changes_; ++i) {
            bench_.begin_again();
            const unsigned start = bench_.transfers();
            bench_.hardware().faults({.endless_write_at = i});
            EXPECT_EQ(bench_.run(words_).exit, 4) << i;
            all.push_back(bench_.hardware().counts().last_change - start);
        }
        return all;
    }

    // Every transfer between two changes of the flash, or where those are far apart (whole sectors
    // are read between them) the transfers near a change; and samples of the others.
    [[nodiscard]] std::vector<unsigned> cuts(const std::vector<unsigned>& changing) const {
        const unsigned near = test::thorough() ? kNear : 1;
        std::set<unsigned> all;
        unsigned last = 0;
        for (const unsigned change : changing) {
            const bool is_close = test::thorough() && last != 0 && change - last <= kClose;
            for (unsigned at = is_close ? last : change - near; at <= change + near; ++at) {
                all.insert(at);
            }
            last = change;
        }
        for (unsigned at = 1; at <= all_; at += 1 + all_ / (test::thorough() ? kNear : kSamples)) {
            all.insert(at);
        }
        return {all.begin(), all.end()};
    }

    // What must be true after a cut, and recovers.
    void expect_recovery(unsigned position) {
        const testing::ScopedTrace trace(
            __FILE__, __LINE__, "position " + std::to_string(position));
        bench_.hardware().restore_power();
        bench_.hardware().faults({});
        ++cuts_;
        if (!bench_.is_unfinished()) {
            const std::string now = bench_.whole();
            EXPECT_TRUE(now == bench_.old_content || now == new_content_);
            return;
        }
        const bool rolls_back = cuts_ % 2 != 0;
        const test::Result result = bench_.recover(kWays[rolls_back ? 1 : 0]);
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_TRUE(bench_.whole() == (rolls_back ? bench_.old_content : new_content_));
        EXPECT_FALSE(bench_.is_unfinished());
        ++recovered_;
    }

    // The positions from 1 to count: a sample, and between dense_begin and dense_end more of them.
    static std::vector<unsigned> positions(
        unsigned count, unsigned dense_begin, unsigned dense_end, unsigned thorough_step = 1) {
        std::vector<unsigned> all;
        const unsigned sparse = 1 + count / kSamples;
        const unsigned dense =
            test::thorough() ? thorough_step : 1 + (dense_end - dense_begin) / kSamples;
        for (unsigned at = 1; at < dense_begin; at += sparse) {
            all.push_back(at);
        }
        for (unsigned at = dense_begin; at < dense_end; at += dense) {
            all.push_back(at);
        }
        for (unsigned at = dense_end; at <= count; at += sparse) {
            all.push_back(at);
        }
        return all;
    }

    void TearDown() override { std::printf("%u cuts, flash changes\n", cuts_); }

    FlashHost bench_{*GetParam().chip};
    const std::vector<std::string> words_ = GetParam().words();
    std::string new_content_;
    unsigned all_ = 0;      // transfers of the whole command
    unsigned changes_ = 0;  // erases and page programs
    unsigned cuts_ = 0;
    unsigned recovered_ = 0;
};

TEST_P(CutChange, AtATransferIsFinishedOrTakenBack) {
    const std::vector<unsigned> changing = changing_transfers();
    ASSERT_TRUE(std::ranges::is_sorted(changing) && changing.front() > 0);
    for (const unsigned at : cuts(changing)) {
        bench_.begin_again();
        bench_.host.watch_flushes();
        bench_.hardware().faults({.power_cut_at = at});
        const test::Result result = bench_.run(words_);
        EXPECT_NE(result.exit, 0) << at;
        if (bench_.is_unfinished()) {
            EXPECT_EQ(result.exit, 4) << at;
            EXPECT_THAT(
                result.err, testing::HasSubstr(
                                std::string("\"kxctl flash recover ") + GetParam().chip->location +
                                "\" continues it or takes it back"));
        }
        const std::string now = bench_.whole();
        EXPECT_EQ(now == bench_.old_content, at <= changing.front()) << at;
        EXPECT_TRUE(at <= changing.back() || now == new_content_) << at;
        bench_.host.lose_unflushed();
        expect_recovery(at);
    }
    EXPECT_GT(recovered_, 1U);
}

TEST_P(CutChange, AtAFileOperationIsFinishedOrTakenBack) {
    bench_.begin_again();
    kxsim::FaultRule observer =
        bench_.host.fail({.call = "file", .nth = UINT_MAX, .error = EIO, .program = "kxctl"});
    ASSERT_EQ(bench_.run(words_).exit, 0);
    const unsigned operations = observer.seen();
    observer.remove();
    ASSERT_GT(operations, 20U);
    const unsigned late = operations - std::min(operations, 60U);
    for (const unsigned at : positions(operations, late, operations)) {
        bench_.begin_again();
        bench_.host.watch_flushes();
        kxsim::Fault cut = kxsim::power_cut(at);
        cut.program = "kxctl";
        bench_.host.fail(cut);
        static_cast<void>(bench_.run(words_));
        bench_.host.clear_faults();
        bench_.host.lose_unflushed();
        expect_recovery(at);
    }
}

class KilledChange : public CutChange {};

TEST_P(KilledChange, IsFinishedOrTakenBack) {
    bench_.begin_again();
    const auto attached = bench_.host.attach();
    const unsigned calls = test::run_killed(words_, 0);
    if (calls < 100) {
        GTEST_SKIP() << "this machine allows no ptrace";
    }
    ASSERT_TRUE(bench_.whole() == new_content_);
    const unsigned late = calls - std::min(calls, 400U);
    for (const unsigned at : positions(calls, late, calls, kKillStep)) {
        bench_.begin_again();
        test::run_killed(words_, at);
        expect_recovery(at);
    }
    EXPECT_GT(recovered_, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    EveryChange, CutChange, testing::ValuesIn(test::flash_commands()), [](const auto& row) {
        std::string name = std::string(row.param.chip->name) + "_" + row.param.verb;
        std::ranges::replace(name, '-', '_');
        return name;
    });

// A traced run takes seconds, so that the tests take one change of each chip.
std::vector<FlashCommand> killed_changes() {
    std::vector<FlashCommand> some = test::flash_commands();
    if (!test::thorough()) {
        std::erase_if(
            some, [](const auto& row) { return std::string_view(row.verb) != "write-boot"; });
    }
    return some;
}

INSTANTIATE_TEST_SUITE_P(
    OneOfEachChip, KilledChange, testing::ValuesIn(killed_changes()), [](const auto& row) {
        return std::string(row.param.chip->name) + "_" + std::to_string(row.index);
    });

// --- a recovery that is cut itself ---

class CutRecovery : public testing::TestWithParam<const test::FlashChip*> {};

TEST_P(CutRecovery, IsUnfinishedAndCanBeRepeatedBothWays) {
    FlashHost bench(*GetParam());
    const std::vector<std::string> words = FlashCommand{GetParam(), "write-boot"}.words();
    ASSERT_EQ(bench.run(words).exit, 0);
    const std::string new_content = bench.whole();
    const auto cut_change = [&] {
        bench.begin_again();
        bench.hardware().faults({.endless_write_at = 3});
        EXPECT_EQ(bench.run(words).exit, 4);
        bench.hardware().restore_power();
        bench.hardware().faults({});
    };
    cut_change();
    const unsigned before = bench.transfers();
    ASSERT_EQ(bench.recover("--continue").exit, 0);
    const unsigned all = bench.transfers() - before;
    const unsigned step = test::thorough() ? 1 + all / 500 : 1 + all / 8;
    unsigned unfinished = 0;
    for (unsigned at = 1; at <= all; at += step) {
        cut_change();
        bench.hardware().faults({.power_cut_at = at});
        EXPECT_NE(bench.recover(kWays[at / step % 2]).exit, 0) << at;
        bench.hardware().restore_power();
        bench.hardware().faults({});
        unfinished += bench.is_unfinished() ? 1 : 0;
        const bool back = at / step / 2 % 2 != 0;
        const test::Result result = bench.recover(kWays[back ? 1 : 0]);
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_TRUE(bench.whole() == (back ? bench.old_content : new_content)) << at;
    }
    EXPECT_GT(unfinished, 2U);
}

INSTANTIATE_TEST_SUITE_P(
    EveryChip, CutRecovery,
    testing::Values(
        &test::kFlashChips[0], &test::kFlashChips[1], &test::kFlashChips[2], &test::kFlashChips[3]),
    [](const auto& row) { return row.param->name; });

}  // namespace
