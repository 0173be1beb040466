// An agent without its own services: the library uses its defaults.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kxlinhw/host.h>
#include <kxlinhw/kxlinhw.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/output.hpp"
#include "support/scratch_directory.hpp"

namespace {

namespace fs = std::filesystem;

// A directory at the start of PATH with a "zfabtool" that the test wrote.
class ToolDirectory {
public:
    explicit ToolDirectory(const std::string& script) {
        fs::permissions(directory_.write("zfabtool", "#!/bin/sh\n" + script), fs::perms::owner_all);
        setenv("PATH", (directory_.path().string() + ":" + path_).c_str(), 1);
    }
    ~ToolDirectory() { setenv("PATH", path_.c_str(), 1); }
    ToolDirectory(const ToolDirectory&) = delete;
    ToolDirectory& operator=(const ToolDirectory&) = delete;

private:
    std::string path_ = std::getenv("PATH");
    test::ScratchDirectory directory_;
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

TEST(ToolStandIn, CollectsWhatComesByteByByte) {
    const ToolDirectory tool("for letter in a b c; do printf $letter; sleep 0.02; done\n");
    EXPECT_EQ(run_tool({}), "abc");
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

// The process cannot open a file, pipe or socket.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{0, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit before_{};
};

// An agent whose children leave no exit status.
class IgnoredChildren {
public:
    IgnoredChildren() : before_(std::signal(SIGCHLD, SIG_IGN)) {}
    ~IgnoredChildren() { std::signal(SIGCHLD, before_); }
    IgnoredChildren(const IgnoredChildren&) = delete;
    IgnoredChildren& operator=(const IgnoredChildren&) = delete;

private:
    void (*before_)(int);
};

// An agent with a timer whose signal interrupts waiting calls.
class Timer {
public:
    Timer() {
        struct sigaction action {};
        action.sa_handler = [](int) {};  // no SA_RESTART
        sigaction(SIGALRM, &action, &before_);
        set(20000);
    }
    ~Timer() {
        set(0);
        sigaction(SIGALRM, &before_, nullptr);
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

private:
    static void set(int microseconds) {
        const itimerval interval{{0, microseconds}, {0, microseconds}};
        setitimer(ITIMER_REAL, &interval, nullptr);
    }

    struct sigaction before_ {};
};

int call_wrapper() {
    char name[] = "zfabtool";
    char* arguments[] = {name};
    return mx_cmd_wraper(1, arguments);
}

TEST(ToolStandIn, WaitsOnWhenASignalComes) {
    const ToolDirectory tool("sleep 0.1; echo one; exec >&-; sleep 0.1\n");
    ASSERT_EQ(InitMXBuffer(), 0U);
    {
        const Timer timer;
        EXPECT_EQ(call_wrapper(), 0);
    }
    EXPECT_EQ(std::string(g_MXdataBuffer, static_cast<std::size_t>(g_MXdataBufferOffset)), "one\n");
    ReleaseMXBuffer();
}

TEST(ToolStandIn, FailsWhereItCannotCollectTheOutput) {
    const ToolDirectory tool("echo one\n");
    g_MXdataBuffer = nullptr;
    EXPECT_EQ(call_wrapper(), -1) << "no buffer";
    ASSERT_EQ(InitMXBuffer(), 0U);
    {
        const NoDescriptors none;
        EXPECT_EQ(call_wrapper(), -1) << "no pipe";
    }
    {
        const IgnoredChildren ignored;
        EXPECT_EQ(call_wrapper(), -1) << "how the tool ended is not known";
    }
    EXPECT_EQ(call_wrapper(), 0);
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

TEST(CommandStandIn, TellsACommandThatCannotRunFromOneThatFails) {
    std::string output;
    {
        const NoDescriptors none;
        EXPECT_EQ(run_command("echo one", output), -1);
    }
    EXPECT_EQ(output, "");
}

TEST(CommandStandIn, KnowsHowACommandEndedWhoeverTookItsStatus) {
    std::string output;
    {
        const IgnoredChildren ignored;
        EXPECT_EQ(run_command("echo one | cat", output), 0);
        EXPECT_EQ(run_command("sleep 0.1; exit 5", output), 5);
        EXPECT_EQ(run_command("kill -9 $$", output), 128 + 9);
        EXPECT_EQ(run_command("trap", output), 0);
    }
    EXPECT_EQ(output, "one\n") << "the command finds SIGCHLD as by default";
    const auto before = std::signal(SIGCHLD, [](int) {
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    });
    EXPECT_EQ(run_command("sleep 0.1; exit 5", output), 5);
    std::signal(SIGCHLD, before);
}

TEST(CommandStandIn, LeavesNoChildBehind) {
    std::string output;
    run_command("true", output);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

// In a child process that has closed some of the standard descriptors.
TEST(CommandStandIn, WorksWithoutStandardDescriptors) {
    for (unsigned closed = 0; closed < 8; ++closed) {
        const pid_t child = fork();
        if (child == 0) {
            for (int number = 0; number < 3; ++number) {
                if ((closed >> number & 1U) != 0) {
                    close(number);
                }
            }
            std::string output;
            const std::string command =
                "cat </dev/null; echo one | cat | cat; echo two >&2 || echo three";
            const bool good = run_command(command, output) == 0 && output == "one\n" &&
                              run_command("exit 5", output) == 5;
            _exit(good ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << closed;
    }
}

// The descriptors of this process that are open in a program that it starts. A command always has
// the first three.
long inheritable_descriptors() {
    long count = 0;
    for (int number = 0; number < 1024; ++number) {
        const int flags = fcntl(number, F_GETFD);
        const bool inherited = flags != -1 && (flags & FD_CLOEXEC) == 0;
        count += inherited || number <= STDERR_FILENO ? 1 : 0;
    }
    return count;
}

TEST(CommandStandIn, HandsOnNoDescriptorOfItsOwn) {
    std::string output;
    EXPECT_EQ(run_command("ls /proc/self/fd | wc -l", output), 0);
    EXPECT_EQ(std::stol(output), inheritable_descriptors() + 1) << "and the directory";
}

// A locale of this machine that uses a comma as the decimal separator.
class GermanLocale {
public:
    GermanLocale() {
        const std::string target = directory_ / "de_DE" + " >/dev/null 2>&1";
        made_ = std::system(("localedef -i de_DE -f ISO-8859-1 " + target).c_str()) == 0;
        setenv("LOCPATH", directory_.path().c_str(), 1);
        setenv("LC_ALL", "de_DE", 1);
        setenv("LANGUAGE", "de", 1);
    }
    ~GermanLocale() {
        unsetenv("LOCPATH");
        unsetenv("LC_ALL");
        unsetenv("LANGUAGE");
    }
    GermanLocale(const GermanLocale&) = delete;
    GermanLocale& operator=(const GermanLocale&) = delete;

    [[nodiscard]] bool made() const { return made_; }

private:
    test::ScratchDirectory directory_;
    bool made_ = false;
};

TEST(CommandStandIn, RunsCommandsUntranslated) {
    const GermanLocale german;
    if (!german.made()) {
        GTEST_SKIP() << "localedef cannot make a German locale here";
    }
    ASSERT_NE(std::system("test \"$(/usr/bin/printf %.1f 1)\" = 1.0"), 0) << "translated outside";
    std::string output;
    EXPECT_EQ(run_command("/usr/bin/printf %.1f 1", output), 0);
    EXPECT_EQ(output, "1.0");
    EXPECT_STREQ(std::getenv("LC_ALL"), "de_DE") << "the agent keeps its own";
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
    EXPECT_EQ(
        test::told([] {
            KxLogger::KestrixLogMsg(KX_MOD_VM, KX_LOG_FAILURE, "cannot do %s: %d", "that", 3);
            KxLogger::KestrixLogMsg(static_cast<ModName>(10), KX_LOG_WARNING, "%s", "100%n");
        }),
        "libkxlinhw: error: [module 2] cannot do that: 3\n"
        "libkxlinhw: warning: [module 10] 100%n\n");
}

TEST(LoggerStandIn, NamesEachLevel) {
    const std::vector<std::pair<LogType, std::string>> levels{
        {KX_LOG_DEBUG, "debug"}, {KX_LOG_INFO, "info"},     {KX_LOG_WARNING, "warning"},
        {KX_LOG_ERROR, "error"}, {KX_LOG_FAILURE, "error"},
    };
    for (const auto& [level, name] : levels) {
        EXPECT_EQ(
            test::told([level = level] { KxLogger::KestrixLogMsg(KX_MOD_VM, level, "text"); }),
            "libkxlinhw: " + name + ": [module 2] text\n");
    }
}

TEST(LoggerStandIn, KeepsTheLinesOfTwoThreadsApart) {
    constexpr int kLines = 500;
    const auto write_lines = [] {
        for (int k = 0; k < kLines; ++k) {
            KxLogger::KestrixLogMsg(KX_MOD_VM, KX_LOG_INFO, "%s", "text");
        }
    };
    std::istringstream lines(test::told([&] {
        std::thread other(write_lines);
        write_lines();
        other.join();
    }));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_EQ(line, "libkxlinhw: info: [module 2] text");
    }
    EXPECT_EQ(count, 2 * kLines);
}

TEST(LoggerStandIn, GivesTheServiceNumberAsModule) {
    EXPECT_EQ(KxLogger::MapSVCToModName(10), static_cast<ModName>(10));
}

}  // namespace
