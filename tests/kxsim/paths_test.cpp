// Paths on the simulated host: what belongs to it, what stays the real machine's, and every family
// of calls that takes a path.
#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/settings.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utime.h>

#include <kxsim/preload.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <kxsim/host.hpp>
#include <string>

#include "support/scratch_directory.hpp"

// What programs built against an older C library call; headers no longer declare them.
extern "C" {
int __xstat(int version, const char* path, struct stat* status);
int __lxstat64(int version, const char* path, struct stat64* status);
int __fxstatat(int version, int directory, const char* path, struct stat* status, int flags);
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
char* __realpath_chk(const char* path, char* resolved, size_t size);
ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t room);
ssize_t __readlinkat_chk(int directory, const char* path, char* buffer, size_t size, size_t room);
}

namespace {

namespace fs = std::filesystem;

// True when the call succeeded, whatever it returns.
bool done(long result) { return result >= 0; }

bool done(int descriptor, bool) { return descriptor >= 0 && close(descriptor) == 0; }

bool done(std::FILE* stream) { return stream != nullptr && std::fclose(stream) == 0; }

bool done(DIR* directory) { return directory != nullptr && closedir(directory) == 0; }

bool done(char* text) {
    std::free(text);
    return text != nullptr;
}

struct PathCall {
    const char* name;
    bool (*works)(const char* path);
};

template <class Status>
Status* scratch() {
    static Status status;
    return &status;
}

char buffer[256];

const PathCall kFileCalls[] = {
    {"open", [](const char* p) { return done(open(p, O_RDONLY), true); }},
    {"open64", [](const char* p) { return done(open64(p, O_RDONLY), true); }},
    {"openat", [](const char* p) { return done(openat(AT_FDCWD, p, O_RDONLY), true); }},
    {"openat64", [](const char* p) { return done(openat64(AT_FDCWD, p, O_RDONLY), true); }},
    {"__open_2", [](const char* p) { return done(__open_2(p, O_RDONLY), true); }},
    {"__open64_2", [](const char* p) { return done(__open64_2(p, O_RDONLY), true); }},
    {"__openat_2", [](const char* p) { return done(__openat_2(AT_FDCWD, p, O_RDONLY), true); }},
    {"__openat64_2", [](const char* p) { return done(__openat64_2(AT_FDCWD, p, O_RDONLY), true); }},
    {"fopen", [](const char* p) { return done(std::fopen(p, "r")); }},
    {"fopen64", [](const char* p) { return done(fopen64(p, "r")); }},
    {"freopen",
     [](const char* p) {
         static std::FILE* stream;  // the C library does not release one that it cannot reopen
         stream = std::fopen("/dev/null", "r");
         return done(std::freopen(p, "r", stream));
     }},
    {"stat", [](const char* p) { return done(stat(p, scratch<struct stat>())); }},
    {"stat64", [](const char* p) { return done(stat64(p, scratch<struct stat64>())); }},
    {"lstat", [](const char* p) { return done(lstat(p, scratch<struct stat>())); }},
    {"lstat64", [](const char* p) { return done(lstat64(p, scratch<struct stat64>())); }},
    {"fstatat",
     [](const char* p) { return done(fstatat(AT_FDCWD, p, scratch<struct stat>(), 0)); }},
    {"fstatat64",
     [](const char* p) { return done(fstatat64(AT_FDCWD, p, scratch<struct stat64>(), 0)); }},
    {"statx",
     [](const char* p) {
         return done(statx(AT_FDCWD, p, 0, STATX_BASIC_STATS, scratch<struct statx>()));
     }},
    {"__xstat", [](const char* p) { return done(__xstat(1, p, scratch<struct stat>())); }},
    {"__lxstat64", [](const char* p) { return done(__lxstat64(1, p, scratch<struct stat64>())); }},
    {"__fxstatat",
     [](const char* p) { return done(__fxstatat(1, AT_FDCWD, p, scratch<struct stat>(), 0)); }},
    {"access", [](const char* p) { return done(access(p, R_OK)); }},
    {"eaccess", [](const char* p) { return done(eaccess(p, R_OK)); }},
    {"euidaccess", [](const char* p) { return done(euidaccess(p, R_OK)); }},
    {"faccessat", [](const char* p) { return done(faccessat(AT_FDCWD, p, R_OK, 0)); }},
    {"realpath", [](const char* p) { return done(realpath(p, nullptr)); }},
    {"__realpath_chk", [](const char* p) { return done(__realpath_chk(p, nullptr, PATH_MAX)); }},
    {"canonicalize_file_name", [](const char* p) { return done(canonicalize_file_name(p)); }},
    {"chmod", [](const char* p) { return done(chmod(p, 0644)); }},
    {"fchmodat", [](const char* p) { return done(fchmodat(AT_FDCWD, p, 0644, 0)); }},
    {"chown", [](const char* p) { return done(chown(p, getuid(), getgid())); }},
    {"lchown", [](const char* p) { return done(lchown(p, getuid(), getgid())); }},
    {"fchownat", [](const char* p) { return done(fchownat(AT_FDCWD, p, getuid(), getgid(), 0)); }},
    {"truncate", [](const char* p) { return done(truncate(p, 3)); }},
    {"truncate64", [](const char* p) { return done(truncate64(p, 3)); }},
    {"utime", [](const char* p) { return done(utime(p, nullptr)); }},
    {"utimes", [](const char* p) { return done(utimes(p, nullptr)); }},
    {"lutimes", [](const char* p) { return done(lutimes(p, nullptr)); }},
    {"futimesat", [](const char* p) { return done(futimesat(AT_FDCWD, p, nullptr)); }},
    {"utimensat", [](const char* p) { return done(utimensat(AT_FDCWD, p, nullptr, 0)); }},
    {"listxattr", [](const char* p) { return done(listxattr(p, nullptr, 0)); }},
    {"llistxattr", [](const char* p) { return done(llistxattr(p, nullptr, 0)); }},
    {"creat", [](const char* p) { return done(creat(p, 0644), true); }},
    {"creat64", [](const char* p) { return done(creat64(p, 0644), true); }},
    {"unlink", [](const char* p) { return done(unlink(p)); }},
    {"unlinkat", [](const char* p) { return done(unlinkat(AT_FDCWD, p, 0)); }},
    {"remove", [](const char* p) { return done(std::remove(p)); }},
};

const PathCall kDirectoryCalls[] = {
    {"opendir", [](const char* p) { return done(opendir(p)); }},
    {"scandir",
     [](const char* p) {
         dirent** entries = nullptr;
         const int count = scandir(p, &entries, nullptr, alphasort);
         for (int i = 0; i < count; ++i) {
             std::free(entries[i]);
         }
         std::free(entries);
         return done(count);
     }},
    {"scandir64",
     [](const char* p) {
         dirent64** entries = nullptr;
         const int count = scandir64(p, &entries, nullptr, alphasort64);
         for (int i = 0; i < count; ++i) {
             std::free(entries[i]);
         }
         std::free(entries);
         return done(count);
     }},
    {"rmdir", [](const char* p) { return done(rmdir(p)); }},
    {"mkdir", [](const char* p) { return done(mkdir(p, 0755)); }},
    {"unlinkat", [](const char* p) { return done(unlinkat(AT_FDCWD, p, AT_REMOVEDIR)); }},
    {"mkdirat", [](const char* p) { return done(mkdirat(AT_FDCWD, p, 0755)); }},
};

const PathCall kLinkCalls[] = {
    {"readlink", [](const char* p) { return done(readlink(p, buffer, sizeof buffer)); }},
    {"readlinkat",
     [](const char* p) { return done(readlinkat(AT_FDCWD, p, buffer, sizeof buffer)); }},
    {"__readlink_chk",
     [](const char* p) { return done(__readlink_chk(p, buffer, sizeof buffer, sizeof buffer)); }},
    {"__readlinkat_chk",
     [](const char* p) {
         return done(__readlinkat_chk(AT_FDCWD, p, buffer, sizeof buffer, sizeof buffer));
     }},
};

class Paths : public testing::Test {
protected:
    Paths() : attached_(host_.attach()) {}

