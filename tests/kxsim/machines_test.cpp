// Virtual machines of a simulated host: one process's driver and virsh's see the same ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/vmutils.h>

#include <cstdlib>
#include <filesystem>
#include <kxsim/host.hpp>
#include <kxsim/scenario.hpp>

#include "support/shell.hpp"

#if defined(__SANITIZE_ADDRESS__)
// The class leaves handles and texts of libvirt allocated; other tests distinguish them from leaks.
extern "C" KX_EXPORT const char* __asan_default_options() { return "detect_leaks=0"; }
#endif

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kUuid[] = "11223344556647889900aabbccddeeff";

class Machines : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists("/usr/bin/virsh")) {
            GTEST_SKIP() << "virsh (libvirt-clients) is not installed";
        }
        // The library's listings leave a file in the working directory.
        std::filesystem::current_path(host_.root());
        host_.adapter({.chip = "Q4", .location = "04:00.4", .virtual_functions = 8});
        host_.interface({.name = "br0"});
        host_.machine(
            {.name = "one",
             .uuid = "11223344-5566-4788-9900-aabbccddeeff",
             .state = "running",
             .bridges = {"br0"}});
    }
    void TearDown() override { std::filesystem::current_path("/"); }
    static std::string virsh(const std::string& words) {
        return test::shell("virsh " + words + " 2>&1").output;
    }
    std::size_t interface_count() {
        _interfaceInfo* list = nullptr;
        int count = -1;
        EXPECT_EQ(vm().listInterfacesForVM(1, &list, &count), 0);
        std::free(list);
        return static_cast<std::size_t>(count);
    }
    // The connection stays with the process, from one test's host to the next.
    static VMUtils& vm() {
        static auto* const vm = new VMUtils;
        return *vm;
    }
    kxsim::Host host_;
};

TEST_F(Machines, WhatVirshChangesShowsInTheProcessThatRanIt) {
    const auto attached = host_.attach();
    EXPECT_EQ(interface_count(), 1U);
    std::string bridge = "br0";
    EXPECT_EQ(vm().attachBrdgToVM(1, bridge.data()), 0);
    EXPECT_EQ(interface_count(), 2U);
    EXPECT_THAT(virsh("shutdown one"), HasSubstr("is being shutdown"));
    _interfaceInfo* list = nullptr;
    int count = 0;
    EXPECT_EQ(vm().listInterfacesForVM(1, &list, &count), 1) << "it is off";
}

TEST_F(Machines, WhatTheProcessChangesShowsInVirsh) {
    const auto attached = host_.attach();
    std::string uuid = kUuid;
    EXPECT_EQ(vm().attachVFToVM(uuid.data(), {0, 4, 1, 3}), 0);
    EXPECT_THAT(virsh("dumpxml one"), HasSubstr("slot='0x01' function='0x3'"));
    EXPECT_THAT(virsh("dumpxml --inactive one"), HasSubstr("slot='0x01' function='0x3'"));
    EXPECT_EQ(vm().attachVFToVM(uuid.data(), {0, 4, 1, 3}), 1) << "it has it";
    EXPECT_EQ(vm().attachVFToVM(uuid.data(), {0, 4, 0x1F, 3}), 1) << "nobody has it";
    EXPECT_EQ(vm().dettachVFFromVM(uuid.data(), {0, 4, 1, 3}), 0);
    EXPECT_THAT(virsh("dumpxml one"), HasSubstr("function='0x3'"));
    EXPECT_THAT(virsh("dumpxml --inactive one"), Not(HasSubstr("function='0x3'")));
}

TEST_F(Machines, VirshPlugsAndUnplugsThemSilently) {
    const auto attached = host_.attach();
    EXPECT_EQ(
        virsh("attach-interface one bridge br0 --mac 52:54:00:00:00:01"),
        "Interface attached successfully\n\n");
    EXPECT_THAT(virsh("domiflist one"), HasSubstr("52:54:00:00:00:01"));
    EXPECT_THAT(virsh("dumpxml --inactive one"), Not(HasSubstr("52:54:00:00:00:01")));
    EXPECT_EQ(
        virsh("detach-interface one bridge --mac 52:54:00:00:00:01"),
        "Interface detached successfully\n\n");
    EXPECT_THAT(virsh("domiflist one"), Not(HasSubstr("52:54:00:00:00:01")));
    EXPECT_THAT(
        virsh("attach-interface one bridge br9"), HasSubstr("this host has no such bridge"));
}

TEST_F(Machines, AreTheHostsWhateverUriIsAskedFor) {
    const auto attached = host_.attach();
    EXPECT_THAT(virsh("-c qemu:///system list"), HasSubstr("one"));
    EXPECT_THAT(virsh("-c test:///default list"), Not(HasSubstr("one")));
}

TEST_F(Machines, OfAnotherHostAreOthers) {
    kxsim::Host other;
    other.machine({.name = "two", .state = "paused"});
    const auto attached = other.attach();
    _KVMInfo* records = nullptr;
    int count = 0;
    EXPECT_EQ(vm().listVMs(&records, &count), 0);
    ASSERT_EQ(count, 1);
    EXPECT_STREQ(records[0].name, "two");
    EXPECT_EQ(records[0].state, KX_VM_PAUSED);
    std::free(records);
}

TEST_F(Machines, ThatCannotBeAreRefused) {
    const std::vector<std::pair<kxsim::VirtualMachine, std::string>> mistakes = {
        {{.name = ""}, "name is"},
        {{.name = "a/b"}, "name is"},
        {{.name = "one"}, "is taken"},
        {{.name = "x", .uuid = "11223344-5566-4788-9900-aabbccddeeff"}, "is taken"},
        {{.name = "x", .uuid = "1"}, "uuid is"},
        {{.name = "x", .state = "blocked"}, "state is"},
        {{.name = "x", .vfs = {"09:01.0"}}, "no PCI function"},
        {{.name = "x", .bridges = {"br9"}}, "no interface"},
    };
    for (const auto& [machine, reason] : mistakes) {
        try {
            host_.machine(machine);
            ADD_FAILURE() << reason;
        } catch (const std::invalid_argument& mistake) {
            EXPECT_THAT(mistake.what(), HasSubstr(reason));
        }
    }
    host_.machine({.name = "holder", .state = "running", .vfs = {"04:01.0"}});
    EXPECT_THROW(
        host_.machine({.name = "x", .state = "paused", .vfs = {"04:01.0"}}), std::invalid_argument);
    host_.machine({.name = "x", .vfs = {"04:01.0"}});
}

TEST_F(Machines, MistakesOfScenariosAreToldAtTheirPlace) {
    try {
        kxsim::load_scenario_text(host_, "\n[[vm]]\nname = \"x\"\nstate = \"off\"\n", "s.toml");
        FAIL();
    } catch (const kxsim::ScenarioError& error) {
        EXPECT_THAT(error.what(), HasSubstr("s.toml:4:1: state is \"off\", expected \"running\""));
    }
}

TEST_F(Machines, MistakesInAnArrayAreToldAtTheElement) {
    try {
        kxsim::load_scenario_text(
            host_, "[[vm]]\nname = \"x\"\nvfs = [\n  \"04:01.0\",\n  \"09:01.0\",\n]\n", "s.toml");
        FAIL();
    } catch (const kxsim::ScenarioError& error) {
        EXPECT_THAT(error.what(), HasSubstr("s.toml:5:3: the host has no PCI function at"));
    }
}

}  // namespace
