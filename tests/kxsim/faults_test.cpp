// Faults with a position and a report, and the counting of calls.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <kxlinhw/kxlinhw.h>
#include <libvirt/libvirt.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <kxsim/host.hpp>
#include <map>
#include <string>
#include <vector>

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr char kFile[] = "/etc/sysctl.conf";

int driver_info(const char* name, int socket) {
    ethtool_drvinfo info{};
    info.cmd = ETHTOOL_GDRVINFO;
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    request.ifr_data = reinterpret_cast<char*>(&info);
    return ioctl(socket, SIOCETHTOOL, &request);
}

class Faults : public testing::Test {
protected:
    Faults() : attached_(host_.attach()), socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
        host_.file(kFile, "text\n");
        host_.directory("/etc/kestrix-plexo");
        host_.interface({.name = "eth0"});
        host_.interface({.name = "eth1"});
    }
    ~Faults() override { close(socket_); }

    kxsim::Host host_;
    kxsim::Attached attached_;
    int socket_;
};

// --- Every kind of call ---

struct Failing {
    const char* kind;
    std::function<bool()> fails;  // makes one call of the kind; true when it failed
};

class AnOpenFile {
public:
    explicit AnOpenFile(int flags = O_RDWR) : number_(open(kFile, flags)) {}
    ~AnOpenFile() { close(number_); }
    int operator*() const { return number_; }

private:
    int number_;
};

std::vector<Failing> failing_calls() {
    return {
        {"access", [] { return access(kFile, F_OK) != 0; }},
        {"chdir", [] { return chdir("/etc/kestrix-plexo") != 0; }},
        {"chmod", [] { return chmod(kFile, 0600) != 0; }},
        {"chmod", [] { return fchmod(*AnOpenFile(), 0600) != 0; }},
        {"chown", [] { return chown(kFile, getuid(), getgid()) != 0; }},
        {"chown", [] { return fchown(*AnOpenFile(), getuid(), getgid()) != 0; }},
        {"fclose", [] { return std::fclose(std::fopen(kFile, "r")) != 0; }},
        {"fflush",
         [] {
             std::FILE* const stream = std::fopen(kFile, "a");
             const bool failed = std::fputs("x", stream) < 0 || std::fflush(stream) != 0;
             const int reason = errno;
             std::fclose(stream);
             errno = reason;
             return failed;
         }},
        {"fopen", [] { return std::fopen(kFile, "r") == nullptr; }},
        {"freopen",
         [] { return std::freopen(kFile, "r", std::fopen("/dev/null", "r")) == nullptr; }},
        {"fsync", [] { return fsync(*AnOpenFile()) != 0; }},
        {"getifaddrs",
         [] {
             ifaddrs* list = nullptr;
             return getifaddrs(&list) != 0;
         }},
        {"ioctl", [] { return ioctl(0, SIOCETHTOOL, nullptr) != 0; }},
        {"libvirt", [] { return virConnectOpen(nullptr) == nullptr; }},
        {"link", [] { return link(kFile, "/etc/sysctl.conf.bk") != 0; }},
        {"mkdir", [] { return mkdir("/etc/kestrix-plexo/new", 0755) != 0; }},
        {"mmap",
         [] { return mmap(nullptr, 4, PROT_READ, MAP_PRIVATE, *AnOpenFile(), 0) == MAP_FAILED; }},
        {"open", [] { return open(kFile, O_RDONLY) < 0; }},
        {"opendir", [] { return opendir("/sys/class/net") == nullptr; }},
        {"read",
         [] {
             char byte;
             return read(*AnOpenFile(), &byte, 1) < 0;
         }},
        {"readdir",
         [] {
             DIR* const directory = opendir("/sys/class/net");
             errno = 0;
             const bool failed = readdir(directory) == nullptr && errno != 0;
             const int reason = errno;
             closedir(directory);
             errno = reason;
             return failed;
         }},
        {"readlink",
         [] {
             char text[8];
             return readlink(kFile, text, sizeof text) < 0;
         }},
        {"realpath", [] { return realpath(kFile, nullptr) == nullptr; }},
        {"rename", [] { return rename(kFile, "/etc/sysctl.conf.bk") != 0; }},
        {"rmdir", [] { return rmdir("/etc/kestrix-plexo") != 0; }},
        {"socket", [] { return socket(AF_INET, SOCK_DGRAM, 0) < 0; }},
        {"stat",
         [] {
             struct stat status {};
             return stat(kFile, &status) != 0;
         }},
        {"symlink", [] { return symlink("a", "/etc/kestrix-plexo/link") != 0; }},
        {"truncate", [] { return truncate(kFile, 0) != 0; }},
        {"truncate", [] { return ftruncate(*AnOpenFile(), 0) != 0; }},
        {"unlink", [] { return unlink(kFile) != 0; }},
        {"usleep", [] { return usleep(1) != 0; }},
        {"utime", [] { return utimensat(AT_FDCWD, kFile, nullptr, 0) != 0; }},
        {"write", [] { return write(*AnOpenFile(), "x", 1) < 0; }},
        {"xattr", [] { return getxattr(kFile, "user.any", nullptr, 0) < 0; }},
    };
}

