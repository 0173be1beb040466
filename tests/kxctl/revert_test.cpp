// revert, confirm and history: changes of ports that are taken back or kept.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "kxctl/change_host.hpp"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

class Revert : public testing::Test {
protected:
    test::Result run(std::vector<std::string> words) {
        return test::run_on(bench_.host, std::move(words));
    }

    // Leaves the change of ChangeHost::words() unfinished.
    void leave_unfinished() {
        bench_.host.fail(
            {.call = "rename",
             .times = 0,
             .error = EIO,
             .object = std::string(test::kChangeJournal) + "/open*"});
        EXPECT_EQ(run(test::ChangeHost::words()).exit, 4);
        bench_.host.clear_faults();
        ASSERT_TRUE(bench_.is_open());
    }

    test::ChangeHost bench_;
};

TEST_F(Revert, TakesTheLastChangeBackByteForByte) {
    ASSERT_EQ(run(test::ChangeHost::words()).exit, 0);
    ASSERT_TRUE(bench_.is_as_wanted());
    const Json answer = test::json_on(bench_.host, {"revert"});
    EXPECT_EQ(answer["number"], 1);
    EXPECT_EQ(answer["command"], "kxctl port set eth2 mtu=9000 tso=off ring_rx=512");
    EXPECT_EQ(answer["changed"], true);
    EXPECT_EQ(answer["settings"][0], Json::parse(R"({"interface": "eth2", "key": "mtu",
        "before": 9000, "wanted": 1500, "now": 1500})"));
    EXPECT_EQ(answer["failures"], Json::array());
    EXPECT_TRUE(bench_.is_as_before());
}

TEST_F(Revert, HistoryTellsWhoDidWhatAndWhatBecameOfIt) {
    ASSERT_EQ(run(test::ChangeHost::words()).exit, 0);
    ASSERT_EQ(run({"revert"}).exit, 0);
    const Json changes = test::json_on(bench_.host, {"history"}).at("changes");
    ASSERT_EQ(changes.size(), 2U);
    EXPECT_EQ(changes[0]["number"], 1);
    EXPECT_EQ(changes[0]["state"], "reverted");
    EXPECT_EQ(changes[0]["settings"].size(), 3U);
    EXPECT_EQ(changes[0]["settings"][1]["key"], "tso");
    EXPECT_EQ(changes[0]["settings"][1]["before"], true);
    EXPECT_EQ(changes[0]["settings"][1]["now"], false);
    EXPECT_EQ(changes[1]["reverts"], 1);
    EXPECT_EQ(changes[1]["state"], "applied");
    const test::Result one = run({"history", "1"});
    EXPECT_EQ(one.exit, 0);
    EXPECT_THAT(one.out, HasSubstr("eth2       tso          on     off    off"));
    EXPECT_EQ(run({"history", "7"}).exit, 3);
    EXPECT_EQ(run({"history", "x"}).exit, 2);
}

TEST_F(Revert, GoesBackStepByStepAndTakesARevertBackByItsNumber) {
    ASSERT_EQ(run({"port", "set", "eth2", "mtu=2000"}).exit, 0);
    ASSERT_EQ(run({"port", "set", "eth2", "mtu=3000"}).exit, 0);
    ASSERT_EQ(run({"revert"}).exit, 0);
    EXPECT_EQ(bench_.host.mtu("eth2"), 2000U);
    ASSERT_EQ(run({"revert"}).exit, 0);
    EXPECT_TRUE(bench_.is_as_before());
    const test::Result none = run({"revert"});
    EXPECT_EQ(none.exit, 3);
    EXPECT_THAT(none.err, HasSubstr("There is no change to take back"));
    EXPECT_EQ(test::json_on(bench_.host, {"revert", "1"}).at("changed"), false);
    EXPECT_EQ(run({"revert", "4"}).exit, 0);
    EXPECT_EQ(bench_.host.mtu("eth2"), 2000U);
}

TEST_F(Revert, RefusesWhatWasChangedSince) {
    ASSERT_EQ(run(test::ChangeHost::words()).exit, 0);
    kxsim::Nic nic = bench_.host.nic("eth2");
    nic.rings.rx_pending = 256;
    bench_.host.nic("eth2", nic);
    const test::Result refused = run({"revert"});
    EXPECT_EQ(refused.exit, 5);
    EXPECT_THAT(
        refused.err,
        HasSubstr("eth2: ring_rx is 256; the change left 512, before it was 1024; nothing was"));
    EXPECT_EQ(bench_.host.mtu("eth2"), 9000U);
    EXPECT_EQ(run({"revert", "--force"}).exit, 0);
    EXPECT_TRUE(bench_.is_as_before());
}

