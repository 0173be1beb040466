// Which modules are loaded, according to /proc/modules of the simulated host.
#include <gtest/gtest.h>
#include <kxlinhw/modules.h>

#include <kxsim/host.hpp>
#include <string>

namespace {

struct Check {
    const char* name;
    uint32_t (*is_loaded)();
    const char* module;
};

constexpr Check kChecks[] = {
    {"isFCOELoaded", isFCOELoaded, "kxstor"},
    {"isOffedLoaded", isOffedLoaded, "iw_zfab3"},
    {"isq4OffedLoaded", isq4OffedLoaded, "iw_zfab4"},
    {"isIscsiQ3Loaded", isIscsiQ3Loaded, "kxiscsi_q3"},
    {"isIscsiQ4Loaded", isIscsiQ4Loaded, "kxiscsi_q4"},
    {"isIscsiLoaded", isIscsiLoaded, "kxiscsi_base"},
    {"isTOELoaded", isTOELoaded, "toecore"},
    {"isq4TOELoaded", isq4TOELoaded, "q4_tom"},
    {"isq3TOELoaded", isq3TOELoaded, "q3_tom"},
    {"isZfab4Loaded", isZfab4Loaded, "zfab4"},
    {"isBondingLoaded", isBondingLoaded, "bonding"},
    {"isZfab3Loaded", isZfab3Loaded, "zfab3"},
};

std::string module_line(const std::string& module) {
    return module + " 16384 0 - Live 0x0000000000000000\n";
}

// The answer of lsmod(name) when /proc/modules has this content.
uint32_t lsmod_over(const std::string& text, const char* name) {
    kxsim::Host host;
    host.file("/proc/modules", text);
    const auto attached = host.attach();
    return lsmod(name);
}

TEST(LoadedModules, EachCheckFindsItsOwnModuleOnly) {
    for (const Check& listed : kChecks) {
        kxsim::Host host;
        host.file("/proc/modules", module_line(listed.module));
        const auto attached = host.attach();
        for (const Check& check : kChecks) {
            EXPECT_EQ(check.is_loaded(), check.module == listed.module ? 1U : 0U)
                << check.name << " with " << listed.module;
        }
    }
}

TEST(LoadedModules, EveryCheckTellsOfAnUnreadableList) {
    kxsim::Host host;
    host.remove("/proc/modules");
    const auto attached = host.attach();
    EXPECT_EQ(lsmod("zfab4"), 63U);
    for (const Check& check : kChecks) {
        EXPECT_EQ(check.is_loaded(), 63U) << check.name;
    }
}

TEST(LoadedModules, DirectoriesOfTheDriversCountBeforeTheList) {
    kxsim::Host host;
    host.remove("/proc/modules");
    host.directory("/proc/net/zfab3");
    const auto attached = host.attach();
    EXPECT_EQ(isZfab3Loaded(), 1U);
    EXPECT_EQ(isZfab4Loaded(), 63U);
    EXPECT_EQ(isBondingLoaded(), 63U);
}

TEST(LoadedModules, BondingDirectoryCountsBeforeTheList) {
    kxsim::Host host;
    host.file("/proc/modules", "");
    host.directory("/proc/net/bonding");
    const auto attached = host.attach();
    EXPECT_EQ(isBondingLoaded(), 1U);
    EXPECT_EQ(isZfab3Loaded(), 0U);
}

TEST(LoadedModules, PrefixOfAListedNameMatches) {
    EXPECT_EQ(lsmod_over(module_line("zfab4vf"), "zfab4"), 1U);
    EXPECT_EQ(lsmod_over(module_line("zfab"), "zfab4"), 0U);
    EXPECT_EQ(lsmod_over(module_line("my_zfab4"), "zfab4"), 0U);
}

TEST(LoadedModules, LaterLinesAreLookedAt) {
    EXPECT_EQ(lsmod_over(module_line("ext4") + module_line("zfab4"), "zfab4"), 1U);
}

TEST(LoadedModules, LongLinesAreReadInPiecesOfSixtyThreeCharacters) {
    EXPECT_EQ(lsmod_over(std::string(63, 'x') + "zfab4 1 0\n", "zfab4"), 1U);
    EXPECT_EQ(lsmod_over(std::string(62, 'x') + "zfab4 1 0\n", "zfab4"), 0U);
    EXPECT_EQ(lsmod_over(std::string(64, 'x') + "zfab4 1 0\n", "zfab4"), 0U);
    EXPECT_EQ(lsmod_over(std::string(126, 'x') + "zfab4 1 0\n", "zfab4"), 1U);
    EXPECT_EQ(lsmod_over(std::string(62, 'x') + "\nzfab4 1 0\n", "zfab4"), 1U);
}

TEST(LoadedModules, NameSplitOverTwoPiecesIsNotFound) {
    EXPECT_EQ(lsmod_over(std::string(60, 'x') + "zfab4 1 0\n", "zfab4"), 0U);
    EXPECT_EQ(lsmod_over(std::string(60, 'x') + "zfab4 1 0\n", "b4"), 1U);
}

TEST(LoadedModules, LastLineNeedsNoNewline) { EXPECT_EQ(lsmod_over("zfab4", "zfab4"), 1U); }

TEST(LoadedModules, ComparisonEndsAtANulByte) {
    using namespace std::string_literals;
    EXPECT_EQ(lsmod_over("zf\0ab4 1\n"s, "zfab4"), 0U);
    EXPECT_EQ(lsmod_over("\0zfab4\n"s, "zfab4"), 0U);
    EXPECT_EQ(lsmod_over("\0\n"s + module_line("zfab4"), "zfab4"), 1U);
}

TEST(LoadedModules, EmptyNameMatchesAnyLine) {
    EXPECT_EQ(lsmod_over(module_line("ext4"), ""), 1U);
    EXPECT_EQ(lsmod_over("", ""), 0U);
}

TEST(LoadedModules, NullNameIsRefused) { EXPECT_EQ(lsmod(nullptr), 317U); }

TEST(LoadedModules, ListIsReadAfreshByEveryCall) {
    kxsim::Host host;
    host.file("/proc/modules", "");
    const auto attached = host.attach();
    EXPECT_EQ(isZfab4Loaded(), 0U);
    host.file("/proc/modules", module_line("zfab4"));
    EXPECT_EQ(isZfab4Loaded(), 1U);
}

}  // namespace