TEST_F(Faults, EveryKindOfCallCanBeMadeToFailWithItsErrno) {
    for (const Failing& call : failing_calls()) {
        kxsim::FaultRule rule = host_.fail({.call = call.kind, .error = EXFULL});
        errno = 0;
        EXPECT_TRUE(call.fails()) << call.kind;
        EXPECT_EQ(errno, EXFULL) << call.kind;
        EXPECT_EQ(rule.fired(), 1U) << call.kind;
        rule.remove();
    }
}

TEST_F(Faults, TheTableAboveHoldsEveryKindButAllocations) {
    std::vector<std::string> covered;
    for (const Failing& call : failing_calls()) {
        covered.emplace_back(call.kind);
    }
    for (const std::string_view name : kxsim::call_names()) {
        if (name != "malloc" && name != "calloc" && name != "realloc") {
            EXPECT_THAT(covered, testing::Contains(name));
        }
    }
}

TEST_F(Faults, WithoutARuleNothingFailsThatShouldNot) {
    EXPECT_EQ(access(kFile, F_OK), 0);
    EXPECT_EQ(driver_info("eth0", socket_), 0);
    EXPECT_EQ(usleep(1), 0);
    EXPECT_EQ(fsync(*AnOpenFile()), 0);
}

// --- Position and extent ---

std::vector<int> results_of(int count, const std::function<int()>& call) {
    std::vector<int> results;
    for (int i = 0; i < count; ++i) {
        results.push_back(call());
    }
    return results;
}

TEST_F(Faults, OnlyTheNthCallFails) {
    kxsim::FaultRule rule = host_.fail({.call = "ioctl", .nth = 3, .error = EBUSY});
    EXPECT_THAT(
        results_of(5, [&] { return driver_info("eth0", socket_); }), ElementsAre(0, 0, -1, 0, 0));
    EXPECT_EQ(rule.seen(), 5U);
    EXPECT_EQ(rule.fired(), 1U);
}

TEST_F(Faults, SeveralCallsInARowMayFail) {
    const kxsim::FaultRule rule =
        host_.fail({.call = "access", .nth = 2, .times = 2, .error = EIO});
    EXPECT_THAT(results_of(5, [] { return access(kFile, F_OK); }), ElementsAre(0, -1, -1, 0, 0));
    EXPECT_EQ(rule.fired(), 2U);
}

TEST_F(Faults, AllCallsFromOneOnMayFail) {
    host_.fail({.call = "access", .nth = 2, .times = 0, .error = EIO});
    EXPECT_THAT(results_of(4, [] { return access(kFile, F_OK); }), ElementsAre(0, -1, -1, -1));
    host_.clear_faults();
    EXPECT_EQ(access(kFile, F_OK), 0);
}