    kxsim::Host host_;
    kxsim::Attached attached_;
};

std::string content_of(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY);
    if (file < 0) {
        return "cannot be opened";
    }
    char text[64];
    const ssize_t length = read(file, text, sizeof text);
    close(file);
    return {text, static_cast<std::size_t>(length)};
}

// --- Families ---

TEST_F(Paths, EveryCallOnAFileReachesTheSimulatedOne) {
    for (const PathCall& call : kFileCalls) {
        host_.file("/etc/kestrix-plexo/a.conf", "content");
        EXPECT_TRUE(call.works("/etc/kestrix-plexo/a.conf")) << call.name;
    }
}

TEST_F(Paths, EveryCallOnAFileMissesWhatTheHostDoesNotHold) {
    for (const PathCall& call : kFileCalls) {
        const std::string name = call.name;
        if (name != "creat" && name != "creat64") {
            EXPECT_FALSE(call.works("/lib/firmware/zfab4/missing")) << name;
        }
    }
}

TEST_F(Paths, EveryCallOnADirectoryReachesTheSimulatedOne) {
    host_.directory("/etc/kestrix-plexo/a");
    for (const PathCall& call : kDirectoryCalls) {
        EXPECT_TRUE(call.works("/etc/kestrix-plexo/a")) << call.name;
    }
}

