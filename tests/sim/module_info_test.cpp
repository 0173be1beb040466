// Where the library looks for the file of a module, and what it reads from it.
#include <gtest/gtest.h>
#include <kxlinhw/modules.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <kxsim/host.hpp>
#include <string>

#include "support/scratch_directory.hpp"

namespace {

struct Info {
    uint32_t status;
    std::string version = {};
    std::string description = {};
    friend bool operator==(const Info&, const Info&) = default;
};

constexpr char kUntouched[] = "untouched";

Info info_of(const std::string& module) {
    std::string name = module;
    char version[256] = "untouched";
    char description[256] = "untouched";
    const uint32_t status = getModinfo(name.data(), version, description);
    return {status, {version, strnlen(version, 255)}, {description, strnlen(description, 255)}};
}

std::string tree() {
    utsname kernel{};
    uname(&kernel);
    return std::string("/lib/modules/") + kernel.release;
}

// Is a file of that name taken for module zfab4 (or the module given)?
bool found(const std::string& file, const std::string& module = "zfab4") {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1", .file = file});
    const auto attached = host.attach();
    return info_of(module).status == 0;
}

TEST(ModuleSearch, FileIsTheModulesNameWithItsEnding) {
    EXPECT_TRUE(found("zfab4.ko"));
    EXPECT_TRUE(found("zfab4.ko.gz"));
    EXPECT_FALSE(found("zfab4_extra.ko"));
    EXPECT_FALSE(found("zfab4.ko.xz"));
    EXPECT_FALSE(found("zfab4.k"));
    EXPECT_FALSE(found("zfab4"));
    EXPECT_FALSE(found("xzfab4.ko"));
    EXPECT_FALSE(found("zfab4.ko.gz.old"));
    EXPECT_FALSE(found("ZFAB4.ko"));
}

TEST(ModuleSearch, DashAndUnderscoreAreTheSame) {
    EXPECT_TRUE(found("kx-x.ko", "kx_x"));
    EXPECT_TRUE(found("kx_x.ko", "kx-x"));
    EXPECT_TRUE(found("kx-x.ko", "kx-x"));
    EXPECT_FALSE(found("kx.x.ko", "kx_x"));
}

TEST(ModuleSearch, UpdatesComeBeforeTheRestOfTheTree) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "kernel", .where = "kernel/drivers"});
    host.module({.name = "zfab4", .version = "update", .where = "updates/deep/er"});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4").version, "update");
    EXPECT_EQ(modfound, 1);
}

TEST(ModuleSearch, WholeTreeIsSearchedWithoutUpdates) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "kernel", .where = "kernel/drivers"});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4").version, "kernel");
    EXPECT_EQ(modfound, 1);
}

TEST(ModuleSearch, FailsWithoutAFileAndLeavesItsScopeWide) {
    kxsim::Host host;
    host.directory(tree() + "/updates");
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4"), (Info{62, kUntouched, kUntouched}));
    EXPECT_EQ(modfound, 0);
    host.module({.name = "zfab4", .version = "1"});
    EXPECT_EQ(info_of("zfab4").status, 0U);
    EXPECT_EQ(modfound, 1);
}

TEST(ModuleSearch, FailsWithoutAModuleTree) {
    kxsim::Host host;
    host.remove("/lib/modules");
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4").status, 62U);
}

TEST(ModuleSearch, IsDepthFirstInTheOrderOfTheDirectory) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "in a", .where = "updates/a/deep"});
    host.module({.name = "zfab4", .version = "in b", .where = "updates/b"});
    const auto attached = host.attach();
    host.order(tree() + "/updates", {"b", "a"});
    EXPECT_EQ(info_of("zfab4").version, "in b");
    host.order(tree() + "/updates", {"a", "b"});
    EXPECT_EQ(info_of("zfab4").version, "in a");
}

TEST(ModuleSearch, MatchThatCannotBeMappedEndsItsOwnDirectoryOnly) {
    kxsim::Host host;
    host.file(tree() + "/updates/a/zfab4.ko", "");  // an empty file cannot be mapped
    host.module(
        {.name = "zfab4", .version = "beside", .where = "updates/a", .file = "zfab4.ko.gz"});
    host.module({.name = "zfab4", .version = "below", .where = "updates/a/deep"});
    host.module({.name = "zfab4", .version = "in b", .where = "updates/b"});
    host.order(tree() + "/updates", {"a", "b"});
    host.order(tree() + "/updates/a", {"zfab4.ko", "zfab4.ko.gz", "deep"});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4").version, "in b");
}

TEST(ModuleSearch, DirectoryWithTheModulesNameIsAMatchThatCannotBeMapped) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "inside", .where = "updates/zfab4.ko"});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4").status, 62U);
}

