// An agent without services of its own: the library's stand-ins do the work.
#include <gtest/gtest.h>
#include <kxlinhw/host.h>
#include <kxlinhw/kxlinhw.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// A directory at the head of PATH that holds a "zfabtool" of the test's making.
class ToolDirectory {
public:
    explicit ToolDirectory(const std::string& script) {
        char name[] = "/tmp/kxlinhw-tool-XXXXXX";
        directory_ = mkdtemp(name);
        const fs::path tool = directory_ / "zfabtool";
        std::ofstream(tool) << "#!/bin/sh\n" << script;
        fs::permissions(tool, fs::perms::owner_all);
        setenv("PATH", (directory_.string() + ":" + path_).c_str(), 1);
    }
    ~ToolDirectory() {
        setenv("PATH", path_.c_str(), 1);
        fs::remove_all(directory_);
    }
    ToolDirectory(const ToolDirectory&) = delete;
    ToolDirectory& operator=(const ToolDirectory&) = delete;

private:
    std::string path_ = std::getenv("PATH");
    fs::path directory_;
};

std::string run_tool(const std::vector<std::string>& texts) {
    std::vector<char> block(36 + 64 * texts.size());
    const auto count = static_cast<uint32_t>(texts.size());
    std::memcpy(block.data() + 32, &count, sizeof count);
    for (std::size_t k = 0; k < texts.size(); ++k) {
        texts[k].copy(block.data() + 36 + 64 * k, 64);
    }
    char* output = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(run_cmd_zfab(block.data(), &output, &length), 0U);
    std::string text(output, length);
    std::free(output);
    return text;
}

TEST(ToolStandIn, RunsTheToolOfThePathWithItsArguments) {
    const ToolDirectory tool("printf '%s|' \"$@\"\n");
    EXPECT_EQ(run_tool({"eth2", "up"}), "eth2|up|");
}

TEST(ToolStandIn, PassesArgumentsThroughNoShell) {
    const ToolDirectory tool("printf '%s|' \"$@\"\n");
    EXPECT_EQ(run_tool({"$(echo no)", "a b", ";", ""}), "$(echo no)|a b|;||");
}

TEST(ToolStandIn, BoundsAnArgumentThatFillsItsField) {
    const ToolDirectory tool("printf '%s|' \"$@\"\n");
    EXPECT_EQ(run_tool({std::string(64, 'a'), "b"}), std::string(64, 'a') + "|b|");
}

TEST(ToolStandIn, CollectsOutputBeyondTheFirstBuffer) {
    const ToolDirectory tool("head -c 100000 /dev/zero | tr '\\0' x\n");
    EXPECT_EQ(run_tool({}), std::string(100000, 'x'));
}

TEST(ToolStandIn, GivesNoOutputWhenThereIsNoTool) { EXPECT_EQ(run_tool({"eth2"}), ""); }

TEST(ToolStandIn, ReportsTheToolsFailure) {
    char name[] = "zfabtool";
    char* arguments[] = {name};
    ASSERT_EQ(InitMXBuffer(), 0U);
    {
        const ToolDirectory tool("exit 3\n");
        EXPECT_EQ(mx_cmd_wraper(1, arguments), -1);
    }
    {
        const ToolDirectory tool("exit 0\n");
        EXPECT_EQ(mx_cmd_wraper(1, arguments), 0);
    }
    EXPECT_EQ(mx_cmd_wraper(1, arguments), -1) << "no tool in PATH";
    EXPECT_EQ(mx_cmd_wraper(0, arguments), -1);
    EXPECT_EQ(mx_cmd_wraper(1, nullptr), -1);
    ReleaseMXBuffer();
}

int run_command(const std::string& command, std::string& output) {
    return BridgeUtils::getControl()->getOutput(command, output);
}

TEST(CommandStandIn, GivesOutputAndExitStatusOfAShellCommand) {
    std::string output;
    EXPECT_EQ(run_command("echo one; echo two", output), 0);
    EXPECT_EQ(output, "one\ntwo\n");
    EXPECT_EQ(run_command("exit 5", output), 5);
    EXPECT_EQ(run_command("kill -9 $$", output), 128 + 9);
    EXPECT_EQ(run_command("/no/such/command 2>/dev/null", output), 127);
}

TEST(CommandStandIn, CollectsLongAndBinaryOutput) {
    std::string output;
    EXPECT_EQ(run_command("head -c 70000 /dev/zero", output), 0);
    EXPECT_EQ(output, std::string(70000, '\0'));
}

TEST(CommandStandIn, IsCreatedOnceAndKept) {
    EXPECT_EQ(BridgeUtils::getControl(), BridgeUtils::getControl());
    EXPECT_EQ(BridgeUtils::getControl(), BridgeUtils::ctrl);
}

TEST(LoggerStandIn, WritesOneLineWithLevelAndModule) {
    testing::internal::CaptureStderr();
    KxLogger::KestrixLogMsg(KX_MOD_VM, KX_LOG_FAILURE, "cannot do %s: %d", "that", 3);
    KxLogger::KestrixLogMsg(static_cast<ModName>(10), KX_LOG_WARNING, "%s", "100%n");
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "libkxlinhw: error: [module 2] cannot do that: 3\n"
        "libkxlinhw: warning: [module 10] 100%n\n");
}

TEST(LoggerStandIn, GivesTheServiceNumberAsModule) {
    EXPECT_EQ(KxLogger::MapSVCToModName(10), static_cast<ModName>(10));
}

}  // namespace
