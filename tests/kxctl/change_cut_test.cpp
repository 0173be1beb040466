// Changes of ports and their reverts that are cut: by SIGKILL at system calls, and at operations on
// files with the loss of what was not flushed. Afterwards the host is as before or as wanted, or
// the change is open and "kxctl revert" ends it. KX_THOROUGH (./run faults): at every position.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "kxctl/change_host.hpp"
#include "kxctl/run_killed.hpp"

namespace {

using Words = std::vector<std::string>;

constexpr unsigned kCutSamples = 24;

// A command that is cut, and how it begins.
struct CutCommand {
    const char* name;
    Words words;
    bool from_wanted;  // it takes back a change that is done
};

std::ostream& operator<<(std::ostream& stream, const CutCommand& command) {
    return stream << command.name;
}

class CutPortChange : public testing::TestWithParam<CutCommand> {
protected:
    void begin_again() {
        bench_.begin_again();
        if (GetParam().from_wanted) {
            ASSERT_EQ(test::run_on(bench_.host, test::ChangeHost::words()).exit, 0);
            ASSERT_TRUE(bench_.is_as_wanted());
        }
    }

    // The last positions are those of the change itself.
    static std::vector<unsigned> positions(unsigned count, unsigned of_change) {
        const bool all = std::getenv("KX_THOROUGH") != nullptr;
        const unsigned first = all ? 1 : count - std::min(count, of_change);
        const unsigned step = all ? 1 : 1 + (count - first) / kCutSamples;
        std::vector<unsigned> result;
        for (unsigned at = std::max(first, 1U); at <= count; at += step) {
            result.push_back(at);
        }
        return result;
    }

    // What must be true after a cut.
    void expect_whole(unsigned at) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, "position " + std::to_string(at));
        ++cuts_;
        static_cast<void>(test::run_on(bench_.host, {"repair"}));
        if (bench_.is_open()) {
            ++open_;
            const test::Result refused =
                test::run_on(bench_.host, {"port", "set", "eth3", "mtu=2000"});
            EXPECT_EQ(refused.exit, 5);
            const test::Result result = test::run_on(bench_.host, {"revert"});
            EXPECT_EQ(result.exit, 0) << result.err;
            EXPECT_TRUE(GetParam().from_wanted ? bench_.is_as_wanted() : bench_.is_as_before())
                << bench_.text();
            EXPECT_FALSE(bench_.is_open());
        } else {
            EXPECT_TRUE(bench_.is_as_before() || bench_.is_as_wanted()) << bench_.text();
        }
    }

    void TearDown() override { std::printf("%u cuts, %u left open\n", cuts_, open_); }

    test::ChangeHost bench_;
    unsigned cuts_ = 0;
    unsigned open_ = 0;
};

TEST_P(CutPortChange, ByAKillIsWholeOrOpen) {
    begin_again();
    const auto attached = bench_.host.attach();
    const unsigned calls = test::run_killed(GetParam().words, 0);
    if (calls < 100) {
        GTEST_SKIP() << "this machine allows no ptrace";
    }
    ASSERT_TRUE(GetParam().from_wanted ? bench_.is_as_before() : bench_.is_as_wanted());
    for (const unsigned at : positions(calls, 1500)) {
        begin_again();
        test::run_killed(GetParam().words, at);
        expect_whole(at);
    }
    EXPECT_GT(open_, 0U);
}

TEST_P(CutPortChange, ByAPowerCutIsWholeOrOpen) {
    begin_again();
    kxsim::FaultRule observer =
        bench_.host.fail({.call = "file", .nth = UINT_MAX, .error = EIO, .program = "kxctl"});
    ASSERT_EQ(test::run_on(bench_.host, GetParam().words).exit, 0);
    const unsigned operations = observer.seen();
    observer.remove();
    for (const unsigned at : positions(operations, 120)) {
        begin_again();
        bench_.host.watch_flushes();
        kxsim::Fault cut = kxsim::power_cut(at);
        cut.program = "kxctl";
        bench_.host.fail(cut);
        static_cast<void>(test::run_on(bench_.host, GetParam().words));
        bench_.host.clear_faults();
        bench_.host.lose_unflushed();
        expect_whole(at);
    }
    EXPECT_GT(open_, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CutPortChange,
    testing::Values(
        CutCommand{"set", test::ChangeHost::words(), false},
        CutCommand{"revert", {"revert"}, true}),
    [](const auto& row) { return row.param.name; });

}  // namespace