TEST(ModuleSearch, LinksToDirectoriesAreNotEntered) {
    for (const bool hidden : {false, true}) {
        kxsim::Host host;
        host.module({.name = "zfab4", .version = "1", .where = "../elsewhere"});
        host.directory(tree() + "/updates");
        host.link(tree() + "/updates/linked", "../../elsewhere");
        host.hide_entry_types(hidden);
        const auto attached = host.attach();
        EXPECT_EQ(info_of("zfab4").status, 62U);
    }
}

TEST(ModuleSearch, WorksOnFileSystemsThatDoNotTellAnEntrysType) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "deep", .where = "updates/a/b/c"});
    host.hide_entry_types();
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4").version, "deep");
}

TEST(ModuleSearch, LinkToAModuleFileIsFollowed) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "linked", .where = "updates/store", .file = "x.bin"});
    host.link(tree() + "/updates/zfab4.ko", "store/x.bin");
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4").version, "linked");
}

TEST(ModuleSearch, UpdatesMayBeALinkItself) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "through", .where = "../elsewhere"});
    host.directory(tree());
    host.link(tree() + "/updates", "../elsewhere");
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4").version, "through");
}

TEST(ModuleSearch, LooksAtEntriesAndMapsOnlyTheMatch) {
    kxsim::Host host;
    for (int k = 0; k < 50; ++k) {
        host.module({.name = "other" + std::to_string(k), .version = "1", .where = "updates/o"});
    }
    host.module({.name = "zfab4", .version = "1", .where = "updates/z"});
    const auto attached = host.attach();
    const auto calls = host.count([] { info_of("zfab4"); });
    EXPECT_EQ(calls["mmap"], 1U);
    EXPECT_EQ(calls["stat"], 1U) << "is there an updates directory";
}

TEST(ModuleInfo, NullArgumentsAreRefused) {
    char name[] = "zfab4";
    char text[256];
    EXPECT_EQ(getModinfo(nullptr, text, text), 317U);
    EXPECT_EQ(getModinfo(name, nullptr, text), 317U);
    EXPECT_EQ(getModinfo(name, text, nullptr), 317U);
}

TEST(ModuleInfo, BothClassesAndByteOrdersAreRead) {
    for (const unsigned elf_class : {32U, 64U}) {
        for (const bool big_endian : {false, true}) {
            kxsim::Host host;
            host.module(
                {.name = "zfab4",
                 .version = "3.19.0.1",
                 .description = "Ethernet driver",
                 .elf_class = elf_class,
                 .big_endian = big_endian});
            const auto attached = host.attach();
            EXPECT_EQ(info_of("zfab4"), (Info{0, "3.19.0.1", "Ethernet driver"}))
                << elf_class << " " << big_endian;
        }
    }
}

TEST(ModuleInfo, CompressedFileIsFoundButGivesNoTexts) {
    kxsim::Host host;
    host.file(tree() + "/updates/zfab4.ko.gz", "\x1f\x8b compressed");
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4"), (Info{0, kUntouched, kUntouched}));
}

TEST(ModuleInfo, FileWithoutTextsLeavesTheBuffers) {
    kxsim::Host host;
    host.module({.name = "zfab4", .info = {"license=GPL", "vermagic=6.1.0"}});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4"), (Info{0, kUntouched, kUntouched}));
}

TEST(ModuleInfo, KeysAreComparedOverTheirBeginningOnly) {
    kxsim::Host host;
    host.module(
        {.name = "zfab4", .info = {"vermagic=no", "versi=one", "descript=two", "vers=no", "x=y"}});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4"), (Info{0, "one", "two"}));
}

TEST(ModuleInfo, LaterStringsWin) {
    kxsim::Host host;
    host.module(
        {.name = "zfab4",
         .info = {"version=1", "description=long first", "version_of=2", "descriptor=d"}});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4"), (Info{0, "2", "d"}));
}

TEST(ModuleInfo, StringsWithoutEqualsAreSkipped) {
    kxsim::Host host;
    host.module({.name = "zfab4", .info = {"version=1", "version", "versi", "description"}});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4"), (Info{0, "1", kUntouched}));
}

TEST(ModuleInfo, ValueIsEverythingBehindTheFirstEquals) {
    kxsim::Host host;
    host.module({.name = "zfab4", .info = {"version=a=b=", "description="}});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4"), (Info{0, "a=b=", ""}));
}

TEST(ModuleInfo, DescriptionIsCutAtSixtyThreeCharactersAndTheVersionIsNot) {
    kxsim::Host host;
    host.module(
        {.name = "zfab4", .version = std::string(100, 'v'), .description = std::string(100, 'd')});
    const auto attached = host.attach();
    EXPECT_EQ(info_of("zfab4"), (Info{0, std::string(100, 'v'), std::string(63, 'd')}));
}

