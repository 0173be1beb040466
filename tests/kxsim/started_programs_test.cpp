// Programs that a program on the simulated host starts, without an environment or linked
// statically: they run on the same host, or not at all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "kxsim/program.hpp"
#include "support/other_user.hpp"

namespace {

namespace fs = std::filesystem;

using test::kxsim;
using test::on_lab;
using test::Outcome;
using test::shell;
using test::shell_word;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kMtuFile[] = "/sys/class/net/eth2/mtu";  // of the lab host: 9000

// All functions work on one host, and with one static program.
class StartedBy : public testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite() {
        scratch_ = std::make_unique<test::ScratchDirectory>();
        static_program_ = test::static_program(*scratch_);
        ASSERT_EQ(
            kxsim("run --keep " + shell_word(*scratch_ / "host") + " -s lab -- true").code, 0);
    }
    static void TearDownTestSuite() { scratch_.reset(); }

    static Outcome start(const std::string& command) {
        return kxsim(
            "run --keep " + shell_word(*scratch_ / "host") + " -- " +
            shell_word(test::test_directory() / "starter") + " " + GetParam() + " " + command);
    }

    static inline std::unique_ptr<test::ScratchDirectory> scratch_;
    static inline std::string static_program_;
};

TEST_P(StartedBy, RunsOnTheSameHostWithoutAnEnvironment) {
    const Outcome outcome = start(std::string("/bin/cat ") + kMtuFile);
    EXPECT_EQ(outcome.output, "9000\n");
    EXPECT_EQ(outcome.code, 0);
}

TEST_P(StartedBy, RunsNoStaticProgram) {
    if (static_program_.empty()) {
        GTEST_SKIP() << "no static program can be built here";
    }
    EXPECT_EQ(shell(shell_word(static_program_)).output, "ran\n");
    const Outcome outcome = start(shell_word(static_program_));
    EXPECT_THAT(
        outcome.output,
        AllOf(
            HasSubstr(" would run on the real machine, not on the simulated host ("),
            HasSubstr(": it is linked statically)\n"), HasSubstr("ermission denied"),
            Not(HasSubstr("ran\n"))));
    EXPECT_NE(outcome.code, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Functions, StartedBy,
    testing::Values(
        "execl", "execle", "execlp", "execv", "execve", "execve_null", "execveat", "execveat_open",
        "execvp", "execvpe", "fexecve", "popen", "posix_spawn", "posix_spawnp", "system"),
    [](const auto& function) { return std::string(function.param); });

TEST(StartedPrograms, OfEnvAreOnTheSameHost) {
    const std::string clean = "run -- env -i ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0 ";
    const std::string kxctl = shell_word(test::test_directory().parent_path() / "kxctl");
    EXPECT_THAT(kxsim(clean + kxctl + " card list").output, HasSubstr("\n03:00.4 "));
    EXPECT_THAT(kxsim(clean + "lspci -d 4b58:").output, StartsWith("03:00.4 Ethernet controller"));
    EXPECT_EQ(kxsim(clean + "sh -c 'env -i cat " + kMtuFile + "'").output, "9000\n");
    EXPECT_EQ(
        on_lab("unset LD_PRELOAD; env -u KXSIM_ROOT cat " + std::string(kMtuFile)).output,
        "9000\n");
    EXPECT_THAT(
        on_lab("LD_PRELOAD=/nonexistent.so cat " + std::string(kMtuFile)).output,
        EndsWith("9000\n"));
}

TEST(StartedPrograms, KeepTheirEnvironment) {
    EXPECT_THAT(
        on_lab("env -i A=1 LD_PRELOAD= B=2 env").output,
        AllOf(HasSubstr("A=1\nB=2\n"), StartsWith("KXSIM_ROOT=/"), HasSubstr("/libkxsim.so\n")));
    EXPECT_THAT(on_lab("env -i LD_PRELOAD=/x.so env 2>&1").output, HasSubstr("/libkxsim.so:/x.so"));
}

TEST(StartedPrograms, OfAnotherHostStayThere) {
    EXPECT_EQ(
        on_lab(shell_word(kxsim()) + " run -s empty -- env -u LD_PRELOAD ls /sys/class/net").output,
        "");
}

TEST(StartedPrograms, OfAScriptAreRefusedOneByOne) {
    const test::ScratchDirectory scratch;
    const std::string program = test::static_program(scratch);
    if (program.empty()) {
        GTEST_SKIP() << "no static program can be built here";
    }
    const test::WorkingDirectory there(scratch.path());
    const std::string script = scratch.write("script", "#! ./static -x\n");
    fs::permissions(script, fs::perms::owner_all);
    const Outcome outcome = on_lab(
        shell_word(program) + "; " + shell_word(script) + "; echo code $?; cat " +
        std::string(kMtuFile));
    EXPECT_THAT(
        outcome.output, AllOf(
                            HasSubstr("kxsim: " + program + " would run on the real machine"),
                            HasSubstr("kxsim: " + script + " would run on the real machine"),
                            HasSubstr("code 126\n9000\n"), Not(HasSubstr("ran\n"))));
}

// Only kxsim takes the rights away; a process that loads the library by itself still has them.
TEST(StartedPrograms, ThatGainRightsAreRefused) {
    if (!test::can_become(65534)) {
        GTEST_SKIP() << "giving a program to another user needs root, and another user";
    }
    const test::ScratchDirectory scratch;
    const std::string program = scratch / "cat";
    fs::copy_file("/bin/cat", program);
    ASSERT_EQ(chown(program.c_str(), 65534, 65534), 0);
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    const std::string keep = "run --keep " + shell_word(scratch / "host") + " -s lab -- true";
    ASSERT_EQ(kxsim(keep).code, 0);
    const std::string output =
        shell(
            "KXSIM_ROOT=" + shell_word(scratch / "host") + " " + test::preloaded() + "sh -c " +
            shell_word(shell_word(program) + " " + kMtuFile) + " 2>&1")
            .output;
    EXPECT_THAT(output, HasSubstr("cat: it gains rights when it starts)\n"));
    EXPECT_THAT(output, Not(HasSubstr("9000")));
}

}  // namespace