TEST_F(Paths, EveryCallOnALinkReachesTheSimulatedOne) {
    host_.link("/etc/kestrix-plexo/link", "target");
    for (const PathCall& call : kLinkCalls) {
        EXPECT_TRUE(call.works("/etc/kestrix-plexo/link")) << call.name;
    }
}

TEST_F(Paths, BothEndsOfARenameLieOnTheHost) {
    host_.file("/etc/sysctl.conf.tmp", "new");
    ASSERT_EQ(rename("/etc/sysctl.conf.tmp", "/etc/sysctl.conf"), 0);
    EXPECT_EQ(host_.read("/etc/sysctl.conf"), "new");
    ASSERT_EQ(renameat(AT_FDCWD, "/etc/sysctl.conf", AT_FDCWD, "/etc/sysctl.conf.bk"), 0);
    ASSERT_EQ(renameat2(AT_FDCWD, "/etc/sysctl.conf.bk", AT_FDCWD, "/etc/sysctl.conf.tmp", 0), 0);
    EXPECT_EQ(host_.read("/etc/sysctl.conf.tmp"), "new");
}

TEST_F(Paths, LinksAreMadeOnTheHost) {
    host_.file("/etc/sysctl.conf", "text");
    EXPECT_EQ(link("/etc/sysctl.conf", "/etc/sysctl.conf.bk"), 0);
    EXPECT_EQ(linkat(AT_FDCWD, "/etc/sysctl.conf", AT_FDCWD, "/etc/sysctl.conf.tmp", 0), 0);
    EXPECT_EQ(host_.read("/etc/sysctl.conf.tmp"), "text");
    host_.directory("/etc/kestrix-plexo");
    EXPECT_EQ(symlink("anywhere", "/etc/kestrix-plexo/a"), 0);
    EXPECT_EQ(symlinkat("anywhere", AT_FDCWD, "/etc/kestrix-plexo/b"), 0);
    EXPECT_TRUE(host_.exists("/etc/kestrix-plexo/b"));
}

// --- Links ---

// What a link of the host leads to is looked for in the host, whatever the real machine has there.
class LinksOut : public Paths {
protected:
    void SetUp() override {
        directory_.write("file", "precious");
        host_.link("/etc/kestrix-plexo/absolute", outside_);
        host_.link("/etc/kestrix-plexo/climbing", "../../../../../../../../../.." + outside_);
    }

    std::string text() const {
        kxsim_pause();
        std::string line;
        std::getline(std::ifstream(outside_ + "/file"), line);
        kxsim_resume();
        return line;
    }

    static constexpr const char* kWays[] = {
        "/etc/kestrix-plexo/absolute", "/etc/kestrix-plexo/climbing"};
    const test::ScratchDirectory directory_;
    const std::string outside_ = directory_.path();
};

TEST_F(LinksOut, NeverLeadTheBuilderOutOfTheHost) {
    for (const std::string way : kWays) {
        EXPECT_FALSE(host_.exists(way + "/file"));
        host_.file(way + "/file", "ours");
        host_.append(way + "/file", " and more");
        EXPECT_EQ(host_.read(way + "/file"), "ours and more");
        EXPECT_EQ(host_.read(outside_ + "/file"), "ours and more") << "of the host";
        host_.directory(way + "/made");
        host_.link(way + "/link", "file");
        host_.order(way, {"made", "file"});
        host_.remove(way + "/file");
        host_.remove(way + "/link");
        host_.remove(way + "/made");
        EXPECT_EQ(text(), "precious");
    }
    host_.remove(kWays[0]);
    EXPECT_EQ(text(), "precious");
}

