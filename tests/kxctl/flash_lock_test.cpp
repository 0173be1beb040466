// Two runs of kxctl on the flash of one adapter: the second one names the first.
#include "flash/lock.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure/failure.hpp"
#include "kxctl/on_host.hpp"
#include "kxctl/terminal.hpp"

namespace {

using namespace kx::ctl;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kLock[] = "/etc/kestrix-plexo/.kxctl.flash-0000:03:00.4.lock";
constexpr char kQuestion[] = "Go on? ";

class FlashLocked : public testing::Test {
protected:
    FlashLocked() {
        for (const char* location : {"03:00.4", "04:00.4"}) {
            kxsim::Adapter adapter{.chip = "Q5", .location = location};
            adapter.flash.content = {{0x70000, "CBIO"}};
            host_.adapter(adapter);
        }
    }

    const std::vector<std::string> erase_ = {"flash", "config-erase", "03:00.4", "--no-backup"};
    const std::vector<std::string> erase_now_ = {
        "flash", "config-erase", "03:00.4", "--no-backup", "--yes"};
    kxsim::Host host_;
};

TEST_F(FlashLocked, SecondRunIsBusyAndToldWhoIsAtWork) {
    const auto attached = host_.attach();
    test::Terminal first(erase_);
    ASSERT_TRUE(first.wait_for(kQuestion)) << first.screen();
    const std::string line = "kxctl: 03:00.4: kxctl flash config-erase (process " +
                             std::to_string(first.process()) + ") works on its flash\n";
    for (const std::vector<std::string>& words :
         {erase_now_, {"flash", "info", "03:00.4"}, {"flash", "info", "0000:03:00.4"}}) {
        const test::Result second = test::run(words);
        EXPECT_EQ(second.exit, 5);
        EXPECT_EQ(second.out, "");
        EXPECT_THAT(second.err, HasSubstr(line.substr(line.find("kxctl flash"))));
    }
    EXPECT_EQ(test::run(erase_now_).err, line);
    EXPECT_EQ(host_.hardware("03:00.4").flash(0x70000, 4), "CBIO");
    EXPECT_EQ(test::run({"flash", "info", "04:00.4"}).exit, 0) << "another adapter";
    first.type("yes\n");
    EXPECT_EQ(first.finish(), 0);
    EXPECT_EQ(host_.hardware("03:00.4").flash(0x70000, 4), "\xFF\xFF\xFF\xFF");
    EXPECT_EQ(test::run(erase_now_).exit, 0) << "the first has ended";
}

TEST_F(FlashLocked, LockOfARunThatWasKilledIsFree) {
    const auto attached = host_.attach();
    {
        test::Terminal killed(erase_);
        ASSERT_TRUE(killed.wait_for(kQuestion)) << killed.screen();
    }
    EXPECT_THAT(host_.read(kLock), testing::EndsWith(" flash config-erase"));
    {
        const FlashLock reader("03:00.4", "0000:03:00.4", "");
        const test::Result result = test::run(erase_now_);
        EXPECT_EQ(result.exit, 5);
        EXPECT_EQ(result.err, "kxctl: 03:00.4: another kxctl works on its flash\n")
            << "not the one that was killed";
    }
    EXPECT_EQ(test::run(erase_now_).exit, 0);
    EXPECT_EQ(host_.read(kLock), "") << "nobody is at work";
}

TEST_F(FlashLocked, ReadersAndPlannersShareIt) {
    const auto attached = host_.attach();
    host_.directory("/etc/kestrix-plexo");
    const FlashLock reader("03:00.4", "0000:03:00.4", "");
    EXPECT_EQ(test::run({"flash", "info", "03:00.4"}).exit, 0);
    EXPECT_EQ(test::run({"flash", "config-erase", "03:00.4", "--dry-run"}).exit, 0);
}

TEST_F(FlashLocked, ReadingMakesNoDirectory) {
    EXPECT_EQ(test::run_on(host_, {"flash", "info", "03:00.4"}).exit, 0);
    EXPECT_FALSE(host_.exists("/etc/kestrix-plexo"));
}

TEST_F(FlashLocked, HostileLineOfAHolderStaysALine) {
    const auto attached = host_.attach();
    host_.directory("/etc/kestrix-plexo");
    const FlashLock holder("03:00.4", "0000:03:00.4", "x");
    const std::string own = std::to_string(getpid());
    for (const std::string& content :
         {own + " a\nb\033[2J", own + " " + std::string(4096, 'x'), own, std::string(" 1 x"),
          std::string("-1 x"), std::string("99999999999999999999 x")}) {
        std::ofstream(host_.root() + kLock) << content;
        const test::Result result = test::run(erase_now_);
        EXPECT_EQ(result.exit, 5);
        EXPECT_THAT(result.err, StartsWith("kxctl: 03:00.4: "));
        EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
        EXPECT_EQ(result.err.find('\033'), result.err.npos);
    }
}

}  // namespace
