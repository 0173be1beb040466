// The services of kxctl, called by the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/host.h>
#include <kxlinhw/kxlinhw.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "failure/unread.hpp"
#include "kxctl/process.hpp"
#include "support/output.hpp"
#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

int output_of(const std::string& command) {
    std::string output;
    return BridgeUtils::getControl()->getOutput(command, output);
}

// A program that fails has answered.
TEST(CommandRunner, TellsThatAnOutputIsMissing) {
    static_cast<void>(kx::ctl::take_unread_reasons());
    EXPECT_EQ(output_of("exit 1"), 1);
    EXPECT_THAT(kx::ctl::take_unread_reasons(), testing::IsEmpty());
    setenv("KXCTL_TIMEOUT", "1", 1);
    EXPECT_EQ(output_of("sleep 20"), -1);
    unsetenv("KXCTL_TIMEOUT");
    EXPECT_THAT(kx::ctl::take_unread_reasons(), testing::ElementsAre("No output of: sleep 20"));
}

// A "zfabtool" of the test at the start of PATH.
class Tool {
public:
    explicit Tool(const std::string& script) {
        fs::permissions(directory_.write("zfabtool", "#!/bin/sh\n" + script), fs::perms::owner_all);
        setenv("PATH", (directory_.path().string() + ":" + path_).c_str(), 1);
    }
    ~Tool() { setenv("PATH", path_.c_str(), 1); }
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

private:
    std::string path_ = std::getenv("PATH");
    test::ScratchDirectory directory_;
};

// The tool's output by way of the library, whose argument block has texts of 64 bytes.
std::string run_tool(const std::vector<std::string>& texts) {
    std::vector<char> block(36 + 64 * texts.size());
    const auto count = static_cast<std::uint32_t>(texts.size());
    std::memcpy(block.data() + 32, &count, sizeof count);
    for (std::size_t k = 0; k < texts.size(); ++k) {
        texts[k].copy(block.data() + 36 + 64 * k, 64);
    }
    char* output = nullptr;
    std::uint32_t length = 0;
    EXPECT_EQ(run_cmd_zfab(block.data(), &output, &length), 0U);
    std::string text(output, length);
    std::free(output);
    return text;
}

int wrapper_result() {
    char name[] = "zfabtool";
    char* arguments[] = {name};
    EXPECT_EQ(InitMXBuffer(), 0U);
    const int result = mx_cmd_wraper(1, arguments);
    g_MXdataBufferOffset = 0;
    ReleaseMXBuffer();
    return result;
}

TEST(ManagementTool, GetsItsArgumentsThroughNoShell) {
    const Tool tool("printf '%s|' \"$@\"\n");
    EXPECT_EQ(run_tool({"eth2", "$(echo no)", "a b", ""}), "eth2|$(echo no)|a b||");
}

TEST(ManagementTool, GetsAnArgumentThatFillsItsField) {
    const Tool tool("printf '%s|' \"$@\"\n");
    EXPECT_EQ(run_tool({std::string(64, 'a'), "b"}), std::string(64, 'a') + "|b|");
}

TEST(ManagementTool, MayPrintMoreThanTheFirstBufferHolds) {
    const Tool tool("head -c 100000 /dev/zero | tr '\\0' x\n");
    EXPECT_EQ(run_tool({}), std::string(100000, 'x'));
}

TEST(ManagementTool, EndsAsThePipeOfADefaultProgramDoes) {
    std::signal(SIGPIPE, SIG_IGN);
    const Tool tool("kill -PIPE $$\nexit 0\n");
    EXPECT_EQ(wrapper_result(), 128 + SIGPIPE);
    std::signal(SIGPIPE, SIG_DFL);
}

TEST(ManagementTool, TellsItsExitStatus) {
    {
        const Tool tool("exit 3\n");
        EXPECT_EQ(wrapper_result(), 3);
    }
    {
        const Tool tool("exit 0\n");
        EXPECT_EQ(wrapper_result(), 0);
    }
    EXPECT_EQ(wrapper_result(), -1) << "there is no such tool";
}

TEST(ManagementTool, IsNotRunWithoutArguments) {
    EXPECT_EQ(mx_cmd_wraper(0, nullptr), -1);
    EXPECT_EQ(mx_cmd_wraper(1, nullptr), -1);
}

TEST(CommandRunner, GivesOutputAndExitStatus) {
    BridgeUtils* const runner = BridgeUtils::getControl();
    std::string output;
    EXPECT_EQ(runner->getOutput("echo one; echo two", output), 0);
    EXPECT_EQ(output, "one\ntwo\n");
    EXPECT_EQ(runner->getOutput("exit 5", output), 5);
    EXPECT_EQ(runner->getOutput("kill -9 $$", output), 128 + 9);
    output.clear();
    EXPECT_EQ(runner->getOutput("head -c 70000 /dev/zero", output), 0);
    EXPECT_EQ(output, std::string(70000, '\0'));
}

TEST(CommandRunner, RunsCommandsUntranslated) {
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    std::string output;
    EXPECT_EQ(BridgeUtils::getControl()->getOutput("sh -c 'echo $LC_ALL'", output), 0);
    EXPECT_EQ(output, "C\n");
    unsetenv("LC_ALL");
}

TEST(Logger, IsSilentUntilMessagesAreShown) {
    EXPECT_EQ(
        test::told([] { KxLogger::KestrixLogMsg(KX_MOD_VM, KX_LOG_FAILURE, "%s", "not shown"); }),
        "");
}

TEST(Logger, KeepsTheNumberOfAService) {
    EXPECT_EQ(static_cast<int>(KxLogger::MapSVCToModName(10)), 10);
}

// The dynamic linker prefers the program's definitions only when the program exports them.
TEST(Services, AreExportedByTheProgram) {
    test::Setup setup;
    setup.program = "nm";
    const std::string names = test::run({"-D", "-C", "--defined-only", KXCTL_PROGRAM}, setup).out;
    for (const char* name :
         {"T KxLogger::KestrixLogMsg(", "T KxLogger::MapSVCToModName(", "T BridgeUtils::getOutput(",
          "B BridgeUtils::ctrl", "T mx_cmd_wraper"}) {
        EXPECT_THAT(names, HasSubstr(name));
    }
}

}  // namespace