// The builder remembers directories.
TEST(Hosts, FollowALinkThatReplacesADirectory) {
    kxsim::Host host;
    host.file("/opt/kx/one/first", "");
    host.file("/opt/kx/two/first", "");
    const std::filesystem::path real = host.root() + "/tree/opt/kx";
    std::filesystem::remove_all(real / "one");
    std::filesystem::create_symlink("/opt/kx/two", real / "one");
    host.file("/opt/kx/one/second", "");
    EXPECT_TRUE(std::filesystem::exists(real / "two/second"));
}

TEST_F(LinksOut, NeverLeadAProcessOutOfTheHost) {
    for (const std::string way : kWays) {
        const std::string path = way + "/file";
        EXPECT_EQ(content_of(path), "cannot be opened");
        EXPECT_EQ(unlink(path.c_str()), -1);
        EXPECT_EQ(truncate(path.c_str(), 0), -1);
        EXPECT_EQ(chmod(path.c_str(), 0), -1);
        EXPECT_EQ(rename(path.c_str(), (way + "/other").c_str()), -1);
        host_.directory(way);
        const int file = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
        ASSERT_GE(file, 0);
        close(file);
        EXPECT_TRUE(host_.exists(outside_ + "/file"));
        EXPECT_EQ(text(), "precious");
        host_.remove(outside_);
    }
}

TEST_F(LinksOut, StayWhatTheyAreForCallsOnLinksThemselves) {
    for (const char* way : kWays) {
        struct stat status {};
        ASSERT_EQ(lstat(way, &status), 0);
        EXPECT_TRUE(S_ISLNK(status.st_mode));
        ASSERT_EQ(fstatat(AT_FDCWD, way, &status, AT_SYMLINK_NOFOLLOW), 0);
        EXPECT_TRUE(S_ISLNK(status.st_mode));
        errno = 0;
        EXPECT_EQ(open(way, O_RDONLY | O_NOFOLLOW), -1);
        EXPECT_EQ(errno, ELOOP);
        EXPECT_EQ(open(way, O_CREAT | O_EXCL | O_WRONLY, 0600), -1);
        EXPECT_EQ(errno, EEXIST);
        EXPECT_EQ(unlink(way), 0);
        EXPECT_EQ(lstat(way, &status), -1);
    }
}

TEST_F(Paths, LinksInACircleEndWithAnError) {
    host_.link("/etc/kestrix-plexo/a", "b");
    host_.link("/etc/kestrix-plexo/b", "/etc/kestrix-plexo/a");
    errno = 0;
    EXPECT_EQ(access("/etc/kestrix-plexo/a", F_OK), -1);
    EXPECT_EQ(errno, ELOOP);
    errno = 0;
    EXPECT_EQ(open("/etc/kestrix-plexo/b/c", O_RDONLY), -1);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_THROW(host_.file("/etc/kestrix-plexo/a/c", ""), std::invalid_argument);
}

// --- What belongs to the host ---

TEST_F(Paths, WhatTheRealMachineHasIsMissingWhereTheHostHasItNot) {
    host_.remove("/proc/modules");
    host_.remove("/sys/class/net");
    host_.remove("/sys/bus/pci");
    for (const char* path :
         {"/proc/modules", "/sys/class/net", "/sys/class/net/lo", "/sys/bus/pci/devices",
          "/sys/module"}) {
        errno = 0;
        if (std::string(path) != "/sys/module") {
            EXPECT_EQ(access(path, F_OK), -1) << path;
            EXPECT_EQ(errno, ENOENT) << path;
        }
    }
}

TEST_F(Paths, NeighboursOfTheHostsPathsAreTheRealMachines) {
    struct stat status {};
    for (const char* path : {"/proc/self/status", "/etc/passwd", "/sys/class", "/proc", "/"}) {
        EXPECT_EQ(stat(path, &status), 0) << path;
    }
    host_.file("/proc/modules-like", "a file of no table");
    EXPECT_EQ(content_of("/proc/modules-like"), "a file of no table");
}