TEST_F(Faults, ARuleMayBeAboutOnePath) {
    host_.fail({.call = "open", .times = 0, .error = EIO, .object = kFile});
    EXPECT_EQ(open(kFile, O_RDONLY), -1);
    const int other = open("/proc/modules", O_RDONLY);
    EXPECT_GE(other, 0);
    close(other);
}

TEST_F(Faults, ARuleMayBeAboutAllPathsThatBeginAlike) {
    host_.fail({.call = "open", .times = 0, .error = EIO, .object = "/proc/*"});
    EXPECT_EQ(open("/proc/modules", O_RDONLY), -1);
    EXPECT_EQ(open("/proc/self/status", O_RDONLY), -1);
    const int other = open(kFile, O_RDONLY);
    EXPECT_GE(other, 0);
    close(other);
}

TEST_F(Faults, ARuleOnReadsKnowsThePathThatIsOpen) {
    host_.fail({.call = "read", .error = EIO, .object = kFile});
    char byte;
    const int other = open("/proc/modules", O_RDONLY);
    EXPECT_EQ(read(other, &byte, 1), 0);
    close(other);
    EXPECT_EQ(read(*AnOpenFile(), &byte, 1), -1);
}

TEST_F(Faults, ARuleOnRequestsMayNameInterfaceAndCommand) {
    const kxsim::FaultRule rule = host_.fail(
        {.call = "ioctl", .error = EBUSY, .object = "eth1", .command = ETHTOOL_GDRVINFO});
    EXPECT_EQ(driver_info("eth0", socket_), 0);
    EXPECT_EQ(driver_info("eth1", socket_), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(rule.seen(), 1U);
}

TEST_F(Faults, ARuleMayBeAboutOneFunctionOfLibvirt) {
    const kxsim::FaultRule rule =
        host_.fail({.call = "libvirt", .times = 0, .error = EIO, .object = "virDomainGetName"});
    virConnect* const connection = virConnectOpen(nullptr);
    ASSERT_NE(connection, nullptr);
    host_.machine({.name = "one"});
    virDomain* const machine = virDomainLookupByName(connection, "one");
    ASSERT_NE(machine, nullptr);
    EXPECT_EQ(virDomainGetName(machine), nullptr);
    EXPECT_EQ(rule.struck(), "virDomainGetName");
    host_.clear_faults();
    EXPECT_STREQ(virDomainGetName(machine), "one");
    virDomainFree(machine);
    virConnectClose(connection);
}

TEST_F(Faults, ARuleMayBeAboutOneProgram) {
    const auto answers = [](const char* program) {
        return std::system((std::string(program) + " " + kFile + " >/dev/null 2>&1").c_str()) == 0;
    };
    const kxsim::FaultRule rule =
        host_.fail({.call = "open", .times = 0, .error = EIO, .object = kFile, .program = "head"});
    EXPECT_TRUE(answers("cat"));
    EXPECT_FALSE(answers("head"));
    EXPECT_EQ(rule.fired(), 1U);
    EXPECT_EQ(rule.struck(), kFile);
}

TEST_F(Faults, AReadMayBeCutShort) {
    const kxsim::FaultRule rule =
        host_.fail({.call = "read", .nth = 2, .error = 0, .object = kFile, .most = 2});
    const AnOpenFile file;
    char bytes[4];
    EXPECT_EQ(pread(*file, bytes, sizeof bytes, 0), 4);
    EXPECT_EQ(pread(*file, bytes, sizeof bytes, 0), 2);
    EXPECT_EQ(std::string(bytes, 2), std::string("text", 2));
    EXPECT_EQ(pread(*file, bytes, 1, 0), 1);
    EXPECT_EQ(rule.fired(), 1U);
}

TEST_F(Faults, AWriteMayBeCutShort) {
    host_.fail({.call = "write", .times = 0, .error = 0, .most = 3});
    const AnOpenFile file(O_WRONLY);
    EXPECT_EQ(write(*file, "12345", 5), 3);
    EXPECT_EQ(write(*file, "45", 2), 2);
    host_.clear_faults();
    EXPECT_EQ(host_.read(kFile), "12345");
}

TEST_F(Faults, AFailedWriteMayLeaveSomeBytes) {
    host_.fail({.call = "write", .error = ENOSPC, .most = 3});
    EXPECT_EQ(write(*AnOpenFile(O_WRONLY), "12345", 5), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(host_.read(kFile), "123t\n");
}

TEST_F(Faults, AFileRuleCountsTheCallsOnFilesTogether) {
    const kxsim::FaultRule rule = host_.fail({.call = "file", .nth = 3, .error = EIO});
    EXPECT_EQ(access(kFile, F_OK), 0);
    const AnOpenFile file;
    char bytes[4];
    EXPECT_EQ(read(*file, bytes, sizeof bytes), 4);
    EXPECT_EQ(fsync(*file), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(fchmod(*file, 0600), 0);
    EXPECT_EQ(rule.seen(), 4U);
    EXPECT_EQ(rule.struck(), kFile);
}

TEST_F(Faults, APowerCutStopsAWriteMidwayAndFailsAllLaterCalls) {
    const AnOpenFile file(O_WRONLY | O_TRUNC);
    host_.fail(kxsim::power_cut(2));
    EXPECT_EQ(write(*file, "first ", 6), 6);
    EXPECT_EQ(write(*file, "second and third", 16), -1);
    EXPECT_EQ(fsync(*file), -1);
    EXPECT_EQ(unlink(kFile), -1);
    host_.clear_faults();
    EXPECT_EQ(host_.read(kFile), "first second ");
}

TEST_F(Faults, APowerCutOnAControlFileWritesNothing) {
    constexpr char kControl[] = "/proc/sys/toe/toe0_tom/mss";
    host_.file(kControl, "1\n");
    const int file = open(kControl, O_WRONLY);
    host_.fail(kxsim::power_cut(1));
    EXPECT_EQ(write(file, "1234", 4), -1);
    host_.clear_faults();
    close(file);
    EXPECT_EQ(host_.read(kControl), "1\n");
}

TEST_F(Faults, WhatWasNotFlushedIsLost) {
    host_.watch_flushes();
    {
        const AnOpenFile file(O_WRONLY | O_APPEND);
        EXPECT_EQ(write(*file, "kept\n", 5), 5);
        EXPECT_EQ(fsync(*file), 0);
        EXPECT_EQ(write(*file, "lost\n", 5), 5);
    }
    { const AnOpenFile looked_at; }
    const int made = open("/etc/kestrix-plexo/new", O_CREAT | O_WRONLY, 0644);
    EXPECT_EQ(write(made, "lost", 4), 4);
    close(made);
    std::FILE* const stream = std::fopen("/etc/kestrix-plexo/stream", "w");
    std::fputs("lost", stream);
    std::fclose(stream);
    host_.file("/etc/kestrix-plexo/old", "never opened");
    host_.lose_unflushed();
    EXPECT_EQ(host_.read(kFile), "text\nkept\n");
    EXPECT_EQ(host_.read("/etc/kestrix-plexo/new"), "");
    EXPECT_EQ(host_.read("/etc/kestrix-plexo/stream"), "");
    EXPECT_EQ(host_.read("/etc/kestrix-plexo/old"), "never opened");
}

TEST_F(Faults, WhatIsNotWatchedIsNotLost) {
    EXPECT_EQ(write(*AnOpenFile(O_WRONLY | O_APPEND), "more\n", 5), 5);
    host_.lose_unflushed();
    EXPECT_EQ(host_.read(kFile), "text\nmore\n");
}

int set_request(int socket, const char* name, void* record) {
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ);
    request.ifr_data = static_cast<char*>(record);
    return ioctl(socket, SIOCETHTOOL, &request);
}

TEST_F(Faults, RequestsAreLoggedWithWhatTheyCarry) {
    ethtool_cmd link{};
    link.cmd = ETHTOOL_SSET;
    link.autoneg = 1;
    link.duplex = 2;
    link.port = 3;
    link.advertising = 4;
    ethtool_cmd_speed_set(&link, 100'000);
    ethtool_ringparam rings{};
    rings.cmd = ETHTOOL_SRINGPARAM;
    rings.rx_pending = 1;
    rings.rx_mini_pending = 2;
    rings.rx_jumbo_pending = 3;
    rings.tx_pending = 4;
    ethtool_pauseparam pause{
        .cmd = ETHTOOL_SPAUSEPARAM, .autoneg = 1, .rx_pause = 2, .tx_pause = 3};
    ethtool_coalesce coalescing{};
    coalescing.cmd = ETHTOOL_SCOALESCE;
    coalescing.rx_coalesce_usecs = 1;
    coalescing.rx_max_coalesced_frames = 2;
    coalescing.tx_coalesce_usecs = 3;
    coalescing.tx_max_coalesced_frames = 4;
    ethtool_value level{.cmd = ETHTOOL_SMSGLVL, .data = 7};
    ifreq mtu{};
    std::strcpy(mtu.ifr_name, "eth1");
    mtu.ifr_mtu = 9000;
    host_.fail({.call = "ioctl", .nth = 5, .error = EIO});
    const kxsim::Calls calls = host_.count([&] {
        set_request(socket_, "eth0", &link);
        set_request(socket_, "eth0", &rings);
        set_request(socket_, "eth0", &pause);
        set_request(socket_, "eth0", &coalescing);
        EXPECT_EQ(set_request(socket_, "nosuch", &level), -1);
        EXPECT_EQ(set_request(socket_, "sixteen_letters_", nullptr), -1);
        ioctl(socket_, SIOCSIFMTU, &mtu);
        driver_info("eth0", socket_);
        int bytes = 0;
        ioctl(socket_, FIONREAD, &bytes);
    });
    EXPECT_THAT(
        calls.requests(),
        ElementsAre(
            "SSET eth0 autoneg 1 speed 100000 duplex 2 advertising 4 port 3",
            "SRINGPARAM eth0 rx 1 mini 2 jumbo 3 tx 4", "SPAUSEPARAM eth0 autoneg 1 rx 2 tx 3",
            "SCOALESCE eth0 rx_usecs 1 rx_frames 2 tx_usecs 3 tx_frames 4", "SMSGLVL nosuch 7",
            "SIOCSIFMTU eth1 9000", "GDRVINFO eth0"));
}

TEST_F(Faults, TheCallsOfAKindAreNamedInTheirOrder) {
    const kxsim::Calls calls = host_.count([&] {
        const AnOpenFile file;
        EXPECT_EQ(access(kFile, F_OK), 0);
        EXPECT_EQ(fsync(*file), 0);
        EXPECT_EQ(unlink(kFile), 0);
    });
    EXPECT_THAT(calls.names("file"), ElementsAre("open", "fsync", "unlink"));
    EXPECT_THAT(calls.names("fsync"), ElementsAre("fsync"));
}

TEST_F(Faults, SeveralRulesMayStandBesideOneAnother) {
    host_.fail({.call = "access", .nth = 1, .error = EIO});
    host_.fail({.call = "access", .nth = 3, .error = EPERM});
    EXPECT_THAT(results_of(4, [] { return access(kFile, F_OK); }), ElementsAre(-1, 0, -1, 0));
}

TEST_F(Faults, TheBuildersOwnCallsNeitherFailNorCount) {
    const kxsim::FaultRule rule = host_.fail({.call = "open", .times = 0, .error = EIO});
    host_.fail({.call = "fopen", .times = 0, .error = EIO});
    host_.file("/etc/kestrix-plexo/new", "text");
    EXPECT_EQ(host_.read("/etc/kestrix-plexo/new"), "text");
    EXPECT_EQ(rule.seen(), 0U);
}

TEST_F(Faults, UnknownCallsAndPositionsAreRefused) {
    EXPECT_THROW(host_.fail({.call = "frobnicate", .error = EIO}), std::invalid_argument);
    EXPECT_THROW(host_.fail({.call = "open", .nth = 0, .error = EIO}), std::invalid_argument);
    EXPECT_THROW(host_.fail({.call = "open", .error = 0}), std::invalid_argument);
    EXPECT_THROW(host_.fail({.call = "open", .error = 0, .most = 1}), std::invalid_argument);
    EXPECT_THROW(host_.fail({.call = "read", .error = EIO, .most = 1}), std::invalid_argument);
}

TEST_F(Faults, AFailedCloseLosesWhatWasNotWritten) {
    host_.fail({.call = "fclose", .error = ENOSPC});
    std::FILE* const stream = std::fopen(kFile, "a");
    std::fputs("lost", stream);
    EXPECT_EQ(std::fclose(stream), EOF);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(host_.read(kFile), "text\n");
}

TEST_F(Faults, ChildrenAreUnderTheSameRules) {
    const kxsim::FaultRule rule =
        host_.fail({.call = "open", .error = EIO, .object = "/proc/sys/toe/toe0_tom/mss"});
    host_.file("/proc/sys/toe/toe0_tom/mss", "1\n");
    EXPECT_NE(std::system("echo 2 2>/dev/null > /proc/sys/toe/toe0_tom/mss"), 0);
    EXPECT_EQ(rule.fired(), 1U);
    EXPECT_EQ(host_.read("/proc/sys/toe/toe0_tom/mss"), "1\n");
}

// --- Sweeps ---

TEST_F(Faults, ASweepMeetsEveryPosition) {
    std::vector<std::vector<int>> runs;
    const unsigned positions = kxsim::sweep(host_, {.call = "access", .error = EIO}, [&](unsigned) {
        runs.push_back(results_of(3, [] { return access(kFile, F_OK); }));
    });
    EXPECT_EQ(positions, 3U);
    EXPECT_THAT(
        runs, ElementsAre(
                  ElementsAre(-1, 0, 0), ElementsAre(0, -1, 0), ElementsAre(0, 0, -1),
                  ElementsAre(0, 0, 0)));
}

// --- Allocations ---

void* volatile kept_block;  // otherwise the compiler would drop the unused block

bool allocates() {
    kept_block = std::malloc(64);
    const bool got = kept_block != nullptr;
    std::free(kept_block);
    return got;
}

TEST_F(Faults, AllocationsFailInTheProgramThatARuleNames) {
    const kxsim::FaultRule rule =
        host_.fail({.call = "malloc", .times = 0, .error = ENOMEM, .program = "sort"});
    EXPECT_NE(std::system("sort /etc/sysctl.conf >/dev/null 2>&1"), 0);
    EXPECT_GE(rule.fired(), 1U);
    EXPECT_TRUE(allocates()) << "in this one they do not";
}

TEST_F(Faults, AllocationsFailInsideAWindowOnly) {
    host_.fail({.call = "malloc", .times = 0, .error = ENOMEM});
    EXPECT_TRUE(allocates());
    bool inside = true;
    host_.count([&] { inside = allocates(); });
    EXPECT_FALSE(inside);
    EXPECT_TRUE(allocates());
}

TEST_F(Faults, TheNthAllocationFails) {
    host_.fail({.call = "calloc", .nth = 2, .error = ENOMEM});
    bool got[3] = {};
    host_.count([&] {
        for (bool& each : got) {
            kept_block = std::calloc(4, 4);
            each = kept_block != nullptr;
            std::free(kept_block);
        }
    });
    EXPECT_THAT(got, ElementsAre(true, false, true));
}

TEST_F(Faults, AFailedReallocationKeepsTheBlock) {
    kept_block = std::malloc(8);
    std::strcpy(static_cast<char*>(kept_block), "kept");
    host_.fail({.call = "realloc", .error = ENOMEM});
    bool moved = true;
    host_.count([&] { moved = std::realloc(kept_block, 1U << 20) != nullptr; });
    ASSERT_FALSE(moved);
    EXPECT_STREQ(static_cast<char*>(kept_block), "kept");
    std::free(kept_block);
}

TEST_F(Faults, AllocationsMayBeThoseOfOneLibrary) {
    host_.module({.name = "zfab4", .loaded = true});
    host_.adapter({.chip = "Q5", .location = "03:00.4"});
    const kxsim::FaultRule rule =
        host_.fail({.call = "calloc", .nth = 2, .error = ENOMEM, .from = "libkxlinhw"});
    CardInfo card{};
    uint32_t length = 1;
    uint32_t status = 0;
    host_.count([&] {
        kept_block = std::calloc(1, 1);  // the test's own
        std::free(kept_block);
        status = GetCardInfo(&card, &length);
    });
    EXPECT_EQ(status, 66U);
    EXPECT_EQ(rule.fired(), 1U);
}

// --- Windows ---

TEST_F(Faults, AWindowCountsCallsInAllTheirSpellings) {
    const kxsim::Calls calls = host_.count([] {
        close(open(kFile, O_RDONLY));
        close(open64(kFile, O_RDONLY));
        close(openat(AT_FDCWD, "/proc/modules", O_RDONLY));
        closedir(opendir("/sys/class/net"));
    });
    EXPECT_EQ(calls["open"], 3U);
    EXPECT_EQ(calls["opendir"], 1U);
    EXPECT_EQ(calls["socket"], 0U);
    EXPECT_EQ(calls.on("open", kFile), 2U);
    EXPECT_EQ(calls.on("open", "/proc/modules"), 1U);
}

TEST_F(Faults, AWindowKeepsTheOrderOfCalls) {
    const kxsim::Calls calls = host_.count([&] {
        driver_info("eth0", socket_);
        driver_info("nosuch", socket_);
        close(open("/proc/modules", O_RDONLY));
    });
    EXPECT_THAT(
        calls.log(), ElementsAre(
                         kxsim::LoggedCall{"ioctl", "eth0", ETHTOOL_GDRVINFO, 0},
                         kxsim::LoggedCall{"ioctl", "nosuch", ETHTOOL_GDRVINFO, ENODEV},
                         kxsim::LoggedCall{"open", "/proc/modules", O_RDONLY, 0}));
}

TEST_F(Faults, AWindowLeavesOutWhatChildrenDo) {
    const kxsim::Calls calls =
        host_.count([] { EXPECT_EQ(std::system("cat /etc/sysctl.conf >/dev/null"), 0); });
    EXPECT_EQ(calls.on("open", kFile), 0U);
}

TEST_F(Faults, WindowsStartFromZero) {
    host_.count([] { close(open(kFile, O_RDONLY)); });
    const kxsim::Calls calls = host_.count([] {});
    EXPECT_EQ(calls["open"], 0U);
    EXPECT_TRUE(calls.log().empty());
}

TEST_F(Faults, AWindowCountsAllocations) {
    const kxsim::Calls calls = host_.count([] {
        EXPECT_TRUE(allocates());
        EXPECT_TRUE(allocates());
    });
    EXPECT_EQ(calls["malloc"], 2U);
}

// --- Time ---

TEST_F(Faults, SleepTakesNoTimeAndIsAddedUp) {
    EXPECT_EQ(usleep(3'000'000), 0);
    EXPECT_EQ(usleep(5), 0);
    EXPECT_EQ(host_.slept_microseconds(), 3'000'005U);
}

}  // namespace
