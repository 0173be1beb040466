// "kxctl apply" of two ports that is cut, by SIGKILL at system calls and by power cuts at
// operations on files: the host is as before or as wanted, or the change is open and "kxctl revert"
// ends it. KX_THOROUGH (./run faults): at every position.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "kxctl/change_host.hpp"
#include "kxctl/run_killed.hpp"
#include "support/scratch_directory.hpp"

namespace {

constexpr unsigned kApplySamples = 16;
constexpr unsigned kLastCalls = 2500;  // of the change itself; what is before reads the host
constexpr unsigned kLastOperations = 150;

class CutApply : public testing::Test {
protected:
    CutApply() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter({.chip = "Q5", .location = "03:00.4"});
        directory_.write(
            "host.toml",
            "[[port]]\nmatch = {chip = \"Q5\"}\nmtu = 9000\ntso = false\n"
            "[[port]]\ninterface = \"eth3\"\nring_rx = 512\nautoneg = false\n"
            "speed = 1000\n");
        begin_again(false);
        before_ = snapshot();
        EXPECT_EQ(test::run_on(host_, words_).exit, 0);
        wanted_ = snapshot();
        EXPECT_NE(before_, wanted_);
    }

    void begin_again(bool exists = true) {
        for (const char* const name : {"eth2", "eth3"}) {
            if (exists) {
                host_.remove_interface(name);
            }
        }
        host_.port("03:00.4", {.name = "eth2", .mac = "00:07:43:05:00:01"});
        host_.port("03:00.4", {.name = "eth3", .mac = "00:07:43:05:00:02"});
        host_.file(test::kSavedSettings, test::kOldSettings);
        for (const char* const path : {test::kSavedInterfaces, "/var/lib/kxctl"}) {
            if (host_.exists(path)) {
                host_.remove(path);
            }
        }
    }

    // The settings of the ports, and the files that save them.
    std::string snapshot() {
        std::string all = test::run_on(host_, {"state", "save"}).out;
        for (const char* const path : {test::kSavedSettings, test::kSavedInterfaces}) {
            all += host_.exists(path) ? host_.read(path) : std::string("none\n");
        }
        return all;
    }

    static std::vector<unsigned> positions(unsigned count, unsigned of_change) {
        const bool all = std::getenv("KX_THOROUGH") != nullptr;
        const unsigned first = all ? 1 : 1 + count - std::min(count, of_change);
        const unsigned step = all ? 1 : 1 + (count - first) / kApplySamples;
        std::vector<unsigned> result;
        for (unsigned at = first; at <= count; at += step) {
            result.push_back(at);
        }
        return result;
    }

    void expect_whole(unsigned at) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, "position " + std::to_string(at));
        ++cuts_;
        static_cast<void>(test::run_on(host_, {"repair"}));
        if (!host_.exists(std::string(test::kChangeJournal) + "/open")) {
            EXPECT_THAT(snapshot(), testing::AnyOf(before_, wanted_));
            return;
        }
        ++open_;
        EXPECT_EQ(test::run_on(host_, words_).exit, 5);
        const test::Result result = test::run_on(host_, {"revert"});
        EXPECT_EQ(result.exit, 0) << result.err;
        EXPECT_EQ(snapshot(), before_);
    }

    void TearDown() override { std::printf("%u cuts, %u left open\n", cuts_, open_); }

    const test::ScratchDirectory directory_;
    const std::vector<std::string> words_ = {"apply", directory_ / "host.toml"};
    kxsim::Host host_;
    std::string before_;
    std::string wanted_;
    unsigned cuts_ = 0;
    unsigned open_ = 0;
};

TEST_F(CutApply, ByAKillIsWholeOrOpen) {
    begin_again();
    const auto attached = host_.attach();
    const unsigned calls = test::run_killed(words_, 0);
    if (calls < 100) {
        GTEST_SKIP() << "this machine allows no ptrace";
    }
    ASSERT_EQ(snapshot(), wanted_);
    for (const unsigned at : positions(calls, kLastCalls)) {
        begin_again();
        test::run_killed(words_, at);
        expect_whole(at);
    }
    EXPECT_GT(open_, 0U);
}

TEST_F(CutApply, ByAPowerCutIsWholeOrOpen) {
    begin_again();
    kxsim::FaultRule observer =
        host_.fail({.call = "file", .nth = UINT_MAX, .error = EIO, .program = "kxctl"});
    ASSERT_EQ(test::run_on(host_, words_).exit, 0);
    const unsigned operations = observer.seen();
    observer.remove();
    for (const unsigned at : positions(operations, kLastOperations)) {
        begin_again();
        host_.watch_flushes();
        kxsim::Fault cut = kxsim::power_cut(at);
        cut.program = "kxctl";
        host_.fail(cut);
        static_cast<void>(test::run_on(host_, words_));
        host_.clear_faults();
        host_.lose_unflushed();
        expect_whole(at);
    }
    EXPECT_GT(open_, 0U);
}

}  // namespace
