// Flashes and windows that fail in the middle of a change: the change stays unfinished and can be
// taken back or continued.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "kxctl/flash_changes.hpp"

namespace {

using test::FlashHost;
using testing::AllOf;
using testing::HasSubstr;

class FlashFaultsInAChange : public testing::TestWithParam<const test::FlashChip*> {
protected:
    test::Result write(kxsim::HardwareFaults faults = {}) {
        bench_.hardware().faults(faults);
        return bench_.run(
            {"flash", "write-boot", chip_.location, "new-rom", "--yes", "--no-backup"});
    }

    // The counts of one change without a fault.
    kxsim::HardwareCounts of_one_change() {
        const kxsim::HardwareCounts before = bench_.hardware().counts();
        EXPECT_EQ(write().exit, 0);
        kxsim::HardwareCounts counts = bench_.hardware().counts();
        counts.reads -= before.reads;
        bench_.begin_again();
        return counts;
    }

    void expect_unfinished(const test::Result& result, const std::string& reason) {
        EXPECT_EQ(result.exit, 4) << result.err;
        EXPECT_THAT(
            result.err,
            AllOf(
                HasSubstr(reason), HasSubstr(
                                       std::string("\"kxctl flash recover ") + chip_.location +
                                       "\" continues it or takes it back")));
        EXPECT_TRUE(bench_.is_unfinished());
    }

    // A new image leaves nothing else in its erase unit, and all else as it was.
    [[nodiscard]] std::string new_content() const {
        return test::boot_image(test::kNewRomSize, 1) +
               std::string(0x10000 - test::kNewRomSize, '\xFF') +
               bench_.old_content.substr(0x10000);
    }

    const test::FlashChip& chip_ = *GetParam();
    FlashHost bench_{chip_};
};

INSTANTIATE_TEST_SUITE_P(
    EveryChip, FlashFaultsInAChange,
    testing::Values(
        &test::kFlashChips[0], &test::kFlashChips[1], &test::kFlashChips[2], &test::kFlashChips[3]),
    [](const auto& row) { return row.param->name; });

// It is found before the sector is written, so that it keeps its old content.
TEST_P(FlashFaultsInAChange, SectorThatDoesNotEraseLeavesAChangeThatCanBeTakenBack) {
    expect_unfinished(write({.stuck_sector = 1}), "does not erase");
    EXPECT_TRUE(bench_.whole() == bench_.old_content);
    expect_unfinished(bench_.recover("--continue"), "does not erase");
    EXPECT_EQ(write({.stuck_sector = 1}).exit, 5);
    const test::Result back = bench_.recover("--roll-back");
    EXPECT_EQ(back.exit, 0) << back.err;
    EXPECT_TRUE(bench_.whole() == bench_.old_content);
    EXPECT_FALSE(bench_.is_unfinished());
}

TEST_P(FlashFaultsInAChange, SectorInTheMiddleThatDoesNotEraseIsTakenBackToo) {
    const std::size_t sector = bench_.hardware().flash_size() > 0x400000 ? 0x40000 : 0x10000;
    bench_.hardware().write_flash(sector + 5, "content");
    const std::string before = bench_.whole();
    bench_.hardware().faults({.stuck_sector = 2});
    expect_unfinished(
        bench_.run({"flash", "erase-boot", chip_.location, "--yes", "--no-backup"}),
        "does not erase");
    EXPECT_FALSE(bench_.whole() == before) << "the first sector was erased";
    const test::Result back = bench_.recover("--roll-back");
    EXPECT_EQ(back.exit, 0) << back.err;
    EXPECT_TRUE(bench_.whole() == before);
}

TEST_P(FlashFaultsInAChange, WrongBitInTheFirstReadingStopsTheChange) {
    for (const unsigned read : {20U, 60U}) {
        const test::Result result = write({.misread_at = read});
        EXPECT_EQ(result.exit, 1);
        EXPECT_THAT(
            result.err,
            AllOf(HasSubstr("two readings of the flash differ at "), HasSubstr("nothing was")));
        EXPECT_FALSE(bench_.is_unfinished());
        EXPECT_EQ(bench_.hardware().counts().erases, 0U);
        EXPECT_TRUE(bench_.whole() == bench_.old_content);
    }
}

TEST_P(FlashFaultsInAChange, WrongBitInTheReadBackLeavesAChangeThatNeedsNoMoreWriting) {
    const unsigned reads = of_one_change().reads;
    expect_unfinished(write({.misread_at = reads}), "although a second reading was right");
    EXPECT_TRUE(bench_.whole() == new_content());
    const auto before = bench_.hardware().counts();
    EXPECT_EQ(bench_.recover("--continue").exit, 0);
    EXPECT_EQ(bench_.hardware().counts().programs, before.programs);
    EXPECT_EQ(bench_.hardware().counts().erases, before.erases);
    EXPECT_FALSE(bench_.is_unfinished());
}

// Whatever single reading has a wrong bit: never a success with a wrong content, and each change
// that is unfinished ends as requested.
TEST_P(FlashFaultsInAChange, WrongBitInAnyReadingIsNoHarm) {
    const unsigned reads = of_one_change().reads;
    const unsigned step = test::thorough() ? 1 : 1 + reads / 12;
    unsigned unfinished = 0;
    for (unsigned at = reads; at > 0; at -= std::min(at, step)) {
        bench_.begin_again();
        const test::Result result = write({.misread_at = at});
        bench_.hardware().faults({});
        EXPECT_TRUE(result.exit != 0 || bench_.whole() == new_content()) << at;
        if (bench_.is_unfinished()) {
            ++unfinished;
            EXPECT_THAT(result.exit, testing::AnyOf(4, 6)) << at;
            const bool back = at / step % 2 != 0;
            EXPECT_EQ(bench_.recover(back ? "--roll-back" : "--continue").exit, 0);
            EXPECT_TRUE(bench_.whole() == (back ? bench_.old_content : new_content())) << at;
        } else {
            EXPECT_TRUE(bench_.whole() == (result.exit == 0 ? new_content() : bench_.old_content))
                << at;
        }
    }
    EXPECT_GT(unfinished, 0U);
}

// /dev/mem is opened several times in one command. What only shows more about the adapter goes
// without it; a change without a window is refused.
TEST_P(FlashFaultsInAChange, WindowThatIsRefusedInTheMiddleIsNoHarm) {
    unsigned refused = 0;
    bool struck = true;
    for (unsigned at = 1; struck; ++at) {
        bench_.begin_again();
        kxsim::FaultRule rule = bench_.host.fail(
            {.call = "open", .nth = at, .error = EPERM, .object = "/dev/mem", .program = "kxctl"});
        const test::Result result = write();
        struck = rule.seen() >= at;
        bench_.host.clear_faults();
        if (result.exit != 0) {
            ++refused;
            EXPECT_TRUE(struck) << result.err;
        }
        if (bench_.is_unfinished()) {
            expect_unfinished(result, chip_.location);
            EXPECT_EQ(bench_.recover("--roll-back").exit, 0);
        }
        EXPECT_TRUE(bench_.whole() == (result.exit == 0 ? new_content() : bench_.old_content))
            << at;
    }
    EXPECT_GT(refused, 0U);
}

}  // namespace