TEST_F(Paths, AnyFileThatTheHostWasGivenIsThere) {
    host_.file("/opt/tool/settings", "ours");
    host_.file("/etc/hostname", "simulated\n");
    EXPECT_EQ(content_of("/opt/tool/settings"), "ours");
    EXPECT_EQ(content_of("/etc/hostname"), "simulated\n");
}

ino_t inode_in_tree(const kxsim::Host& host, const std::string& path) {
    struct stat status {};
    kxsim_pause();
    stat((host.root() + "/tree" + path).c_str(), &status);
    kxsim_resume();
    return status.st_ino;
}

TEST_F(Paths, ADirectoryIsHeldOnTheHostEvenIfTheRealMachineHasItToo) {
    host_.file("/etc/sysctl.conf", "text");
    host_.link("/opt/kxsim-link", "/etc");
    const int base = open("/", O_RDONLY | O_DIRECTORY);
    for (const int held :
         {open("/etc/", O_RDONLY | O_DIRECTORY), open64("/etc", O_RDONLY | O_DIRECTORY),
          openat(base, "etc", O_RDONLY | O_DIRECTORY),
          open("/opt/kxsim-link", O_RDONLY | O_DIRECTORY)}) {
        struct stat status {};
        ASSERT_EQ(fstat(held, &status), 0);
        EXPECT_EQ(status.st_ino, inode_in_tree(host_, "/etc"));
        EXPECT_EQ(faccessat(held, "sysctl.conf", F_OK, 0), 0);
        EXPECT_EQ(faccessat(held, "passwd", F_OK, 0), 0) << "it is still the real machine's";
        close(held);
    }
    close(base);
}

TEST_F(Paths, ADirectoryOfBothListsTheRealMachinesEntriesThroughItsDescriptor) {
    host_.file("/etc/kxsim-only-here", "");
    DIR* const directory = fdopendir(open("/etc", O_RDONLY | O_DIRECTORY));
    ASSERT_NE(directory, nullptr);
    bool found = false;
    while (const dirent* const entry = readdir(directory)) {
        found = found || entry->d_name == std::string("passwd");
    }
    EXPECT_TRUE(found);
    closedir(directory);
}

// What a rewrite of a file flushes and locks is the directory that it changes.
TEST_F(Paths, ARewriteFlushesTheHostsDirectory) {
    host_.file("/etc/sysctl.conf", "toe.toe0_tom.mss = 1\n");
    const kxsim::Calls calls = host_.count([] {
        EXPECT_EQ(
            replaceSysctlLine("/etc/sysctl.conf", "toe.toe0_tom.mss", "toe.toe0_tom.mss = 2\n", 16),
            0);
    });
    EXPECT_EQ(calls.on("fsync", "/etc"), 1U);
    EXPECT_EQ(host_.read("/etc/sysctl.conf"), "toe.toe0_tom.mss = 2\n");
}

