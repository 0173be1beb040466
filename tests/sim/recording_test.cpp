// Recording settings in the two configuration files of a host: which kinds of file may exist there,
// and what remains after a failure.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/shell.hpp"

namespace {

using test::lines_of;
using testing::AnyOf;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

constexpr char kPortFile[] = "/etc/kestrix-plexo/kxportparams.conf";
constexpr char kSysctlFile[] = "/etc/sysctl.conf";

class Recording : public testing::Test {
protected:
    Recording() { host_.directory("/etc/kestrix-plexo"); }

    int save(const char* interface_name, const char* key, int value) {
        const auto attached = host_.attach();
        int status = -1;
        printed_ = test::printed([&] { status = savePortParam(key, interface_name, 1, value); });
        return status;
    }

    int save_sysctl(const char* path, int64_t value) {
        const auto attached = host_.attach();
        int status = -1;
        EXPECT_EQ(test::printed([&] { status = saveSysctlParam(path, value); }), "");
        return status;
    }

    [[nodiscard]] std::string ports() const { return host_.read(kPortFile); }
    [[nodiscard]] std::string sysctl() const { return host_.read(kSysctlFile); }

    kxsim::Host host_;
    std::string printed_;
};

TEST_F(Recording, TheFirstSettingMakesTheFile) {
    EXPECT_EQ(save("eth1", "mtu", 1500), 0);
    EXPECT_EQ(ports(), "eth1.mtu = 1500\n");
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(save_sysctl("/proc/sys/toe/toe0_tom/mss", -1), 0);
    EXPECT_EQ(sysctl(), "toe.toe0_tom.mss = -1\n");
}

TEST_F(Recording, AnotherSettingIsAppendedAndTheSameOneReplaced) {
    save("eth1", "mtu", 1500);
    save("eth1", "gso", 1);
    EXPECT_EQ(ports(), "eth1.mtu = 1500\neth1.gso = 1\n");
    EXPECT_EQ(save("eth1", "mtu", 9000), 0);
    EXPECT_EQ(ports(), "eth1.mtu = 9000\neth1.gso = 1\n");
    EXPECT_EQ(printed_, "new_line eth1.mtu = 9000\n\n");
}

TEST_F(Recording, APortKeyIsFoundInsideALongerOne) {
    host_.file(kPortFile, "veth1.mtu = 1400\n# eth1.mtu\n");
    EXPECT_EQ(save("eth1", "mtu", 1500), 0);
    EXPECT_EQ(ports(), "eth1.mtu = 1500\neth1.mtu = 1500\n");
}

TEST_F(Recording, TheLastOfA31CharactersLongPortKeyCounts) {
    const std::string name(27, 'n');
    save(name.c_str(), "mtu", 1);
    save(name.c_str(), "mtx", 2);
    EXPECT_EQ(ports(), name + ".mtu = 1\n" + name + ".mtx = 2\n");
}

TEST_F(Recording, APortKeyIsSearchedByItsFirst31Characters) {
    const std::string name(40, 'n');
    host_.file(kPortFile, std::string(31, 'n') + "other = 1\nnnn.mtu = 2\n");
    EXPECT_EQ(save(name.c_str(), "mtu", 7), 0);
    EXPECT_EQ(ports(), name + ".mtu = 7\nnnn.mtu = 2\n");
    const std::string name28(28, 'm');
    EXPECT_EQ(save(name28.c_str(), "gso", 1), 0);
    EXPECT_EQ(save(name28.c_str(), "gsx", 2), 0) << "31 characters end before the key does";
    EXPECT_EQ(ports(), name + ".mtu = 7\nnnn.mtu = 2\n" + name28 + ".gsx = 2\n");
}

TEST_F(Recording, NamesOfAnyLengthMakeALineOfTheirOwn) {
    for (const std::size_t length : {15U, 16U, 63U, 1000U}) {
        host_.file(kPortFile, "");
        const std::string name(length, 'x');
        EXPECT_EQ(save(name.c_str(), "mtu", 1500), 0);
        EXPECT_EQ(ports(), name + ".mtu = 1500\n");
    }
}

TEST_F(Recording, ValuesAreSigned) {
    for (const int value : {0, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(save("eth1", "mtu", value), 0);
        EXPECT_EQ(ports(), "eth1.mtu = " + std::to_string(value) + "\n");
    }
    for (const int64_t value : {INT64_MAX, INT64_MIN}) {
        EXPECT_EQ(save_sysctl("/proc/sys/a/b", value), 0);
        EXPECT_EQ(sysctl(), "a.b = " + std::to_string(value) + "\n");
    }
}

TEST_F(Recording, ALastLineWithoutNewlineIsEndedFirst) {
    host_.file(kPortFile, "eth1.gso = 1");
    EXPECT_EQ(save("eth1", "mtu", 1500), 0);
    EXPECT_EQ(ports(), "eth1.gso = 1\neth1.mtu = 1500\n");
    host_.file(kSysctlFile, "net.a = 1");
    EXPECT_EQ(save_sysctl("/proc/sys/a/b", 2), 0);
    EXPECT_EQ(sysctl(), "net.a = 1\na.b = 2\n");
}

TEST_F(Recording, ADirectoryInTheFilesPlaceIsNoFile) {
    host_.directory(kPortFile);
    EXPECT_EQ(save("eth1", "mtu", 1500), 1);
    EXPECT_EQ(printed_, "not able to open conf file\n");
    host_.directory(kSysctlFile);
    EXPECT_EQ(save_sysctl("/proc/sys/a/b", 2), 1);
}

TEST_F(Recording, WithoutItsDirectoryNothingIsMade) {
    host_.remove("/etc/kestrix-plexo");
    EXPECT_EQ(save("eth1", "mtu", 1500), 1);
    EXPECT_EQ(printed_, "not able to open conf file\n");
    EXPECT_FALSE(host_.exists("/etc/kestrix-plexo"));
}

TEST_F(Recording, AFileThatMayNotBeWrittenStaysAsItIs) {
    host_.file(kPortFile, "eth1.mtu = 1\n");
    host_.fail({.call = "open", .times = 0, .error = EROFS, .object = kPortFile});
    EXPECT_EQ(save("eth1", "mtu", 1500), 1);
    EXPECT_EQ(printed_, "not able to open conf file\n");
    EXPECT_EQ(ports(), "eth1.mtu = 1\n");
}

TEST_F(Recording, LongLinesAndNulBytesSurvive) {
    const std::string odd = std::string(600, 'y') + std::string("\nx\0y\na\0b\n", 9);
    host_.file(kPortFile, odd + "eth1.mtu = 1\n");
    EXPECT_EQ(save("eth1", "mtu", 1500), 0);
    EXPECT_EQ(ports(), odd + "eth1.mtu = 1500\n");
    EXPECT_EQ(save("eth1", "gso", 1), 0);
    EXPECT_EQ(ports(), odd + "eth1.mtu = 1500\neth1.gso = 1\n");
}

TEST_F(Recording, ModeIsKept) {
    host_.file(kPortFile, "eth1.mtu = 1\n", 0600);
    EXPECT_EQ(save("eth1", "mtu", 1500), 0);
    EXPECT_EQ(host_.mode(kPortFile), 0600U);
}

TEST_F(Recording, AKeyThatDoesNotFitIsNotSaved) {
    EXPECT_EQ(save_sysctl(("/proc/sys/" + std::string(255, 'a')).c_str(), 1), 0);
    EXPECT_EQ(save_sysctl(("/proc/sys/" + std::string(256, 'b')).c_str(), 1), 1);
    EXPECT_EQ(sysctl(), std::string(255, 'a') + " = 1\n");
}

TEST_F(Recording, NullArgumentsAreRefused) {
    EXPECT_NE(savePortParam(nullptr, "eth1", 1, 1), 0);
    EXPECT_NE(savePortParam("mtu", nullptr, 1, 1), 0);
    EXPECT_NE(saveSysctlParam(nullptr, 1), 0);
}

// ---- Several agents ----

constexpr int kAgents = 4;
constexpr int kSettings = 25;

// What each of several processes does at the same time, by its number.
void in_processes(const std::function<void(int agent)>& work) {
    std::vector<pid_t> children;
    for (int agent = 0; agent < kAgents; ++agent) {
        const pid_t child = fork();
        if (child == 0) {
            work(agent);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(Recording, AgentsThatSaveAtTheSameTimeLoseNoLine) {
    const auto attached = host_.attach();
    std::fflush(stdout);
    in_processes([](int agent) {
        test::printed([agent] {
            for (const int value : {1, 2}) {  // appended, then replaced
                for (int i = 0; i < kSettings; ++i) {
                    const std::string key =
                        "k" + std::to_string(i) + "a" + std::to_string(agent) + "_";
                    EXPECT_EQ(savePortParam(key.c_str(), "eth1", 1, value), 0);
                    EXPECT_EQ(saveSysctlParam(("/proc/sys/toe/" + key).c_str(), value), 0);
                }
            }
        });
    });
    std::vector<std::string> port_lines;
    std::vector<std::string> sysctl_lines;
    for (int agent = 0; agent < kAgents; ++agent) {
        for (int i = 0; i < kSettings; ++i) {
            const std::string key = "k" + std::to_string(i) + "a" + std::to_string(agent) + "_";
            port_lines.push_back("eth1." + key + " = 2");
            sysctl_lines.push_back("toe." + key + " = 2");
        }
    }
    EXPECT_THAT(lines_of(ports()), UnorderedElementsAreArray(port_lines));
    EXPECT_THAT(lines_of(sysctl()), UnorderedElementsAreArray(sysctl_lines));
}

// Each call that recording makes fails once. The file, when it exists, then has the complete old
// text or the complete new text.
TEST_F(Recording, AnyFailingCallLeavesOneTextWhole) {
    const std::string old_text = " # ours\neth1.mtu = 1\neth1.gso = 1\n";
    const std::string new_text = "# ours\neth1.mtu = 1500\neth1.gso = 1\n";
    const std::string path = kPortFile;
    unsigned positions = 0;
    for (const char* call :
         {"open", "read", "stat", "chmod", "write", "fsync", "rename", "unlink"}) {
        positions += kxsim::sweep(
            host_, {.call = call, .error = EIO, .object = path + "*"}, [&](unsigned nth) {
                host_.remove(path + ".tmp");
                host_.remove(path + ".bk");
                host_.file(path, old_text);
                const int status = save("eth1", "mtu", 1500);
                if (host_.exists(path)) {
                    EXPECT_THAT(ports(), AnyOf(old_text, new_text)) << call << " " << nth;
                    EXPECT_EQ(status == 0, ports() == new_text) << call << " " << nth;
                } else {
                    EXPECT_EQ(host_.read(path + ".bk"), old_text) << call << " " << nth;
                    EXPECT_EQ(host_.read(path + ".tmp"), new_text) << call << " " << nth;
                }
            });
    }
    EXPECT_GE(positions, 10U) << "the sweep met the calls";
}

}  // namespace
