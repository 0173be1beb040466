// Which port an interface was when its settings were saved, and restoring when it is another one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kxctl/on_host.hpp"
#include "settings/interface_records.hpp"

namespace {

using kx::ctl::kInterfaceRecordFile;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;

constexpr char kSavedFile[] = "/etc/kestrix-plexo/kxportparams.conf";
constexpr char kFirstMac[] = "00:07:43:00:00:01";
constexpr char kOtherMac[] = "00:07:43:00:00:02";

class InterfaceRecords : public testing::Test {
protected:
    InterfaceRecords() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter({.chip = "Q5", .location = "03:00.4"});
        host_.directory("/etc/kestrix-plexo");
        plug(kFirstMac);
    }

    void plug(const char* mac) { host_.port("03:00.4", {.name = "eth2", .mac = mac}); }
    void replace_card() {
        host_.remove_interface("eth2");
        plug(kOtherMac);
    }
    test::Result run(std::vector<std::string> words) {
        return test::run_on(host_, std::move(words));
    }
    void save_mtu() { ASSERT_EQ(run({"port", "set", "03:00.4", "1", "mtu=9000"}).exit, 0); }

    kxsim::Host host_;
};

TEST_F(InterfaceRecords, AreWrittenBesideTheSavedSettings) {
    EXPECT_EQ(run({"port", "set", "03:00.4", "1", "mtu=9000", "--dry-run"}).exit, 0);
    EXPECT_FALSE(host_.exists(kInterfaceRecordFile));
    EXPECT_EQ(run({"port", "set", "03:00.4", "1", "mtu=5"}).exit, 1);
    EXPECT_FALSE(host_.exists(kInterfaceRecordFile)) << "nothing was saved";
    save_mtu();
    EXPECT_THAT(
        host_.read(kInterfaceRecordFile), EndsWith("\neth2 00:07:43:00:00:01 0000:03:00.4\n"));
    EXPECT_EQ(host_.read(kSavedFile), "eth2.mtu = 9000\n") << "the library's format stays";
}

TEST_F(InterfaceRecords, KeepSettingsFromAnotherPort) {
    save_mtu();
    replace_card();
    const test::Result result = run({"restore"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(
        result.out, HasSubstr("skipped  saved for 00:07:43:00:00:01 at 0000:03:00.4; eth2 is "
                              "00:07:43:00:00:02 at 0000:03:00.4 now\n"));
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
    EXPECT_EQ(test::json_on(host_, {"restore"}, 4).at("changed"), false);
    EXPECT_EQ(run({"restore", "--force"}).exit, 0);
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
}

TEST_F(InterfaceRecords, FollowTheNextChange) {
    save_mtu();
    replace_card();
    save_mtu();
    EXPECT_THAT(host_.read(kInterfaceRecordFile), HasSubstr("eth2 00:07:43:00:00:02"));
    EXPECT_EQ(run({"restore"}).exit, 0);
}

TEST_F(InterfaceRecords, SettingsOfOthersAreRestoredAsBefore) {
    host_.file(kSavedFile, "eth2.mtu = 9000\n");
    EXPECT_EQ(run({"restore"}).exit, 0);
    EXPECT_EQ(host_.mtu("eth2"), 9000U);
    EXPECT_FALSE(host_.exists(kInterfaceRecordFile));
}

TEST_F(InterfaceRecords, ADamagedLineIsTold) {
    save_mtu();
    host_.file(kInterfaceRecordFile, "eth2 00:07\neth9 00:07:43:00:00:09 -\n");
    const test::Result result = run({"restore"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_EQ(
        result.err, "kxctl: /etc/kestrix-plexo/kxctl-interfaces:1: no INTERFACE MAC LOCATION\n");
    save_mtu();
    EXPECT_EQ(run({"restore"}).err, "") << "the next change writes whole lines";
    EXPECT_THAT(host_.read(kInterfaceRecordFile), HasSubstr("eth9 00:07:43:00:00:09 -\n"));
}

TEST_F(InterfaceRecords, OfAHostWithoutSpaceStayWhole) {
    save_mtu();
    const std::string before = host_.read(kInterfaceRecordFile);
    replace_card();
    host_.fail(
        {.call = "rename", .times = 0, .error = ENOSPC, .object = "/etc/kestrix-plexo/kxctl-i*"});
    const test::Result result = run({"port", "set", "03:00.4", "1", "mtu=9000"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("kxctl-interfaces"));
    EXPECT_THAT(result.out, HasSubstr("  9000  applied\n"));
    EXPECT_EQ(host_.read(kInterfaceRecordFile), before);
}

TEST(InterfaceRecordLines, AreReadOneByOne) {
    const auto records = kx::ctl::parse_interface_records(
        "# comment\n\na 00:07:43:00:00:01 -\nb 00:07:43:00:00:0G -\nc\n"
        "a 00:07:43:00:00:03 0000:03:00.4\neth4 00:07:43:00:00:01 - more\n");
    ASSERT_THAT(records.by_name, SizeIs(1));
    EXPECT_EQ(records.by_name.at("a").mac, "00:07:43:00:00:03");
    EXPECT_THAT(records.damaged, SizeIs(3));
    EXPECT_EQ(records.damaged.front().line, 4U);
}

}  // namespace