TEST_F(Paths, WhatIsMadeBesideSimulatedFilesStaysOffTheRealMachine) {
    host_.file("/etc/kxsim-test/one", "");
    const int file = open("/etc/kxsim-test/two", O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(file, 0);
    close(file);
    EXPECT_TRUE(host_.exists("/etc/kxsim-test/two"));
    ASSERT_EQ(mkdir("/etc/kxsim-made", 0755), 0);
    EXPECT_TRUE(host_.exists("/etc/kxsim-made"));
}

TEST_F(Paths, FilesElsewhereAreTheRealMachines) {
    const test::ScratchDirectory directory;
    const std::string path = directory.write("file", "real");
    EXPECT_EQ(content_of(path), "real");
    EXPECT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(content_of(path), "cannot be opened");
}

TEST_F(Paths, BytesOfAFileMayBeAny) {
    const std::string bytes("\0\xff\n\0x", 5);
    host_.file("/etc/sysctl.conf", bytes);
    EXPECT_EQ(content_of("/etc/sysctl.conf"), bytes);
}

// --- Spellings of a path ---

TEST_F(Paths, DotsAndSlashesAreSeenThrough) {
    host_.file("/proc/modules", "ours");
    for (const char* path :
         {"/proc//modules", "/proc/./modules", "//proc/modules", "/proc/../proc/modules",
          "/sys/../proc/modules", "/../proc/modules"}) {
        EXPECT_EQ(content_of(path), "ours") << path;
    }
}

class WorkingDirectory {
public:
    explicit WorkingDirectory(const char* path) : before_(fs::current_path()) {
        EXPECT_EQ(chdir(path), 0) << path;
    }
    ~WorkingDirectory() { EXPECT_EQ(chdir(before_.c_str()), 0); }

private:
    fs::path before_;
};

TEST_F(Paths, RelativePathsLeadOntoTheHostToo) {
    host_.file("/proc/modules", "ours");
    const WorkingDirectory there("/proc");
    EXPECT_EQ(content_of("modules"), "ours");
    EXPECT_EQ(content_of("self/../modules"), "ours");
    EXPECT_EQ(access("self/status", F_OK), 0);
}

TEST_F(Paths, ADirectoryOfTheHostCanBeTheWorkingDirectory) {
    host_.interface({.name = "eth0", .mac = "02:00:00:00:00:01"});
    const WorkingDirectory there("/sys/class/net/eth0");
    char path[PATH_MAX];
    ASSERT_NE(getcwd(path, sizeof path), nullptr);
    EXPECT_STREQ(path, "/sys/class/net/eth0");
    EXPECT_EQ(content_of("address"), "02:00:00:00:00:01\n");
    EXPECT_EQ(content_of("../eth0/address"), "02:00:00:00:00:01\n");
    EXPECT_EQ(access("../../../../etc/passwd", F_OK), 0);
}

TEST_F(Paths, PathsMayBeRelativeToADirectoryDescriptor) {
    host_.file("/proc/modules", "ours");
    host_.file("/etc/kestrix-plexo/a", "a");
    for (const auto& [directory, name] :
         {std::pair{"/proc", "modules"}, {"/", "proc/modules"}, {"/etc/kestrix-plexo", "a"}}) {
        const int base = open(directory, O_RDONLY | O_DIRECTORY);
        ASSERT_GE(base, 0) << directory;
        EXPECT_TRUE(done(openat(base, name, O_RDONLY), true)) << directory;
        EXPECT_EQ(faccessat(base, name, F_OK, 0), 0) << directory;
        close(base);
    }
}

TEST_F(Paths, ResolvedPathsAreToldInTheHostsNames) {
    host_.pci_device({.location = "03:00.4", .vendor_id = 1, .device_id = 2});
    host_.interface({.name = "eth0", .bus_info = "0000:03:00.4"});
    char resolved[PATH_MAX];
    ASSERT_NE(realpath("/sys/class/net/eth0/device", resolved), nullptr);
    EXPECT_STREQ(resolved, "/sys/bus/pci/devices/0000:03:00.4");
}

// --- Permissions ---

TEST_F(Paths, AFileThatNobodyMayReadIsThereButCannotBeOpened) {
    host_.file("/proc/net/zfab3/devices", "text", 0);
    struct stat status {};
    EXPECT_EQ(stat("/proc/net/zfab3/devices", &status), 0);
    EXPECT_EQ(std::fopen("/proc/net/zfab3/devices", "r"), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(open("/proc/net/zfab3/devices", O_RDWR), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(Paths, KernelFilesKeepTheirPermissionsForRootToo) {
    host_.file("/sys/module/zfab4/parameters/tx_coal", "1\n", 0444);
    EXPECT_EQ(content_of("/sys/module/zfab4/parameters/tx_coal"), "1\n");
    EXPECT_EQ(open("/sys/module/zfab4/parameters/tx_coal", O_WRONLY), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(Paths, NothingIsMadeOrRemovedInTheKernelsFileSystems) {
    host_.file("/proc/sys/toe/toe0_tom/mss", "1\n");
    EXPECT_EQ(open("/proc/sys/toe/toe0_tom/new", O_CREAT | O_WRONLY, 0644), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(open("/proc/sys/toe/toe7_tom/new", O_CREAT | O_WRONLY, 0644), -1);
    EXPECT_EQ(errno, ENOENT);
    for (const auto& change : std::initializer_list<std::function<int()>>{
             [] { return unlink("/proc/sys/toe/toe0_tom/mss"); },
             [] { return mkdir("/proc/sys/toe/new", 0755); },
             [] { return rename("/proc/sys/toe/toe0_tom/mss", "/etc/sysctl.conf"); }}) {
        EXPECT_EQ(change(), -1);
        EXPECT_EQ(errno, EPERM);
    }
}

TEST_F(Paths, SettingsOfTheRealKernelCannotBeChanged) {
    EXPECT_EQ(open("/proc/sys/kernel/panic", O_WRONLY), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(std::fopen("/sys/kernel/mm/ksm/run", "w"), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_TRUE(done(open("/proc/sys/kernel/panic", O_RDONLY), true));
}

TEST_F(Paths, PatternsMatchPathsOfTheHost) {
    host_.file("/sys/module/zfab4/parameters/b", "");
    host_.file("/sys/module/zfab4/parameters/a", "");
    glob_t found{};
    ASSERT_EQ(glob("/sys/module/zfab4/*/[ab]", 0, nullptr, &found), 0);
    ASSERT_EQ(found.gl_pathc, 2U);
    EXPECT_STREQ(found.gl_pathv[0], "/sys/module/zfab4/parameters/a");
    EXPECT_STREQ(found.gl_pathv[1], "/sys/module/zfab4/parameters/b");
    globfree(&found);
    glob64_t found64{};
    EXPECT_EQ(glob64("/sys/module/zfab3/*", 0, nullptr, &found64), GLOB_NOMATCH);
    ASSERT_EQ(glob64("/etc/pass*d", 0, nullptr, &found64), 0);
    EXPECT_STREQ(found64.gl_pathv[0], "/etc/passwd");
    globfree64(&found64);
}

TEST_F(Paths, ErrnoIsLeftAloneByCallsThatSucceed) {
    host_.file("/etc/sysctl.conf", "text");
    errno = E2BIG;
    EXPECT_EQ(content_of("/etc/sysctl.conf"), "text");
    EXPECT_EQ(access("/etc/passwd", F_OK), 0);
    EXPECT_EQ(errno, E2BIG);
}

// --- Control files ---

TEST_F(Paths, WritingAControlFileReplacesItsValue) {
    host_.file("/proc/sys/toe/toe0_tom/mss", "16384\n");
    const int file = open("/proc/sys/toe/toe0_tom/mss", O_RDWR);
    ASSERT_GE(file, 0);
    EXPECT_EQ(write(file, "77", 2), 2);
    EXPECT_EQ(host_.read("/proc/sys/toe/toe0_tom/mss"), "77\n");
    EXPECT_EQ(write(file, "1500\n", 5), 5);
    EXPECT_EQ(host_.read("/proc/sys/toe/toe0_tom/mss"), "1500\n");
    close(file);
}

// --- Hosts one after another ---

TEST(Hosts, FollowOneAnotherInOneProcess) {
    for (const char* text : {"first", "second"}) {
        kxsim::Host host;
        host.file("/proc/modules", text);
        const auto attached = host.attach();
        EXPECT_EQ(content_of("/proc/modules"), text);
    }
    EXPECT_NE(content_of("/proc/modules"), "second");
}

TEST(Hosts, LeaveTheEnvironmentAsItWas) {
    const char* const before = std::getenv("LD_PRELOAD");
    const std::string preload = before == nullptr ? "(none)" : before;
    {
        kxsim::Host host;
        const auto attached = host.attach();
        EXPECT_EQ(std::getenv("KXSIM_ROOT"), host.root());
    }
    const char* const after = std::getenv("LD_PRELOAD");
    EXPECT_EQ(after == nullptr ? "(none)" : after, preload);
    EXPECT_EQ(std::getenv("KXSIM_ROOT"), nullptr);
}

TEST(Hosts, GoAwayWithTheirDirectory) {
    std::string root;
    {
        const kxsim::Host host;
        root = host.root();
        EXPECT_TRUE(fs::exists(root));
    }
    EXPECT_FALSE(fs::exists(root));
}

TEST(Hosts, RefuseRelativePaths) {
    kxsim::Host host;
    EXPECT_THROW(host.file("etc/x", ""), std::invalid_argument);
}

}  // namespace
