// Recording a setting in a configuration file: which lines are replaced, what happens to the
// others, and that no failure and no power cut loses the text.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <kxlinhw/settings.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <kxsim/host.hpp>
#include <string>
#include <utility>
#include <vector>

#include "settings/config_file.hpp"
#include "support/file_text.hpp"
#include "support/other_user.hpp"
#include "support/output.hpp"
#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;
using kx::settings::append_unless_present;
using kx::settings::replace_lines;
using kx::settings::Saving;
using testing::AnyOf;
using testing::ElementsAre;
using testing::StartsWith;

class ConfigFile : public testing::Test {
protected:
    void hold(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }

    [[nodiscard]] std::string text() const { return test::file_text(path_); }

    [[nodiscard]] std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory_)) {
            names.push_back(entry.path().filename().string());
        }
        std::ranges::sort(names);
        return names;
    }

    [[nodiscard]] mode_t mode() const {
        struct stat status {};
        return stat(path_.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    // What work returns in a process of user 1234, whose groups are 4321 and 777.
    static int as_user(const std::function<int()>& work) {
        const pid_t child = fork();
        if (child == 0) {
            constexpr gid_t kGroups[] = {777};
            const bool changed =
                setgroups(1, kGroups) == 0 && setgid(4321) == 0 && setuid(1234) == 0;
            _exit(changed ? work() : 99);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    [[nodiscard]] std::string replaced_port_line(const std::string& before, const char* key) {
        hold(before);
        EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", key), 0);
        EXPECT_THAT(names(), ElementsAre("settings.conf"));
        return text();
    }

    [[nodiscard]] std::string replaced_sysctl_line(const std::string& before, std::string key) {
        hold(before);
        EXPECT_EQ(
            replaceSysctlLine(path_.c_str(), key.c_str(), "NEW\n", static_cast<int>(key.size())),
            0);
        EXPECT_THAT(names(), ElementsAre("settings.conf"));
        return text();
    }

    test::ScratchDirectory scratch_;
    fs::path directory_ = scratch_.path();
    std::string path_ = directory_ / "settings.conf";
};

kx::settings::LineTest holding(std::string key) {
    return [key](std::string_view line) { return line.find(key) != line.npos; };
}

// ---- Which lines are replaced ----

TEST_F(ConfigFile, PortKeyIsFoundAnywhereInALine) {
    EXPECT_EQ(
        replaced_port_line("veth1.mtu = 1400\n# eth1.mtu is old\neth1.mtu = 9\n", "eth1.mtu"),
        "NEW\nNEW\nNEW\n");
}

TEST_F(ConfigFile, PortKeyOfOneRingIsFoundInTheLinesOfTheOtherRings) {
    EXPECT_EQ(
        replaced_port_line(
            "eth0.ring_rx = 1\neth0.ring_rx_mini = 2\neth0.ring_tx = 3\n", "eth0.ring_rx"),
        "NEW\nNEW\neth0.ring_tx = 3\n");
}

TEST_F(ConfigFile, SysctlKeyMustBeginTheLineAndEndThere) {
    const std::string before =
        "toe.toe0_tom.max_wr=8\n"
        "toe.toe0_tom.max_wr = 9\n"
        " \t toe.toe0_tom.max_wr = 10\n"
        "toe.toe0_tom.max_wr_credits = 8\n"
        "toe.toe0_tom.max_wr\t= 8\n"
        "toe.toe0_tom.max_wr\n"
        "# toe.toe0_tom.max_wr = 8\n"
        "toe.toe0_tom.max_w = 8\n";
    EXPECT_EQ(
        replaced_sysctl_line(before, "toe.toe0_tom.max_wr"),
        "NEW\nNEW\nNEW\n"
        "toe.toe0_tom.max_wr_credits = 8\n"
        "toe.toe0_tom.max_wr\t= 8\n"
        "toe.toe0_tom.max_wr\n"
        "# toe.toe0_tom.max_wr = 8\n"
        "toe.toe0_tom.max_w = 8\n");
}

TEST_F(ConfigFile, SysctlKeyThatEndsTheFileWithoutNewlineIsNotRead) {
    EXPECT_EQ(replaced_sysctl_line("a.b = 1\na.c", "a.c"), "a.b = 1\na.c");
}

TEST_F(ConfigFile, SysctlKeyThatFillsAPieceIsNotFound) {
    const std::string key(255, 'k');
    EXPECT_EQ(replaced_sysctl_line(key + "=1\n", key), key + "=1\n") << "the mark is in the next";
}

TEST_F(ConfigFile, SysctlKeyLengthIsBoundedByTheKey) {
    hold("abc = 1\nab = 1\n");
    EXPECT_EQ(replaceSysctlLine(path_.c_str(), "ab", "NEW\n", 100), 0);
    EXPECT_EQ(text(), "abc = 1\nNEW\n");
    EXPECT_EQ(replaceSysctlLine(path_.c_str(), "abc", "NEW\n", -1), 317);
}

TEST_F(ConfigFile, SysctlKeyMayBeGivenByItsFirstCharacters) {
    hold("ab = 1\n");
    EXPECT_EQ(replaceSysctlLine(path_.c_str(), "abXX", "NEW\n", 2), 0);
    EXPECT_EQ(text(), "NEW\n");
}

// ---- What happens to the other lines ----

TEST_F(ConfigFile, EveryLineLosesItsIndentation) {
    EXPECT_EQ(
        replaced_port_line("  a = 1\n\t b = 2\n\n   \nkey\nc = 3  \n", "key"),
        "a = 1\nb = 2\n\n\nNEW\nc = 3  \n");
}

TEST_F(ConfigFile, AWrongKeyRewritesTheFileAsItIs) {
    EXPECT_EQ(replaced_port_line("a = 1\nb = 2", "key"), "a = 1\nb = 2");
}

TEST_F(ConfigFile, AnEmptyFileStaysEmpty) { EXPECT_EQ(replaced_port_line("", "key"), ""); }

TEST_F(ConfigFile, LinesBeyondTheReadLengthSurvive) {
    for (const std::size_t length : {254U, 255U, 256U, 257U, 510U, 511U, 5000U}) {
        const std::string line(length, 'x');
        EXPECT_EQ(replaced_port_line(line + "\nkey\n" + line, "key"), line + "\nNEW\n" + line)
            << length;
    }
}

TEST_F(ConfigFile, APieceOfALongLineLosesTheBlanksItBeginsWith) {
    const std::string head(255, 'x');
    EXPECT_EQ(replaced_port_line(head + "   tail\nkey\n", "key"), head + "tail\nNEW\n");
}

TEST_F(ConfigFile, AKeyAcrossTwoPiecesIsNotFound) {
    const std::string line = std::string(253, 'x') + "key\n";
    EXPECT_EQ(replaced_port_line(line, "key"), line);
}

TEST_F(ConfigFile, BytesBehindANulSurviveAndAreNotSearched) {
    const std::string line("a\0key\n", 6);
    EXPECT_EQ(replaced_port_line(line + "key\n", "key"), line + "NEW\n");
}

// ---- Mode, owner, names ----

TEST_F(ConfigFile, ModeIsKeptWhateverTheUmask) {
    const mode_t umask_before = umask(077);
    for (const mode_t mode : {0644U, 0600U, 0666U, 0440U, 02664U}) {
        hold("key\n");
        ASSERT_EQ(chmod(path_.c_str(), mode), 0);
        ASSERT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 0);
        struct stat status {};
        ASSERT_EQ(stat(path_.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode);
    }
    umask(umask_before);
}

TEST_F(ConfigFile, OwnerIsKept) {
    if (!test::can_become(1234)) {
        GTEST_SKIP() << "only root can give files away, and only where there are other users";
    }
    for (const auto& [user, group] : {std::pair{1234U, 4321U}, {1234U, 0U}, {0U, 4321U}}) {
        hold("key\n");
        ASSERT_EQ(chown(path_.c_str(), user, group), 0);
        ASSERT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 0);
        struct stat status {};
        ASSERT_EQ(stat(path_.c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, user);
        EXPECT_EQ(status.st_gid, group);
    }
}

// Whatever the umask, other users must not be able to change the settings that are applied at
// start-up.
TEST_F(ConfigFile, ANewFileIsNeverWiderThan0644) {
    const mode_t umask_before = umask(0);
    for (const mode_t mask : {0U, 022U, 077U, 02U}) {
        umask(mask);
        fs::remove(path_);
        EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a")), Saving::kAppended);
        EXPECT_EQ(mode(), 0644U & ~mask);
    }
    umask(umask_before);
}

// What a rewrite makes of a file of another owner when the agent has no right to give files away:
// user 1234 with group 4321.
TEST_F(ConfigFile, AnAgentThatMayNotGiveFilesAwayRewritesThemAllTheSame) {
    if (!test::can_become(1234)) {
        GTEST_SKIP() << "only root can become another user, and only where there are others";
    }
    struct Case {
        uid_t user;
        gid_t group;
        mode_t mode;
        gid_t new_group;
        mode_t new_mode;
    };
    constexpr Case kCases[] = {
        {0, 0, 0644, 4321, 0644},     {0, 0, 0666, 4321, 0666},  {0, 0, 0606, 4321, 0600},
        {0, 0, 0646, 4321, 0644},     {0, 0, 06664, 4321, 0644}, {0, 4321, 0660, 4321, 0660},
        {0, 4321, 06775, 4321, 0775}, {0, 777, 0664, 777, 0664}, {1234, 0, 0660, 4321, 0600},
    };
    for (const Case& made : kCases) {
        hold("key\n");
        ASSERT_EQ(chown(path_.c_str(), made.user, made.group), 0);
        ASSERT_EQ(chmod(path_.c_str(), made.mode), 0);
        ASSERT_EQ(chmod(directory_.c_str(), 0777), 0);
        EXPECT_EQ(
            as_user([this] { return replacePortConfLine(path_.c_str(), "NEW\n", "key"); }), 0);
        EXPECT_EQ(text(), "NEW\n");
        struct stat status {};
        ASSERT_EQ(stat(path_.c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, 1234U);
        EXPECT_EQ(status.st_gid, made.new_group) << std::oct << made.mode;
        EXPECT_EQ(status.st_mode & 07777, made.new_mode) << std::oct << made.mode;
        EXPECT_THAT(names(), ElementsAre("settings.conf"));
    }
}

TEST_F(ConfigFile, LeftoversOfAnotherUserDoNotStopARewrite) {
    if (!test::can_become(1234)) {
        GTEST_SKIP() << "only root can become another user, and only where there are others";
    }
    hold("key\n");
    ASSERT_EQ(chmod(path_.c_str(), 0644), 0);
    std::ofstream(path_ + ".tmp") << "left";
    ASSERT_EQ(chmod((path_ + ".tmp").c_str(), 0600), 0);
    ASSERT_EQ(chmod(directory_.c_str(), 0777), 0);
    EXPECT_EQ(as_user([this] { return replacePortConfLine(path_.c_str(), "NEW\n", "key"); }), 0);
    EXPECT_EQ(text(), "NEW\n");
}

TEST_F(ConfigFile, ATemporaryNameThatIsALinkIsNotFollowed) {
    hold("key\n");
    const fs::path other = directory_ / "other";
    std::ofstream(other) << "of somebody else";
    fs::create_symlink(other, path_ + ".tmp");
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 0);
    EXPECT_EQ(text(), "NEW\n");
    EXPECT_EQ(test::file_text(other), "of somebody else");
    EXPECT_FALSE(fs::is_symlink(path_));
}

TEST_F(ConfigFile, LeftoversOfAnEarlierRewriteAreReplacedAndRemoved) {
    std::ofstream(path_ + ".tmp") << "a much longer text than the one that is written next";
    std::ofstream(path_ + ".bk") << "old";
    EXPECT_EQ(replaced_port_line("key\n", "key"), "NEW\n");
}

TEST_F(ConfigFile, AMissingFileIsNotMade) {
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    EXPECT_TRUE(names().empty());
}

TEST_F(ConfigFile, ADirectoryIsLeftAlone) {
    fs::create_directory(path_);
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    EXPECT_THAT(names(), ElementsAre("settings.conf"));
    EXPECT_TRUE(fs::is_directory(path_));
}

TEST_F(ConfigFile, ATemporaryNameThatIsTakenLeavesTheFileAlone) {
    hold("key\n");
    fs::create_directory(path_ + ".tmp");
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    EXPECT_EQ(text(), "key\n");
}

TEST_F(ConfigFile, ABackupNameThatIsTakenLeavesBothTexts) {
    hold("key\n");
    fs::create_directories(path_ + ".bk/x");
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    EXPECT_EQ(text(), "key\n");
    EXPECT_EQ(test::file_text(path_ + ".tmp"), "NEW\n");
}

TEST_F(ConfigFile, PortRewriteTellsItsNewLine) {
    hold("key\n");
    EXPECT_EQ(
        test::printed(
            [&] { EXPECT_EQ(replacePortConfLine(path_.c_str(), "eth0.mtu = 1\n", "key"), 0); }),
        "new_line eth0.mtu = 1\n\n");
    EXPECT_EQ(
        test::printed([] { EXPECT_EQ(replacePortConfLine("/nonexistent/file", "L", "key"), 1); }),
        "new_line L\n");
}

TEST_F(ConfigFile, SysctlRewritePrintsNothing) {
    hold("key\n");
    EXPECT_EQ(
        test::printed([&] { EXPECT_EQ(replaceSysctlLine(path_.c_str(), "key", "L\n", 3), 0); }),
        "");
}

TEST_F(ConfigFile, NullArgumentsAreRefused) {
    EXPECT_NE(replacePortConfLine(nullptr, "L\n", "k"), 0);
    EXPECT_NE(replacePortConfLine("p", nullptr, "k"), 0);
    EXPECT_NE(replacePortConfLine("p", "L\n", nullptr), 0);
    EXPECT_NE(replaceSysctlLine(nullptr, "k", "L\n", 1), 0);
    EXPECT_NE(replaceSysctlLine("p", nullptr, "L\n", 1), 0);
    EXPECT_NE(replaceSysctlLine("p", "k", nullptr, 1), 0);
}

// ---- Appending ----

TEST_F(ConfigFile, AppendingMakesAMissingFile) {
    EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a")), Saving::kAppended);
    EXPECT_EQ(text(), "a = 1\n");
}

TEST_F(ConfigFile, AppendingDoesNotMakeADirectory) {
    const std::string path = (directory_ / "none" / "file").string();
    EXPECT_EQ(append_unless_present(path.c_str(), "a = 1\n", holding("a")), Saving::kUnopened);
    EXPECT_TRUE(names().empty());
}

TEST_F(ConfigFile, AppendingToADirectoryFails) {
    EXPECT_EQ(
        append_unless_present(directory_.c_str(), "a = 1\n", holding("a")), Saving::kUnopened);
}

TEST_F(ConfigFile, AppendingLeavesTheLinesBeforeAlone) {
    hold("  b = 2\n");
    EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a =")), Saving::kAppended);
    EXPECT_EQ(text(), "  b = 2\na = 1\n");
}

TEST_F(ConfigFile, AppendingEndsALineWithoutNewlineFirst) {
    hold("b = 2");
    EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a =")), Saving::kAppended);
    EXPECT_EQ(text(), "b = 2\na = 1\n");
}

TEST_F(ConfigFile, AppendingToWhatHasNoDiskSucceeds) {
    EXPECT_EQ(append_unless_present("/dev/null", "a = 1\n", holding("a =")), Saving::kAppended);
}

TEST_F(ConfigFile, APresentLineIsToldAndNothingIsWritten) {
    hold("\t a = 7");
    EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a =")), Saving::kPresent);
    EXPECT_EQ(text(), "\t a = 7");
}

// ---- Symbolic links ----

class LinkedFile : public ConfigFile {
protected:
    void SetUp() override {
        fs::create_directory(directory_ / "real");
        target_ = directory_ / "real" / "file";
        std::ofstream(target_) << "key\n";
    }

    void expect_link(const fs::path& to) {
        EXPECT_EQ(fs::read_symlink(path_), to);
        EXPECT_THAT(names(), ElementsAre("real", "settings.conf"));
    }

    fs::path target_;
};

TEST_F(LinkedFile, StaysALinkWhoseTargetIsRewritten) {
    for (const fs::path& to : {target_, fs::path("real/file"), fs::path("./real/../real/file")}) {
        fs::remove(path_);
        fs::create_symlink(to, path_);
        std::ofstream(target_) << "key\n";
        EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 0);
        expect_link(to);
        EXPECT_EQ(test::file_text(target_), "NEW\n");
        EXPECT_EQ(append_unless_present(path_.c_str(), "b = 1\n", holding("b")), Saving::kAppended);
        expect_link(to);
        EXPECT_EQ(test::file_text(target_), "NEW\nb = 1\n");
        EXPECT_EQ(std::distance(fs::directory_iterator(directory_ / "real"), {}), 1);
    }
}

TEST_F(LinkedFile, MayBeALinkToALink) {
    fs::create_symlink("file", directory_ / "real" / "second");
    fs::create_symlink("real/second", path_);
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 0);
    EXPECT_EQ(test::file_text(target_), "NEW\n");
    EXPECT_TRUE(fs::is_symlink(directory_ / "real" / "second"));
    expect_link("real/second");
}

// The names of a rewrite are beside the target: its first copy, a directory here, stops it.
TEST_F(LinkedFile, IsRewrittenThroughNamesBesideItsTarget) {
    fs::create_symlink(target_, path_);
    fs::create_directory(target_.string() + ".tmp");
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    fs::remove(target_.string() + ".tmp");
    fs::create_directories(target_.string() + ".bk/x");
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    EXPECT_EQ(test::file_text(target_), "key\n");
    EXPECT_EQ(test::file_text(target_.string() + ".tmp"), "NEW\n");
    expect_link(target_);
}

// As for a file that is missing: a line makes it, a rewrite does not.
TEST_F(LinkedFile, ThatLeadsToNoFileGetsOneByItsFirstLine) {
    const fs::path missing = directory_ / "real" / "missing";
    fs::create_symlink(missing, path_);
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    EXPECT_FALSE(fs::exists(missing));
    const mode_t umask_before = umask(0);
    EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a")), Saving::kAppended);
    umask(umask_before);
    EXPECT_EQ(test::file_text(missing), "a = 1\n");
    EXPECT_EQ(mode(), 0644U);
    expect_link(missing);
}

TEST_F(LinkedFile, ThatLeadsToNoDirectoryIsRefused) {
    fs::create_symlink(directory_ / "none" / "file", path_);
    EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a")), Saving::kUnopened);
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    expect_link(directory_ / "none" / "file");
}

TEST_F(LinkedFile, ThatGoesRoundInACircleIsRefused) {
    for (const char* to : {"settings.conf", "real/back"}) {
        fs::remove(path_);
        fs::create_symlink(to, path_);
        fs::remove(directory_ / "real" / "back");
        fs::create_symlink("../settings.conf", directory_ / "real" / "back");
        EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a")), Saving::kUnopened);
        EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
        expect_link(to);
    }
}

// A rewrite would put a file in the device's place.
TEST_F(LinkedFile, ThatLeadsToADeviceIsNotRewritten) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make a device";
    }
    const fs::path device = directory_ / "real" / "null";
    if (mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0) {
        GTEST_SKIP() << "no device can be made here";
    }
    fs::create_symlink(device, path_);
    EXPECT_EQ(append_unless_present(path_.c_str(), "a = 1\n", holding("a")), Saving::kAppended);
    EXPECT_EQ(replacePortConfLine(path_.c_str(), "NEW\n", "key"), 1);
    EXPECT_TRUE(fs::is_character_file(device));
    expect_link(device);
}

