// The inventory of the maker's driver modules.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <sys/utsname.h>

#include <cstring>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/output.hpp"
#include "support/records.hpp"

namespace {

using test::text;
using testing::ElementsAre;

const std::vector<std::string> kKnownModules{
    "zfab3",        "zfab4",      "zfab3m",     "toecore",  "q3_tom",   "q4_tom", "bonding",
    "kxiscsi_base", "kxiscsi_q4", "kxiscsi_q3", "iw_zfab3", "iw_zfab4", "kxstor"};

std::string kernel_release() {
    utsname kernel{};
    uname(&kernel);
    return kernel.release;
}

std::vector<std::string> module_names(const std::vector<DriverEntry>& drivers) {
    return test::each(drivers, [](const DriverEntry& driver) { return text(driver.module); });
}

TEST(DriverInventory, ListsTheKnownModulesInTheirOrder) {
    kxsim::Host host;
    for (auto module = kKnownModules.rbegin(); module != kKnownModules.rend(); ++module) {
        host.module({.name = *module, .version = "1.0 of " + *module});
    }
    host.module({.name = "e1000e", .version = "3"});
    const auto attached = host.attach();
    const auto answer = test::driver_details();
    EXPECT_EQ(answer.status, 0U);
    EXPECT_EQ(answer.length, 13U * 257U);
    EXPECT_EQ(module_names(answer.records), kKnownModules);
    for (const DriverEntry& driver : answer.records) {
        EXPECT_EQ(text(driver.version), "1.0 of " + text(driver.module));
        EXPECT_EQ(text(driver.unused), "N/A");
    }
}

TEST(DriverInventory, LeavesOutModulesWithoutAFile) {
    kxsim::Host host;
    host.module({.name = "zfab4", .loaded = true, .where = ""});
    host.module({.name = "q4_tom", .version = "2"});
    host.module({.name = "kxstor", .version = "3"});
    const auto attached = host.attach();
    EXPECT_THAT(module_names(test::driver_details().records), ElementsAre("q4_tom", "kxstor"));
}

TEST(DriverInventory, WithoutAnyModuleFileIsAFailure) {
    kxsim::Host host;
    host.module({.name = "zfab4", .loaded = true, .where = ""});
    const auto attached = host.attach();
    const auto answer = test::driver_details();
    EXPECT_EQ(answer.status, 62U);
    EXPECT_EQ(answer.length, 0U);
}

TEST(DriverInventory, NeedsNoCardAndNoLoadedDriver) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1"});
    const auto attached = host.attach();
    EXPECT_EQ(test::printed([] { EXPECT_EQ(test::driver_details().status, 0U); }), "");
}

TEST(DriverInventory, LoadedStateIsTheModulesOwnCheck) {
    for (const std::string& loaded : kKnownModules) {
        kxsim::Host host;
        for (const std::string& module : kKnownModules) {
            host.module({.name = module, .version = "1", .loaded = module == loaded});
        }
        const auto attached = host.attach();
        for (const DriverEntry& driver : test::driver_details().records) {
            const std::string module = text(driver.module);
            // zfab3m and zfab3 are one driver; a listed zfab3m begins with zfab3.
            const bool expected =
                module == loaded || (module.starts_with("zfab3") && loaded.starts_with("zfab3"));
            EXPECT_EQ(driver.loaded, expected ? 1 : 0) << module << " with " << loaded;
        }
    }
}

TEST(DriverInventory, UnreadableModuleListGivesSixtyThreeAsLoadedState) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1"});
    host.remove("/proc/modules");
    const auto attached = host.attach();
    EXPECT_EQ(test::driver_details().records.at(0).loaded, 63);
}

TEST(DriverInventory, TextsAreCutToTheirFieldsWithANul) {
    kxsim::Host host;
    host.module(
        {.name = "zfab4", .version = std::string(100, 'v'), .description = std::string(200, 'd')});
    const auto attached = host.attach();
    const DriverEntry driver = test::driver_details().records.at(0);
    EXPECT_EQ(text(driver.version), std::string(63, 'v'));
    EXPECT_EQ(text(driver.description), std::string(63, 'd'));
    EXPECT_EQ(driver.version[63], '\0');
    EXPECT_EQ(driver.description[127], '\0');
}

