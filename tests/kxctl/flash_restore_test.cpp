// restore, which runs at start-up, tells about changes of a flash that are not finished.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kxctl/flash_changes.hpp"

namespace {

using test::FlashHost;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kOpenRecord = std::string(test::kFlashJournal) + "/open/record.toml";

class FlashRestore : public testing::Test {
protected:
    FlashRestore() {
        bench_.host.interface({.name = "eth2"});
        bench_.host.file("/etc/kestrix-plexo/kxportparams.conf", "eth2.mtu = 9000\n");
    }

    void stop_a_change() {
        bench_.hardware().faults({.endless_write_at = 2});
        EXPECT_EQ(
            bench_.run({"flash", "write-boot", "03:00.4", "new-rom", "--yes", "--no-backup"}).exit,
            4);
        bench_.hardware().restore_power();
        bench_.hardware().faults({});
    }

    FlashHost bench_{test::kFlashChips[0]};
};

TEST_F(FlashRestore, SaysNothingWhenEveryChangeIsFinished) {
    EXPECT_EQ(bench_.run({"restore"}).exit, 0);
    stop_a_change();
    ASSERT_EQ(bench_.recover("--continue").exit, 0);
    const test::Result result = bench_.run({"restore"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_THAT(result.err, Not(HasSubstr("flash")));
    const auto reply = test::json_on(bench_.host, {"restore"});
    EXPECT_EQ(reply.at("unfinished_flash_changes"), nlohmann::json::array());
}

TEST_F(FlashRestore, RestoresAndNamesTheUnfinishedChange) {
    stop_a_change();
    const unsigned before = bench_.transfers();
    const test::Result result = bench_.run({"restore"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_EQ(bench_.host.mtu("eth2"), 9000U) << "the ports get their settings";
    EXPECT_THAT(
        result.err,
        AllOf(
            HasSubstr("kxctl: 0000:03:00.4: \"flash write-boot\" of 20"),
            HasSubstr("is not finished: \"kxctl flash recover 0000:03:00.4\" continues it or "
                      "takes it back\n")));
    const auto reply = test::json_on(bench_.host, {"restore"}, 4);
    EXPECT_EQ(reply.at("unfinished_flash_changes").size(), 1U);
    EXPECT_EQ(reply.at("unfinished_flash_changes").at(0).at("command"), "flash write-boot");
    EXPECT_EQ(reply.at("unfinished_flash_changes").at(0).at("state"), "unfinished");
    EXPECT_EQ(bench_.transfers(), before) << "no flash is touched";
}

TEST_F(FlashRestore, TellsADamagedRecordAndAJournalThatCannotBeRead) {
    stop_a_change();
    bench_.host.file(kOpenRecord, "damaged");
    test::Result result = bench_.run({"restore"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("is not finished, and its record is damaged: /var/lib/"));
    bench_.host.fail(
        {.call = "open", .times = 0, .error = EACCES, .object = "/var/lib/kxctl/flash"});
    result = bench_.run({"restore"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("not known: /var/lib/kxctl/flash: Permission denied"));
    EXPECT_EQ(test::json_on(bench_.host, {"restore"}, 4).at("unfinished_flash_changes"), nullptr);
}

}  // namespace