// A child, which is ended if it waits.
TEST_F(ConfigFile, ANamedPipeIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    const auto save = [this] {
        alarm(120);
        const Saving saving = append_unless_present(path_.c_str(), "a = 1\n", holding("a"));
        const bool replaced = replace_lines(path_.c_str(), "a = 1\n", holding("a"));
        std::exit(saving == Saving::kFailed && !replaced ? 0 : 1);
    };
    EXPECT_EXIT(save(), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(fs::is_fifo(path_));
    EXPECT_THAT(names(), ElementsAre("settings.conf"));
}

// ---- Failures ----

constexpr char kOld[] = "  first = 1\nkey = old\nlast = 3";
constexpr char kNew[] = "first = 1\nkey = new\nlast = 3";

// In the tree of a simulated host, whose file calls can fail and whose power can go.
class Rewrite : public ConfigFile {
protected:
    void SetUp() override {
        host_.directory("/settings");
        directory_ = host_.root() + "/tree/settings";
        path_ = (directory_ / "settings.conf").string();
    }

    // Do something while a fault is in force; whether it struck.
    template <class Work>
    bool strikes(const kxsim::Fault& fault, const Work& work) {
        kxsim::FaultRule rule = host_.fail(fault);
        work();
        rule.remove();
        return rule.fired() > 0;
    }

    // The power fails at the nth call on a file, and is restored afterwards.
    template <class Work>
    bool is_cut(unsigned nth, const Work& work) {
        host_.watch_flushes();
        const bool struck = strikes(kxsim::power_cut(nth), work);
        host_.lose_unflushed();
        return struck;
    }

    // The two texts under the three names: one of them is whole somewhere, and the file's own name
    // never holds anything else.
    void expect_nothing_lost(std::size_t nth) {
        if (fs::exists(path_)) {
            EXPECT_THAT(text(), AnyOf(kOld, kNew)) << "after call " << nth;
        } else {
            EXPECT_EQ(test::file_text(path_ + ".bk"), kOld) << "after call " << nth;
            EXPECT_EQ(test::file_text(path_ + ".tmp"), kNew) << "after call " << nth;
        }
    }
    bool rewrite() { return replace_lines(path_.c_str(), "key = new\n", holding("key")); }
    Saving append(const std::string& key = "a") {
        return append_unless_present(path_.c_str(), key + " = 1\n", holding(key + " ="));
    }
    void start_over() {
        fs::remove(path_ + ".tmp");
        fs::remove(path_ + ".bk");
        hold(kOld);
    }

    kxsim::Host host_;
    const kxsim::Attached attached_ = host_.attach();
};

const auto kCallsOfARewrite = ElementsAre(
    "open", "open", "unlink", "open", "read", "read", "chmod", "write", "fsync", "rename", "rename",
    "fsync", "unlink");

TEST_F(Rewrite, CallsComeInTheOrderThatKeepsOneTextWhole) {
    hold(kOld);
    const kxsim::Calls calls = host_.count([&] { EXPECT_TRUE(rewrite()); });
    EXPECT_THAT(calls.names("file"), kCallsOfARewrite);
}

TEST_F(Rewrite, OfANameWithoutDirectoryFlushesTheWorkingDirectory) {
    hold(kOld);
    const fs::path before = fs::current_path();
    fs::current_path(directory_);
    const kxsim::Calls calls = host_.count(
        [] { EXPECT_TRUE(replace_lines("settings.conf", "key = new\n", holding("key"))); });
    fs::current_path(before);
    EXPECT_THAT(calls.names("file"), kCallsOfARewrite);
    EXPECT_EQ(text(), kNew);
}

TEST_F(Rewrite, AnyFailingCallLeavesOneTextWhole) {
    for (const int reason : {EIO, ENOSPC, EACCES}) {
        unsigned nth = 1;
        for (bool struck = true; struck; ++nth) {
            start_over();
            bool done = false;
            const kxsim::Fault fault{.call = "file", .nth = nth, .error = reason, .most = 9};
            struck = strikes(fault, [&] { done = rewrite(); });
            expect_nothing_lost(nth);
            EXPECT_EQ(done, text() == kNew) << "after call " << nth;
        }
        EXPECT_GT(nth, 12U) << "the sweep ended before the last call";
    }
}

TEST_F(Rewrite, AFailedWriteLeavesNoPartialCopy) {
    hold(kOld);
    EXPECT_TRUE(
        strikes({.call = "write", .error = ENOSPC, .most = 9}, [&] { EXPECT_FALSE(rewrite()); }));
    EXPECT_THAT(names(), ElementsAre("settings.conf"));
}

TEST_F(Rewrite, AFailedFirstRenamingKeepsTheNewTextBeside) {
    hold(kOld);
    EXPECT_TRUE(strikes({.call = "rename", .error = EIO}, [&] { EXPECT_FALSE(rewrite()); }));
    EXPECT_EQ(text(), kOld);
    EXPECT_EQ(test::file_text(path_ + ".tmp"), kNew);
}

TEST_F(Rewrite, AFailedSecondRenamingIsTakenBack) {
    hold(kOld);
    EXPECT_TRUE(
        strikes({.call = "rename", .nth = 2, .error = EIO}, [&] { EXPECT_FALSE(rewrite()); }));
    EXPECT_EQ(text(), kOld);
    EXPECT_THAT(names(), ElementsAre("settings.conf", "settings.conf.tmp"));
}

TEST_F(Rewrite, APowerCutAtAnyCallLeavesOneTextWhole) {
    unsigned nth = 1;
    for (bool struck = true; struck; ++nth) {
        start_over();
        struck = is_cut(nth, [&] { static_cast<void>(rewrite()); });
        expect_nothing_lost(nth);
    }
    EXPECT_GT(nth, 12U) << "the sweep ended before the last call";
}

TEST_F(Rewrite, AFullDiskLeavesTheFileWithoutTheAppendedLine) {
    unsigned nth = 1;
    for (bool struck = true; struck; ++nth) {
        start_over();
        bool appended = false;
        const kxsim::Fault fault{.call = "file", .nth = nth, .error = ENOSPC, .most = 3};
        struck = strikes(fault, [&] { appended = append() == Saving::kAppended; });
        EXPECT_EQ(text(), appended ? std::string(kOld) + "\na = 1\n" : kOld) << "call " << nth;
    }
    EXPECT_GT(nth, 5U) << "the sweep ended before the last call";
}

TEST_F(Rewrite, APowerCutWhileAppendingLeavesTheOldText) {
    unsigned nth = 1;
    for (bool struck = true; struck; ++nth) {
        start_over();
        struck = is_cut(nth, [&] { static_cast<void>(append()); });
        EXPECT_THAT(text(), StartsWith(kOld)) << "call " << nth;
    }
}

TEST_F(Rewrite, ALineThatIsReportedAppendedIsThereAfterAPowerCut) {
    for (const bool fresh : {false, true}) {
        unsigned nth = 1;
        for (bool struck = true; struck; ++nth) {
            start_over();
            if (fresh) {
                fs::remove(path_);
            }
            bool appended = false;
            struck = is_cut(nth, [&] { appended = append() == Saving::kAppended; });
            if (appended) {
                EXPECT_EQ(text(), fresh ? "a = 1\n" : std::string(kOld) + "\na = 1\n") << nth;
            }
            EXPECT_EQ(appended, !struck) << nth;
        }
    }
}

// Of a new file its name has to reach the disk as well.
TEST_F(Rewrite, TheFirstLineOfAFileFlushesItsDirectoryToo) {
    hold("");
    for (const bool exists : {true, false}) {
        if (!exists) {
            fs::remove(path_);
        }
        const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(append(), Saving::kAppended); });
        EXPECT_THAT(
            calls.names("file"), ElementsAre("open", "open", "read", "write", "fsync", "fsync"));
    }
    const kxsim::Calls calls = host_.count([&] { EXPECT_EQ(append("b"), Saving::kAppended); });
    EXPECT_THAT(calls.names("file"), ElementsAre("open", "open", "read", "read", "write", "fsync"));
}

}  // namespace