TEST(DriverInventory, VersionThatFillsItsBufferIsReadNoFurther) {
    for (const std::size_t size : {254U, 255U, 256U, 5000U}) {
        kxsim::Host host;
        host.module({.name = "zfab4", .version = std::string(size, 'v')});
        const auto attached = host.attach();
        EXPECT_EQ(text(test::driver_details().records.at(0).version), std::string(63, 'v'));
    }
}

TEST(DriverInventory, TextsOfOneModuleDoNotShowInTheNext) {
    kxsim::Host host;
    host.module({.name = "zfab3", .version = "1", .description = "first"});
    host.module({.name = "zfab4"});
    const auto attached = host.attach();
    const auto drivers = test::driver_details().records;
    ASSERT_EQ(drivers.size(), 2U);
    EXPECT_EQ(text(drivers[1].version), "");
    EXPECT_EQ(text(drivers[1].description), "");
}

TEST(DriverInventory, TakesTheFileOfTheUpdatesFirst) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "kernel", .where = "kernel/drivers/net"});
    host.module({.name = "zfab4", .version = "update", .where = "updates/kestrix"});
    const auto attached = host.attach();
    EXPECT_EQ(text(test::driver_details().records.at(0).version), "update");
}

TEST(DriverInventory, OfAListIsBuiltIntoItsUnalignedHead) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1", .loaded = true});
    const auto attached = host.attach();
    CardList header{};
    EXPECT_EQ(getDriverInfo(&header.drivers), 0U);
    ASSERT_TRUE(header.drivers != nullptr);
    EXPECT_EQ(text(header.drivers->module), "zfab4");
    EXPECT_TRUE(header.drivers->next == nullptr);
    EXPECT_EQ(getDriverInfo(&header.drivers), 0U) << "the first list is freed";
    freelist(header.drivers);
}

TEST(DriverInventory, FailureNullsTheHead) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1"});
    const auto attached = host.attach();
    CardList header{};
    ASSERT_EQ(getDriverInfo(&header.drivers), 0U);
    host.remove("/lib/modules");
    EXPECT_EQ(getDriverInfo(&header.drivers), 62U);
    EXPECT_TRUE(header.drivers == nullptr);
}

TEST(DriverInventory, EntryWithoutMemoryIsLeftOut) {
    kxsim::Host host;
    host.module({.name = "zfab3", .version = "1"});
    host.module({.name = "zfab4", .version = "2"});
    const auto attached = host.attach();
    const auto rule = host.fail({.call = "calloc", .error = ENOMEM, .from = "libkxlinhw"});
    CardList header{};
    uint32_t status = 1;
    host.count([&] { status = getDriverInfo(&header.drivers); });
    EXPECT_EQ(rule.fired(), 1U);
    EXPECT_EQ(status, 0U);
    ASSERT_TRUE(header.drivers != nullptr);
    EXPECT_EQ(text(header.drivers->module), "zfab4");
    freelist(header.drivers);
}

TEST(DriverInventory, IsPartOfAFillThatAsksForIt) {
    kxsim::Host host;
    host.adapter({.chip = "Q5", .location = "03:00.4"});
    host.module({.name = "zfab4", .version = "1", .loaded = true});
    const auto attached = host.attach();
    CardList* list = nullptr;
    ASSERT_EQ(InitAndFillInfo_Kxcard(&list, KX_FILL_DRIVERS), 0U);
    ASSERT_TRUE(list->drivers != nullptr);
    EXPECT_EQ(text(list->drivers->module), "zfab4");
    Close_Kxcard(list);
    ASSERT_EQ(InitAndFillInfo_Kxcard(&list, 0), 0U);
    EXPECT_TRUE(list->drivers == nullptr);
    Close_Kxcard(list);
}

TEST(DriverInventory, EmptyInventoryEndsAFillThatAsksForIt) {
    kxsim::Host host;
    host.adapter({.chip = "Q5", .location = "03:00.4"});
    host.module({.name = "zfab4", .loaded = true, .where = ""});
    const auto attached = host.attach();
    CardList* list = reinterpret_cast<CardList*>(1);
    EXPECT_EQ(InitAndFillInfo_Kxcard(&list, KX_FILL_DRIVERS), 62U);
    EXPECT_EQ(list, nullptr);
}

