// repair: the file has its own name again, whatever an interrupted rewrite left.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "kxctl/on_host.hpp"

namespace {

using testing::AnyOf;
using testing::HasSubstr;
using Json = nlohmann::json;

constexpr char kPortFile[] = "/etc/kestrix-plexo/kxportparams.conf";
constexpr char kSysctlFile[] = "/etc/sysctl.conf";

class Repair : public testing::TestWithParam<const char*> {
protected:
    Repair() { host_.directory("/etc/kestrix-plexo"); }

    void put(const char* ending, const char* text) { host_.file(path_ + ending, text); }
    [[nodiscard]] bool exists(const char* ending) const { return host_.exists(path_ + ending); }

    Json repair(int expected_exit = 0) {
        const Json answer = test::json_on(host_, {"repair"}, expected_exit);
        for (const Json& file : answer["files"]) {
            if (file["file"] == path_) {
                EXPECT_EQ(answer["changed"], file["state"] == "repaired") << answer;
                return file;
            }
        }
        return {};
    }

    kxsim::Host host_;
    const std::string path_ = GetParam();
};

TEST_P(Repair, FinishesARewriteThatStoppedBetweenTheRenamings) {
    put(".bk", "old\n");
    put(".tmp", "new\n");
    EXPECT_EQ(repair()["state"], "repaired");
    EXPECT_EQ(host_.read(path_), "new\n");
    EXPECT_FALSE(exists(".bk"));
    EXPECT_FALSE(exists(".tmp"));
    EXPECT_EQ(repair()["state"], "whole") << "a second run finds nothing to do";
}

TEST_P(Repair, TakesTheOldTextBackWhenTheNewOneIsGone) {
    put(".bk", "old\n");
    EXPECT_EQ(repair()["state"], "repaired");
    EXPECT_EQ(host_.read(path_), "old\n");
    EXPECT_FALSE(exists(".bk"));
}

TEST_P(Repair, LeavesAFileThatIsThereAloneAndTellsWhatIsLeftBeside) {
    put("", "current\n");
    put(".bk", "old\n");
    put(".tmp", "half of the n");
    const Json finding = repair();
    EXPECT_EQ(finding["state"], "whole");
    EXPECT_EQ(
        finding["remark"],
        path_ + ".tmp and " + path_ + ".bk left behind; the next rewrite replaces them");
    EXPECT_EQ(host_.read(path_), "current\n");
    EXPECT_TRUE(exists(".bk"));
    EXPECT_TRUE(exists(".tmp"));
}

TEST_P(Repair, LeavesATextAloneThatMayBeIncomplete) {
    put(".tmp", "half of the n");
    const Json finding = repair(4);
    EXPECT_EQ(finding["state"], "unclear");
    EXPECT_FALSE(exists(""));
    EXPECT_TRUE(exists(".tmp"));
}

TEST_P(Repair, HasNothingToDoForAFileThatWasNeverMade) {
    const Json finding = repair();
    EXPECT_EQ(finding["state"], "absent");
    EXPECT_EQ(finding["remark"], nullptr);
    EXPECT_FALSE(exists(""));
}

// What an interrupted rewrite leaves is beside the file that a link leads to.
TEST_P(Repair, FollowsALinkToTheFileThatIsRewritten) {
    host_.directory("/etc/kestrix-plexo/real");
    host_.link(path_, "/etc/kestrix-plexo/real/first");
    host_.link("/etc/kestrix-plexo/real/first", "second");
    host_.file("/etc/kestrix-plexo/real/second.bk", "old\n");
    host_.file("/etc/kestrix-plexo/real/second.tmp", "new\n");
    EXPECT_EQ(repair()["state"], "repaired");
    EXPECT_EQ(host_.read("/etc/kestrix-plexo/real/second"), "new\n");
    EXPECT_FALSE(host_.exists("/etc/kestrix-plexo/real/second.bk"));
    EXPECT_FALSE(host_.exists("/etc/kestrix-plexo/real/second.tmp"));
    EXPECT_EQ(repair()["state"], "whole");
}

TEST_P(Repair, SaysThatLinksGoRoundInACircle) {
    host_.link(path_, path_);
    const test::Result result = test::run_on(host_, {"repair"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, HasSubstr(path_ + ": Too many levels of symbolic links"));
}

TEST_P(Repair, SaysWhyARenamingFailed) {
    put(".bk", "old\n");
    host_.fail({.call = "rename", .times = 0, .error = EROFS, .object = path_ + "*"});
    const test::Result result = test::run_on(host_, {"repair"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, HasSubstr("cannot be renamed to"));
    EXPECT_THAT(result.err, HasSubstr("Read-only file system"));
    EXPECT_TRUE(exists(".bk"));
}

TEST_P(Repair, GuessesNothingOfANameThatCannotBeLookedUp) {
    put("", "current\n");
    put(".bk", "old\n");
    for (const int reason : {EIO, EACCES}) {
        host_.fail({.call = "stat", .error = reason, .object = path_});
        const test::Result result = test::run_on(host_, {"repair"});
        EXPECT_NE(result.exit, 0);
        EXPECT_THAT(result.err, HasSubstr(path_ + " cannot be looked up"));
        EXPECT_EQ(host_.read(path_), "current\n");
    }
}

// An agent that has renamed the file away and still works on it holds the lock of the directory.
TEST_P(Repair, LeavesARewriteAloneThatAnotherAgentContinues) {
    put(".bk", "old\n");
    put(".tmp", "new\n");
    const std::string directory = host_.root() + "/tree" + path_.substr(0, path_.rfind('/'));
    const int held = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX | LOCK_NB), 0);
    const test::Result result = test::run_on(host_, {"repair"});
    EXPECT_EQ(result.exit, 5);
    EXPECT_THAT(result.err, HasSubstr("Another agent changes a file in /etc"));
    EXPECT_TRUE(exists(".bk"));
    EXPECT_TRUE(exists(".tmp"));
    close(held);
    EXPECT_EQ(repair()["state"], "repaired");
}

INSTANTIATE_TEST_SUITE_P(
    BothFiles, Repair, testing::Values(kPortFile, kSysctlFile),
    [](const auto& file) { return file.param == kPortFile ? "Ports" : "Sysctl"; });

TEST(RepairCommand, ToldForPeople) {
    kxsim::Host host;
    host.file("/etc/sysctl.conf.bk", "old\n");
    const test::Result result = test::run_on(host, {"repair"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(
        result.out,
        "FILE                                  STATE     REMARK\n"
        "/etc/kestrix-plexo/kxportparams.conf  absent    -\n"
        "/etc/sysctl.conf                      repaired  the text before the interrupted rewrite "
        "is back\n");
}

}  // namespace
