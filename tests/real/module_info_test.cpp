// Module files made by the compiler and by objcopy, read by getModinfo and by modinfo.
#include <gtest/gtest.h>
#include <kxlinhw/modules.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/scratch_directory.hpp"
#include "support/shell.hpp"

namespace {

namespace fs = std::filesystem;

struct ModuleTexts {
    uint32_t status;
    std::string version;
    std::string description;
};

ModuleTexts read_module(std::string name) {
    std::array<char, 256> version{};
    std::array<char, 256> description{};
    const uint32_t status = getModinfo(name.data(), version.data(), description.data());
    return {status, version.data(), description.data()};
}

struct Recipe {
    const char* name;
    const char* flags;  // of the compiler
};

// Compile an object and put a .modinfo section into it, as the kernel's build does for a module.
void make_module(const fs::path& file, const char* flags, const std::string& strings) {
    const fs::path source = file.string() + ".c";
    const fs::path section = file.string() + ".modinfo";
    std::ofstream(source) << "int filler = 1; int more(void) { return filler; }\n";
    std::ofstream(section, std::ios::binary).write(strings.data(), std::ssize(strings));
    const std::string command =
        "gcc " + std::string(flags) + " -c -o " + file.string() + " " + source.string() +
        " && objcopy --add-section .modinfo=" + section.string() + " " + file.string();
    ASSERT_EQ(test::shell(command + " 2>&1").status, 0) << command;
    fs::remove(source);
    fs::remove(section);
}

std::string strings_of(const std::vector<std::string>& texts) {
    std::string section;
    for (const std::string& text : texts) {
        section += text + '\0';
    }
    return section;
}

std::string modinfo(const fs::path& file, const std::string& field) {
    std::string output =
        test::shell("modinfo -F " + field + " " + file.string() + " 2>/dev/null").output;
    return output.substr(0, output.find('\n'));
}

class ModuleFile : public testing::TestWithParam<Recipe> {};

TEST_P(ModuleFile, GivesTheTextsThatModinfoPrints) {
    const test::ScratchDirectory directory;
    const fs::path file = directory.path() / "zfab4.ko";
    make_module(
        file, GetParam().flags,
        strings_of(
            {"license=GPL", "description=Kestrix Q4/Q5 network driver", "author=someone",
             "version=3.19.0.1", "vermagic=6.1.0 SMP", "parm=tx_coal:use coalescing (int)"}));
    const ModuleTexts texts = read_module(file);
    EXPECT_EQ(texts.status, 0U);
    EXPECT_EQ(texts.version, modinfo(file, "version"));
    EXPECT_EQ(texts.version, "3.19.0.1");
    EXPECT_EQ(texts.description, modinfo(file, "description"));
    EXPECT_EQ(texts.description, "Kestrix Q4/Q5 network driver");
}

INSTANTIATE_TEST_SUITE_P(
    Classes, ModuleFile, testing::Values(Recipe{"elf64", "-m64"}, Recipe{"elf32", "-m32"}),
    [](const auto& recipe) { return recipe.param.name; });

// A private /lib/modules: a mount that only this process sees.
class ModuleTree : public testing::Test {
protected:
    void SetUp() override {
        std::error_code refused;
        created_ = fs::create_directory("/lib/modules", refused);
        if (refused) {
            GTEST_SKIP() << "cannot make /lib/modules here: " << refused.message();
        }
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "/lib/modules", "tmpfs", 0, nullptr) != 0) {
            GTEST_SKIP() << "no private mounts here: " << std::strerror(errno);
        }
        utsname kernel{};
        ASSERT_EQ(uname(&kernel), 0);
        tree_ = fs::path("/lib/modules") / kernel.release;
        fs::create_directories(tree_ / "updates/dkms");
        fs::create_directories(tree_ / "kernel/drivers/net");
    }
    void TearDown() override {
        if (!tree_.empty()) {
            umount("/lib/modules");
        }
        if (created_) {
            rmdir("/lib/modules");
        }
    }

    bool created_ = false;  // some machines have no modules at all
    fs::path tree_;
};

TEST_F(ModuleTree, UpdatesComeBeforeTheKernelsOwnModulesAsForModinfo) {
    make_module(
        tree_ / "kernel/drivers/net/kx-stor.ko", "-m64",
        strings_of({"version=old", "description=of the kernel"}));
    make_module(
        tree_ / "updates/dkms/kx-stor.ko", "-m64",
        strings_of({"version=new", "description=of the update"}));
    ASSERT_EQ(test::shell("depmod 2>/dev/null").status, 0);
    const ModuleTexts texts = read_module("kx_stor");
    EXPECT_EQ(texts.version, "new");
    EXPECT_EQ(texts.version, modinfo("kx_stor", "version"));
    EXPECT_EQ(texts.description, modinfo("kx_stor", "description"));
}

TEST_F(ModuleTree, KernelsOwnModulesAreFoundWhenThereIsNoUpdate) {
    make_module(
        tree_ / "kernel/drivers/net/kxstor.ko", "-m64",
        strings_of({"version=1.2", "description=storage"}));
    ASSERT_EQ(test::shell("depmod 2>/dev/null").status, 0);
    EXPECT_EQ(read_module("kxstor").version, modinfo("kxstor", "version"));
    EXPECT_EQ(read_module("kxstor").version, "1.2");
    EXPECT_EQ(read_module("zfab4").status, 62U);
}

}  // namespace
