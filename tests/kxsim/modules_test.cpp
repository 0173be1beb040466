// Kernel modules of the simulated host, compared with the usual tools for real modules.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <sys/utsname.h>

#include <kxsim/host.hpp>
#include <string>

#include "support/shell.hpp"

namespace {

using test::shell;
using testing::HasSubstr;
using testing::StartsWith;

std::string tree() {
    utsname kernel{};
    uname(&kernel);
    return std::string("/lib/modules/") + kernel.release;
}

class Modules : public testing::Test {
protected:
    Modules() : attached_(host_.attach()) {}

    // The real modinfo, which a child process runs on the simulated host.
    static std::string modinfo(const std::string& field, const std::string& path) {
        return shell("modinfo -F " + field + " " + path + " 2>&1").output;
    }

    kxsim::Host host_;
    kxsim::Attached attached_;
};

kxsim::Module zfab4() {
    return {.name = "zfab4", .version = "3.19.0.1", .description = "Kestrix Q4/Q5 Ethernet driver"};
}

TEST_F(Modules, TheirFilesAreReadByTheRealModinfo) {
    host_.module(zfab4());
    const std::string path = tree() + "/updates/zfab4.ko";
    EXPECT_EQ(modinfo("version", path), "3.19.0.1\n");
    EXPECT_EQ(modinfo("description", path), "Kestrix Q4/Q5 Ethernet driver\n");
    EXPECT_EQ(modinfo("name", path), "zfab4\n");
}

TEST_F(Modules, TheirFilesAreSoundToReadelfInEveryClassAndByteOrder) {
    for (const unsigned elf_class : {32U, 64U}) {
        for (const bool big_endian : {false, true}) {
            kxsim::Module module = zfab4();
            module.elf_class = elf_class;
            module.big_endian = big_endian;
            host_.module(module);
            const std::string path = host_.root() + "/tree" + tree() + "/updates/zfab4.ko";
            const std::string output =
                shell("readelf --wide --file-header --string-dump=.modinfo " + path + " 2>&1")
                    .output;
            EXPECT_THAT(output, HasSubstr("ELF" + std::to_string(elf_class)));
            EXPECT_THAT(output, HasSubstr(big_endian ? "big endian" : "little endian"));
            EXPECT_THAT(output, HasSubstr("version=3.19.0.1\n"));
            EXPECT_THAT(output, HasSubstr("description=Kestrix Q4/Q5 Ethernet driver\n"));
            EXPECT_THAT(output, testing::Not(HasSubstr("readelf:")));
        }
    }
}

TEST_F(Modules, AFurtherStringOfAFileStandsBehindItsVersion) {
    kxsim::Module module = zfab4();
    module.info = {"srcversion=ABC", "depends=toecore"};
    host_.module(module);
    const std::string path = tree() + "/updates/zfab4.ko";
    EXPECT_EQ(modinfo("srcversion", path), "ABC\n");
    EXPECT_EQ(modinfo("depends", path), "toecore\n");
}

TEST_F(Modules, AFileMayHaveAnyNameAndDirectory) {
    kxsim::Module module = zfab4();
    module.where = "kernel/drivers/net/ethernet";
    module.file = "zfab-4.ko";
    host_.module(module);
    EXPECT_EQ(modinfo("version", tree() + "/kernel/drivers/net/ethernet/zfab-4.ko"), "3.19.0.1\n");
    EXPECT_FALSE(host_.exists(tree() + "/updates"));
}

TEST_F(Modules, ACompressedFileIsSoundToGzip) {
    kxsim::Module module = zfab4();
    module.file = "zfab4.ko.gz";
    module.description = std::string(200'000, 'x');  // more than one block
    host_.module(module);
    const std::string path = tree() + "/updates/zfab4.ko.gz";
    EXPECT_EQ(shell("gzip -t " + path + " 2>&1").status, 0);
    EXPECT_THAT(shell("gzip -dc < " + path).output, StartsWith(ELFMAG));
}

TEST_F(Modules, ALoadedModuleIsListedAsTheKernelListsIt) {
    kxsim::Module module = zfab4();
    module.loaded = true;
    module.used_by = "q4_tom,iw_zfab4,";
    host_.module(module);
    EXPECT_EQ(
        host_.read("/proc/modules"),
        "zfab4 163840 2 q4_tom,iw_zfab4, Live 0x0000000000000000 (O)\n");
    EXPECT_EQ(
        shell("lsmod 2>&1").output,
        "Module                  Size  Used by\n"
        "zfab4                 163840  2 q4_tom,iw_zfab4\n");
    EXPECT_EQ(lsmod("zfab4"), 1U);
}

TEST_F(Modules, AModuleMayBeLoadedWithoutAFileAndLieThereUnloaded) {
    host_.module({.name = "loaded", .loaded = true, .where = ""});
    host_.module({.name = "installed"});
    EXPECT_EQ(lsmod("loaded"), 1U);
    EXPECT_EQ(lsmod("installed"), 0U);
    EXPECT_TRUE(host_.exists(tree() + "/updates/installed.ko"));
    EXPECT_FALSE(host_.exists(tree() + "/updates/loaded.ko"));
}

TEST_F(Modules, ParametersAreFilesOfTheModule) {
    kxsim::Module module = zfab4();
    module.parameters = {{"tx_coal", "2"}};
    host_.module(module);
    EXPECT_EQ(
        shell("cat /sys/module/zfab4/parameters/tx_coal; "
              "echo 1 > /sys/module/zfab4/parameters/tx_coal")
            .output,
        "2\n");
    EXPECT_EQ(host_.read("/sys/module/zfab4/parameters/tx_coal"), "1\n");
}

TEST_F(Modules, ClassesThatNoMachineHasAreRefused) {
    EXPECT_THROW(host_.module({.name = "a", .elf_class = 16}), std::invalid_argument);
    EXPECT_THROW(host_.module({.name = ""}), std::invalid_argument);
}

}  // namespace