TEST_F(Revert, RefusesAFileThatWasChangedSince) {
    ASSERT_EQ(run(test::ChangeHost::words()).exit, 0);
    bench_.host.append(test::kSavedSettings, "eth3.mtu = 1700\n");
    const test::Result refused = run({"revert"});
    EXPECT_EQ(refused.exit, 5);
    EXPECT_THAT(refused.err, HasSubstr("kxportparams.conf was changed since"));
    EXPECT_EQ(bench_.host.mtu("eth2"), 9000U);
}

TEST_F(Revert, EndsAnUnfinishedChange) {
    leave_unfinished();
    EXPECT_EQ(test::json_on(bench_.host, {"history"})["changes"][0]["state"], "unfinished");
    const test::Result refused = run({"port", "set", "eth3", "mtu=4000"});
    EXPECT_EQ(refused.exit, 5);
    EXPECT_THAT(refused.err, HasSubstr("first run \"kxctl revert\""));
    ASSERT_EQ(run({"revert"}).exit, 0);
    EXPECT_TRUE(bench_.is_as_before());
    EXPECT_FALSE(bench_.is_open());
    EXPECT_EQ(test::json_on(bench_.host, {"history"})["changes"][0]["state"], "reverted");
    EXPECT_EQ(run({"port", "set", "eth3", "mtu=4000"}).exit, 0);
}

TEST_F(Revert, TellsWhatItCannotPutBackAndStaysUnfinished) {
    leave_unfinished();
    bench_.host.fail({.call = "ioctl", .times = 0, .error = EBUSY, .command = ETHTOOL_SRINGPARAM});
    const Json answer = test::json_on(bench_.host, {"revert"}, 4);
    ASSERT_EQ(answer["failures"].size(), 1U);
    EXPECT_THAT(
        answer["failures"][0].get<std::string>(), HasSubstr("eth2: ring_rx is 512, it was 1024"));
    EXPECT_TRUE(bench_.is_open());
    EXPECT_EQ(bench_.host.mtu("eth2"), 1500U);
    EXPECT_EQ(run({"revert", "--force"}).exit, 4);
    EXPECT_FALSE(bench_.is_open()) << "--force ends it";
    bench_.host.clear_faults();
    EXPECT_EQ(test::json_on(bench_.host, {"history"})["changes"][0]["state"], "partly");
}

TEST_F(Revert, FindsAPortUnderAnotherName) {
    leave_unfinished();
    kxsim::Interface renamed{.name = "lan0", .mac = test::kChangedMac};
    renamed.nic = bench_.host.nic("eth2");
    renamed.mtu = bench_.host.mtu("eth2");
    bench_.host.remove_interface("eth2");
    bench_.host.port("03:00.4", renamed);
    EXPECT_EQ(run({"revert"}).exit, 0);
    EXPECT_EQ(bench_.host.mtu("lan0"), 1500U);
    EXPECT_EQ(bench_.host.nic("lan0").tso, 1U);
}

TEST_F(Revert, LeavesAnotherPortOfTheSameNameAlone) {
    leave_unfinished();
    bench_.host.remove_interface("eth2");
    bench_.host.port("03:00.4", {.name = "eth2", .mac = "02:00:00:00:00:77", .mtu = 4321});
    const test::Result result = run({"revert"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("eth2 (0000:03:00.4, MAC 02:00:00:00:00:02) is not there"));
    EXPECT_EQ(bench_.host.mtu("eth2"), 4321U);
    EXPECT_TRUE(bench_.is_open());
}

TEST_F(Revert, ChangesNothingWithADamagedJournal) {
    leave_unfinished();
    const std::string record = std::string(test::kChangeJournal) + "/open/record.json";
    const std::string good = bench_.host.read(record);
    Json wrong = Json::parse(good);
    wrong["steps"][0]["key"] = "no-such";
    Json far = Json::parse(good);
    far["steps"][0]["target"] = 7;
    Json large = Json::parse(good);
    large["steps"][0]["before"] = 18446744073709551615ULL;
    for (const std::string& text :
         {std::string(), good.substr(0, good.size() / 2), wrong.dump(), far.dump(), large.dump()}) {
        bench_.host.file(record, text);
        const test::Result result = run({"revert"});
        EXPECT_EQ(result.exit, 1) << text;
        EXPECT_THAT(result.err, HasSubstr("The journal of the unfinished change is damaged"));
        EXPECT_EQ(test::json_on(bench_.host, {"history"}, 4)["changes"][0]["state"], "unfinished");
        EXPECT_EQ(bench_.host.mtu("eth2"), 9000U);
    }
}

}  // namespace