TEST(DriverInventory, ReadsTheModuleListOnce) {
    kxsim::Host host;
    for (const std::string& module : kKnownModules) {
        host.module({.name = module, .version = "1"});
    }
    const auto attached = host.attach();
    const auto calls = host.count([] { test::driver_details(); });
    EXPECT_EQ(calls.on("open", "/proc/modules"), 1U);
    EXPECT_EQ(calls["mmap"], 13U) << "only the files that matched";
}

// One walk finds all modules; the result of each is the same as of a search for it alone.
void expect_searches_agree(const kxsim::Host& host) {
    const auto answer = test::driver_details();
    std::size_t next = 0;
    for (const std::string& module : kKnownModules) {
        std::string name = module;
        char version[256] = "";
        char description[256] = "";
        const bool found = getModinfo(name.data(), version, description) == 0;
        const bool listed =
            next < answer.records.size() && text(answer.records[next].module) == module;
        ASSERT_EQ(listed, found) << module << " on " << host.root();
        if (found) {
            EXPECT_EQ(text(answer.records[next].version), version) << module;
            ++next;
        }
    }
    EXPECT_EQ(next, answer.records.size());
}

TEST(DriverInventory, EachModuleEndsTheSearchOfItsOwnDirectoriesOnly) {
    kxsim::Host host;
    const std::string tree = "/lib/modules/" + kernel_release();
    // A match that cannot be mapped ends the search for zfab4 in this directory. The searches for
    // other modules continue, also in the directory of that name.
    host.directory(tree + "/kernel/a/zfab4.ko");
    host.module({.name = "q4_tom", .version = "in a match", .where = "kernel/a/zfab4.ko"});
    host.module({.name = "zfab4", .version = "behind it", .where = "kernel/a/later"});
    host.module({.name = "zfab3", .version = "behind it", .where = "kernel/a/later"});
    host.module({.name = "zfab4", .version = "of the parent", .where = "kernel/b"});
    host.module({.name = "bonding", .version = "first", .where = "kernel/a/x"});
    host.module({.name = "bonding", .version = "second", .where = "kernel/b"});
    host.module({.name = "bonding", .version = "third", .where = "updates"});
    host.module({.name = "q3_tom", .version = "dashed", .where = "kernel/b", .file = "q3-tom.ko"});
    host.file(tree + "/updates/kxstor.ko.gz", "compressed");
    host.module({.name = "kxstor", .version = "plain", .where = "kernel/b"});
    const auto attached = host.attach();
    expect_searches_agree(host);
    for (const bool hidden : {true, false}) {
        host.hide_entry_types(hidden);
        host.order(tree + "/kernel", {"b", "a"});
        host.order(tree + "/kernel/a", {"x", "later", "zfab4.ko"});
        expect_searches_agree(host);
        host.order(tree + "/kernel", {"a", "b"});
        host.order(tree + "/kernel/a", {"zfab4.ko", "later", "x"});
        expect_searches_agree(host);
    }
    EXPECT_EQ(
        test::each(
            test::driver_details().records,
            [](const DriverEntry& driver) { return text(driver.version); }),
        (std::vector<std::string>{
            "behind it", "of the parent", "dashed", "in a match", "third", ""}))
        << "zfab3, zfab4, q3_tom, q4_tom, bonding, kxstor";
}

TEST(DriverInventory, FileThatCannotBeOpenedIsNoMatchForTheParent) {
    kxsim::Host host;
    const std::string tree = "/lib/modules/" + kernel_release();
    host.file(tree + "/updates/a/zfab4.ko", "", 0644);  // an empty file cannot be mapped
    host.module({.name = "zfab4", .version = "good", .where = "updates/b"});
    host.module({.name = "zfab3", .version = "beside", .where = "updates/a"});
    const auto attached = host.attach();
    expect_searches_agree(host);
}

TEST(DriverInventory, NullSlotIsRefused) {
    EXPECT_EQ(getDriverInfo(nullptr), 317U);
    freelist(nullptr);
}

}  // namespace