TEST(ModuleInfo, TextsNeverPassTheirTwoHundredAndFiftyFiveBytes) {
    kxsim::Host host;
    host.module(
        {.name = "zfab4", .version = std::string(300, 'v'), .description = std::string(300, 'd')});
    const auto attached = host.attach();
    char name[] = "zfab4";
    char version[256];
    char description[256];
    std::memset(version, 'E', sizeof version);
    std::memset(description, 'E', sizeof description);
    ASSERT_EQ(getModinfo(name, version, description), 0U);
    EXPECT_EQ(std::string(version, 256), std::string(255, 'v') + 'E');
    EXPECT_EQ(description[63], '\0');
    EXPECT_EQ(description[255], 'E');
}

// --- The module's name as a path ---------------------------------------------------------------

class ModulePath : public testing::Test {
protected:
    test::ScratchDirectory scratch_;
    const std::filesystem::path directory_ = scratch_.path();
    test::WorkingDirectory working_directory_{directory_};
};

TEST_F(ModulePath, FileInTheWorkingDirectoryIsTheModule) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "of the tree"});
    const auto attached = host.attach();
    std::ofstream("zfab4") << "no module, but a file";
    EXPECT_EQ(info_of("zfab4"), (Info{0, kUntouched, kUntouched}));
}

TEST_F(ModulePath, PathOfAModuleFileIsRead) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "by path"});
    const auto attached = host.attach();
    EXPECT_EQ(info_of(tree() + "/updates/zfab4.ko").version, "by path");
}

TEST_F(ModulePath, AnythingButAMissingFileEndsTheSearch) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "of the tree"});
    host.module({.name = "zfab3", .version = "of the tree"});
    const auto attached = host.attach();
    std::filesystem::create_directory("zfab4");
    EXPECT_EQ(info_of("zfab4").status, 62U) << "a directory cannot be mapped";
    std::ofstream("zfab3").flush();
    EXPECT_EQ(info_of("zfab3").status, 62U) << "an empty file cannot be mapped";
}

// --- Mapping a file ----------------------------------------------------------------------------

// The library must not wait for the writer of a pipe. It runs in a child process, which is killed
// if it waits.
TEST_F(ModulePath, NamedPipeEndsTheSearchAtOnce) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "of the tree"});
    const auto attached = host.attach();
    ASSERT_EQ(mkfifo("zfab4", 0600), 0);
    const auto search = [] {
        alarm(120);
        std::exit(static_cast<int>(info_of("zfab4").status));
    };
    EXPECT_EXIT(search(), testing::ExitedWithCode(62), "");
}

TEST_F(ModulePath, OnlyARegularFileIsMapped) {
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::filesystem::create_directory("directory");
    for (const char* path : {"/dev/zero", "pipe", "directory"}) {
        const auto map = [path] {
            alarm(120);
            std::size_t length = 7;
            const bool refused = grab_file(path, &length) == nullptr && errno == ENODEV;
            std::exit(refused && length == 7 ? 0 : 1);
        };
        EXPECT_EXIT(map(), testing::ExitedWithCode(0), "") << path;
    }
}

TEST_F(ModulePath, MappingIsPrivateWritableAndAsLongAsTheFile) {
    std::ofstream("file") << "0123456789";
    size_t length = 0;
    auto* const bytes = static_cast<char*>(grab_file("file", &length));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::string(bytes, length), "0123456789");
    bytes[0] = 'X';
    std::string kept;
    std::ifstream("file") >> kept;
    EXPECT_EQ(kept, "0123456789");
    unsigned char resident = 0;
    EXPECT_EQ(mincore(bytes, length, &resident), 0) << "mapped";
    release_file(bytes, length);
    EXPECT_EQ(mincore(bytes, length, &resident), -1) << "mapped no more";
}

TEST_F(ModulePath, FailureToMapTellsWhyAndLeavesNoDescriptor) {
    size_t length = 7;
    errno = 0;
    EXPECT_EQ(grab_file("missing", &length), nullptr);
    EXPECT_EQ(errno, ENOENT);
    std::ofstream("empty").flush();
    EXPECT_EQ(grab_file("empty", &length), nullptr);
    EXPECT_EQ(errno, EINVAL);
    std::filesystem::create_directory("directory");
    EXPECT_EQ(grab_file("directory", &length), nullptr);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(length, 7U);

    // The kernel gives the lowest free descriptor, so a leaked one changes the next number.
    const int before = dup(0);
    close(before);
    EXPECT_EQ(grab_file("empty", &length), nullptr);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(before, after);
}

TEST(MappedFile, NullArgumentsAreRefused) {
    size_t length = 0;
    EXPECT_EQ(grab_file(nullptr, &length), nullptr);
    EXPECT_EQ(grab_file("/dev/null", nullptr), nullptr);
    release_file(nullptr, 5);
}

}  // namespace
