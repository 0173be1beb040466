// Changes that are taken back unless they are confirmed: by themselves, after the end of the
// session, and at the next start of the machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "kxctl/change_host.hpp"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

constexpr char kBootId[] = "/proc/sys/kernel/random/boot_id";

class Confirm : public testing::Test {
protected:
    Confirm() { bench_.host.file(kBootId, "first\n"); }

    test::Result run(std::vector<std::string> words) {
        return test::run_on(bench_.host, std::move(words));
    }

    test::Result change(const char* time) {
        std::vector<std::string> words = test::ChangeHost::words();
        words.insert(words.end(), {"--confirm-within", time});
        return run(words);
    }

    Json last_change() { return test::json_on(bench_.host, {"history"})["changes"][0]; }

    // Waits until no change is open; not for ever.
    bool ends() {
        constexpr int kMostLooks = 600;
        for (int look = 0; look < kMostLooks && bench_.is_open(); ++look) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return !bench_.is_open();
    }

    test::ChangeHost bench_;
};

TEST_F(Confirm, TakesAChangeBackThatNobodyConfirms) {
    const test::Result result = change("2");
    EXPECT_EQ(result.exit, 0);
    EXPECT_THAT(
        result.err,
        HasSubstr("change 1 is taken back in 2 seconds unless \"kxctl confirm\" keeps it"));
    EXPECT_TRUE(bench_.is_as_wanted());
    EXPECT_TRUE(ends());
    EXPECT_TRUE(bench_.is_as_before()) << bench_.text();
    const Json last = last_change();
    EXPECT_EQ(last["state"], "reverted");
    EXPECT_EQ(last["remark"], "not confirmed in time");
}

TEST_F(Confirm, RefusesOtherChangesUntilThen) {
    ASSERT_EQ(change("3s").exit, 0);
    EXPECT_EQ(last_change()["state"], "unconfirmed");
    const test::Result refused = run({"port", "set", "eth3", "mtu=2000"});
    EXPECT_EQ(refused.exit, 5);
    EXPECT_THAT(
        refused.err, HasSubstr("first run \"kxctl confirm\" to keep it or \"kxctl revert\""));
    EXPECT_EQ(run({"revert"}).exit, 0);
    EXPECT_TRUE(bench_.is_as_before());
    EXPECT_EQ(run({"confirm"}).exit, 3);
    EXPECT_EQ(run({"port", "set", "eth3", "mtu=2000"}).exit, 0);
    std::this_thread::sleep_for(std::chrono::seconds(4));
    EXPECT_EQ(bench_.host.mtu("eth3"), 2000U) << "the timer of another change does nothing";
}

TEST_F(Confirm, KeepsAChangeThatIsConfirmed) {
    ASSERT_EQ(change("2").exit, 0);
    EXPECT_EQ(run({"confirm", "7"}).exit, 3);
    const Json answer = test::json_on(bench_.host, {"confirm"});
    EXPECT_EQ(answer["number"], 1);
    EXPECT_EQ(last_change()["state"], "applied");
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_TRUE(bench_.is_as_wanted()) << bench_.text();
    EXPECT_EQ(run({"revert"}).exit, 0);
    EXPECT_TRUE(bench_.is_as_before());
}

TEST_F(Confirm, OutlivesTheSessionThatStartedIt) {
    const auto attached = bench_.host.attach();
    test::Setup setup;
    setup.program = "setsid";
    const test::Result result = test::run(
        {"-w", "sh", "-c",
         std::string(KXCTL_PROGRAM) +
             " port set eth2 mtu=9000 tso=off ring_rx=512 --confirm-within 2; kill -HUP -$$; kill "
             "-KILL -$$"},
        setup);
    EXPECT_GT(result.exit, 128) << "the session was killed";
    EXPECT_TRUE(bench_.is_as_wanted());
    EXPECT_TRUE(ends());
    EXPECT_TRUE(bench_.is_as_before()) << bench_.text();
}

TEST_F(Confirm, TheNextStartTakesItBack) {
    ASSERT_EQ(change("3").exit, 0);
    const test::Result now = run({"restore"});
    EXPECT_EQ(now.exit, 5) << "in this start it waits";
    EXPECT_THAT(now.err, HasSubstr("kxctl confirm"));
    bench_.host.file(kBootId, "second\n");
    const Json answer = test::json_on(bench_.host, {"restore"});
    EXPECT_EQ(answer["reverted_change"]["number"], 1);
    EXPECT_EQ(answer["reverted_change"]["failures"], Json::array());
    EXPECT_TRUE(bench_.is_as_before()) << bench_.text();
    EXPECT_EQ(last_change()["state"], "reverted");
    EXPECT_TRUE(test::json_on(bench_.host, {"restore"})["reverted_change"].is_null());
    std::this_thread::sleep_for(std::chrono::seconds(4));
}

TEST_F(Confirm, RefusesWhatItCannotDo) {
    for (const char* const time : {"0", "25h", "soon", "-5", "nan"}) {
        const test::Result result = change(time);
        EXPECT_EQ(result.exit, 2) << time;
        EXPECT_THAT(result.err, HasSubstr("expected a time from 1s to 1d"));
    }
    const test::Result result =
        run({"port", "set", "eth2", "advertise=0x1000", "--confirm-within", "2"});
    EXPECT_EQ(result.exit, 14);
    EXPECT_THAT(result.err, HasSubstr("advertise cannot be taken back: its value is not known"));
    EXPECT_TRUE(bench_.is_as_before());
    EXPECT_FALSE(bench_.is_open());
}

}  // namespace
