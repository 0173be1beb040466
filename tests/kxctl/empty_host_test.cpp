// Lists on hosts where there is little to list: without an adapter the list is empty, which is no
// failure; an adapter without a driver is one for the lists that need its driver.
#include <gmock/gmock.h>

#include <algorithm>
#include <kxsim/scenario.hpp>

#include "cli/command.hpp"
#include "kxctl/on_host.hpp"

namespace {

using testing::HasSubstr;

struct Row {
    std::vector<std::string> words;
    const char* key;  // of the list in the JSON answer; null: the list is about an object
    int without_driver;
};

const Row kLists[] = {
    {{"card", "list"}, "cards", 3},
    {{"adapter", "list"}, "adapters", 0},
    {{"module", "list"}, "modules", 0},
    {{"vm", "list"}, "vms", 0},
    {{"vf", "list"}, "vfs", 0},
    {{"port", "list", "03:00.4"}, nullptr, 3},
    {{"bridge", "list", "web1"}, nullptr, 3},
};

// One line of text, and an error or an empty list as JSON.
void expect_list(kxsim::Host& host, const Row& row, int exit) {
    const test::Result text = test::run_on(host, row.words);
    EXPECT_EQ(text.exit, exit) << row.words[0] << text.err;
    EXPECT_EQ(text.out, "") << row.words[0];
    EXPECT_EQ(std::ranges::count(text.err, '\n'), 1) << text.err;
    const auto answer = test::json_on(host, row.words, exit);
    if (exit == 0) {
        EXPECT_EQ(answer.at(row.key), nlohmann::json::array()) << row.words[0];
    } else {
        EXPECT_EQ(answer.at("error").at("code"), exit) << row.words[0];
    }
}

// A list of objects of the host is empty; the object of another one is missing.
int code_without_objects(const Row& row) { return row.key == nullptr ? 3 : 0; }

TEST(HostWithoutAdapter, HasEmptyLists) {
    kxsim::Host host;
    for (const Row& row : kLists) {
        expect_list(host, row, code_without_objects(row));
    }
    EXPECT_THAT(
        test::run_on(host, {"card", "list"}).err, HasSubstr("This host has no Kestrix adapter"));
}

TEST(HostWithADriverOnly, HasEmptyLists) {
    kxsim::Host host;
    host.module({.name = "zfab4", .version = "1", .loaded = true});
    for (const Row& row : kLists) {
        if (row.words[0] != "module") {
            expect_list(host, row, code_without_objects(row));
        }
    }
    EXPECT_EQ(test::json_on(host, {"module", "list"}).at("modules").size(), 1U);
}

TEST(GuestWithVirtualFunctions, HasNoAdapter) {
    kxsim::Host host;
    kxsim::load_scenario(host, kxsim::find_scenario("guest-vfs-only"));
    expect_list(host, {{"adapter", "list"}, "adapters", 0}, 0);
    host.fail({.call = "opendir", .times = 0, .error = EIO, .object = "/sys/bus/pci/devices"});
    EXPECT_EQ(test::run_on(host, {"adapter", "list"}).exit, 4) << "there may be one";
}

TEST(HostWithoutDriver, RefusesTheListsThatNeedIt) {
    kxsim::Host host;
    kxsim::load_scenario(host, kxsim::find_scenario("no-driver"));
    for (const Row& row : kLists) {
        const test::Result text = test::run_on(host, row.words);
        EXPECT_EQ(text.exit, row.without_driver) << row.words[0] << text.err;
    }
}

TEST(HostWithoutDriverOrModule, RefusesTheListOfModulesToo) {
    kxsim::Host host;
    host.adapter({.chip = "Q5", .location = "03:00.4"});
    for (const char* noun : {"card", "module"}) {
        EXPECT_EQ(test::run_on(host, {noun, "list"}).exit, 3) << noun;
    }
}

TEST(HostWhosePciBusCannotBeRead, IsNotSaidToBeEmpty) {
    for (const char* call : {"open", "readdir"}) {
        kxsim::Host host;
        host.fail({.call = call, .times = 0, .error = EIO, .object = "/sys/bus/pci/devices"});
        const test::Result result = test::run_on(host, {"card", "list"});
        EXPECT_EQ(result.exit, 1) << call << result.err;
    }
}

// Every command with the verb "list" has its row.
TEST(EmptyLists, AreTriedForEveryList) {
    for (const kx::ctl::Command& command : kx::ctl::commands()) {
        if (std::string_view(command.verb) == "list") {
            EXPECT_TRUE(std::ranges::any_of(kLists, [&](const Row& row) {
                return row.words[0] == command.noun;
            })) << command.name();
        }
    }
}

}  // namespace
