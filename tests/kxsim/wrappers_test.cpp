// The list of wrapped calls is complete: every function of the C library that takes a path, and
// that the library or one of its programs calls, is defined in libkxsim.so.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <kxsim/preload.h>

#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/shell.hpp"

namespace {

namespace fs = std::filesystem;

using testing::IsEmpty;
using Names = std::set<std::string>;

Names words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

// Functions of the C library whose arguments or result are a path, and those that answer for
// sockets, addresses, memory and time.
const Names kOfInterest = words(
    "__fxstatat __fxstatat64 __getcwd_chk __lxstat __lxstat64 __open64_2 __open_2 __openat64_2 "
    "__openat_2 __pread64_chk __pread_chk __read_chk __readlink_chk __readlinkat_chk "
    "__realpath_chk __xstat __xstat64 access acct calloc canonicalize_file_name chdir chmod chown "
    "chroot closedir creat creat64 dlopen eaccess euidaccess execl execle execlp execv execve "
    "execveat execvp execvpe faccessat fchmod fchmodat fchown fchownat fclose fdatasync fdopendir "
    "fexecve fflush "
    "fopen fopen64 fork freopen freopen64 fstatat fstatat64 fsync ftruncate ftruncate64 "
    "fts64_open fts_open ftw ftw64 futimesat get_current_dir_name getcwd getifaddrs getwd "
    "getxattr glob glob64 if_indextoname if_nameindex if_nametoindex inotify_add_watch ioctl "
    "lchown lgetxattr link linkat listxattr "
    "llistxattr lremovexattr lsetxattr lstat lstat64 lutimes malloc mkdir mkdirat mkdtemp mkfifo "
    "mkfifoat mknod mknodat mkostemp mkstemp mkstemp64 mmap mmap64 mount name_to_handle_at nftw "
    "nftw64 open open64 openat openat64 opendir pathconf pivot_root popen posix_spawn "
    "posix_spawnp pread pread64 pwrite pwrite64 read readdir readdir64 readdir64_r readdir_r "
    "readlink readlinkat realloc realpath remove removexattr rename renameat renameat2 rewinddir "
    "rmdir scandir scandir64 scandirat scandirat64 seekdir setxattr socket stat stat64 statfs "
    "statfs64 statvfs statvfs64 statx swapon symlink symlinkat system telldir tempnam truncate "
    "truncate64 umount umount2 unlink unlinkat uselib usleep utime utimensat utimes vfork write");

// The functions that stay those of the C library, with the reason.
const Names kLeftAlone = words(
    // Libraries are the real machine's; children inherit the host.
    "dlopen fork vfork "
    // Temporary files are the real machine's.
    "mkdtemp mkostemp mkstemp mkstemp64 "
    // Nothing of these kinds is simulated: pipes and devices, mounts, labels, attributes.
    "chroot fts_open inotify_add_watch lremovexattr lsetxattr mkfifo mknod mknodat mount pathconf "
    "removexattr setxattr umount umount2 "
    // Functions of the underlying file system, which is real.
    "statfs statfs64 statvfs");

Names names_in(const std::string& command) {
    Names names;
    for (const std::string& line : test::lines_of(test::shell(command).output)) {
        names.insert(line.substr(0, line.find('@')));
    }
    return names;
}

Names undefined_in(const std::string& file) {
    return names_in(
        "nm -D --undefined-only --format=posix " + test::shell_word(file) + " | cut -d' ' -f1");
}

Names offered_by(const std::string& file) {
    return names_in(
        "nm -D --defined-only --format=posix " + test::shell_word(file) + " | cut -d' ' -f1");
}

// The file that an address of this process lies in.
std::string file_of(const void* address) {
    Dl_info object{};
    EXPECT_NE(dladdr(address, &object), 0);
    return fs::canonical(object.dli_fname);
}

std::string libkxsim() { return file_of(reinterpret_cast<void*>(kxsim_attach)); }

std::string libkxlinhw() { return file_of(reinterpret_cast<void*>(GetCardInfo)); }

// The libraries that a file is linked with, except the C library itself and the sanitizers.
std::vector<std::string> libraries_of(const std::string& file) {
    std::vector<std::string> libraries;
    const std::string command =
        "ldd " + test::shell_word(file) + " | sed -n 's/.*=> \\(\\/[^ ]*\\).*/\\1/p'";
    for (const std::string& library : test::lines_of(test::shell(command).output)) {
        const std::string name = fs::path(library).filename();
        if (name.starts_with("libc.so") || name.starts_with("libkxsim") ||
            name.starts_with("libasan") || name.starts_with("libubsan") ||
            name.starts_with("libcrypto") ||
            name.starts_with("libmount")) {  // libvirt brings it; nothing here reaches its calls
            continue;
        }
        libraries.push_back(library);
    }
    return libraries;
}

Names difference(const Names& from, const Names& without) {
    Names left;
    for (const std::string& name : from) {
        if (!without.contains(name)) {
            left.insert(name);
        }
    }
    return left;
}

Names needed_by(const std::string& file) {
    Names needed;
    for (const std::string& name : undefined_in(file)) {
        if (kOfInterest.contains(name) && !kLeftAlone.contains(name)) {
            needed.insert(name);
        }
    }
    return needed;
}

class WrappedCallsOf : public testing::TestWithParam<const char*> {};

TEST_P(WrappedCallsOf, StandForEveryCallThatAProgramMakes) {
    const Names offered = offered_by(libkxsim());
    const std::string program = test::shell(std::string("command -v ") + GetParam()).output;
    if (program.empty()) {
        GTEST_SKIP() << "this machine has no " << GetParam();
    }
    const std::string path = fs::canonical(program.substr(0, program.size() - 1));
    EXPECT_FALSE(undefined_in(path).empty());
    EXPECT_THAT(difference(needed_by(path), offered), IsEmpty()) << path;
    for (const std::string& library : libraries_of(path)) {
        EXPECT_THAT(difference(needed_by(library), offered), IsEmpty()) << library;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tools, WrappedCallsOf,
    testing::Values("lspci", "setpci", "sh", "cat", "ls", "modinfo", "sysctl", "ethtool"),
    [](const auto& tool) { return std::string(tool.param); });

TEST(WrappedCalls, StandForEveryCallThatTheLibraryMakes) {
    const Names offered = offered_by(libkxsim());
    EXPECT_THAT(difference(needed_by(libkxlinhw()), offered), IsEmpty());
    for (const std::string& library : libraries_of(libkxlinhw())) {
        EXPECT_THAT(difference(needed_by(library), offered), IsEmpty()) << library;
    }
}

// Every function of libvirt that the library calls on machines, except those that answer from a
// handle alone.
TEST(WrappedCalls, StandForEveryCallOnMachines) {
    const Names offered = offered_by(libkxsim());
    const Names from_handle = words(
        "virConnectGetURI virDomainFree virDomainGetConnect virDomainGetID virDomainGetName "
        "virDomainGetOSType virDomainGetUUID virDomainGetUUIDString");
    Names missing;
    for (const std::string& name : undefined_in(libkxlinhw())) {
        const bool is_call = name.starts_with("virConnect") || name.starts_with("virDomain");
        if (is_call && name != "virConnectAuthPtrDefault" && !from_handle.contains(name) &&
            !offered.contains(name)) {
            missing.insert(name);
        }
    }
    EXPECT_THAT(missing, IsEmpty());
}

TEST(WrappedCalls, AreAllKnownToTheListAbove) {
    Names others = difference(offered_by(libkxsim()), kOfInterest);
    for (const char* known :
         {"kxsim_attach", "kxsim_detach", "kxsim_pause", "kxsim_resume", "kxsim_allocation_fails",
          "free", "readl", "writel", "writel_Q4"}) {
        others.erase(known);
    }
    std::erase_if(others, [](const std::string& name) { return name.starts_with("vir"); });
    EXPECT_THAT(others, IsEmpty());
}

TEST(WrappedCalls, AreBehindTheNameOfEachWrappedCallInThisProcess) {
    for (const std::string& name : offered_by(libkxsim())) {
        const void* const found = dlsym(RTLD_DEFAULT, name.c_str());
        ASSERT_NE(found, nullptr) << name;
        const std::string file = fs::path(file_of(found)).filename();
        // The wrappers of a sanitizer, and this test's allocator with one, are called first and
        // then call these.
        if (!file.starts_with("libasan") && !file.starts_with("kxsim_wrappers")) {
            EXPECT_EQ(file, "libkxsim.so") << name;
        }
    }
}

// The models and wrappers call the C library directly. Exceptions: old variants may use new ones,
// patterns are matched through the wrapped calls, and a list of addresses is memory of the
// process's allocator.
TEST(WrappedCalls, DoNotCallOneAnotherByMistake) {
    const Names allowed = words(
        "calloc closedir fstatat fstatat64 getcwd kxsim_allocation_fails kxsim_detach lstat "
        "lstat64 malloc mmap opendir readdir readdir64 readlink readlinkat realpath stat stat64");
    Names called;
    const Names slots = names_in(
        "readelf --wide --relocs " + test::shell_word(libkxsim()) +
        " | sed -n 's/.*R_\\(X86_64\\|AARCH64\\)_[A-Z_]* *[0-9a-f]* \\([A-Za-z_0-9]*\\).*/\\2/p'");
    ASSERT_FALSE(slots.empty());
    for (const std::string& name : offered_by(libkxsim())) {
        if (slots.contains(name) && !allowed.contains(name)) {
            called.insert(name);
        }
    }
    EXPECT_THAT(called, IsEmpty());
}

TEST(WrappedCalls, BringNothingIntoAProcessButTheCLibrary) {
    EXPECT_EQ(
        test::shell(
            "readelf -d " + test::shell_word(libkxsim()) +
            " | grep NEEDED | sed 's/.*\\[\\(.*\\)\\]/\\1/'")
            .output,
        "libc.so.6\n");
}

}  // namespace
