// kxctl vf: virtual functions of the host and of machines.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "kxctl/machines_on_host.hpp"

namespace {

using testing::HasSubstr;
using testing::Not;

using Vf = test::MachinesOnHost;

nlohmann::json functions(std::initializer_list<int> numbers) {
    nlohmann::json list = nlohmann::json::array();
    for (const int number : numbers) {
        list.push_back("0000:04:01." + std::to_string(number));
    }
    return list;
}

TEST_F(Vf, OfTheHostAreThoseOnItsBus) {
    EXPECT_EQ(json({"vf", "list"})["vfs"], functions({0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_TRUE(json({"vf", "list"})["vm"].is_null());
}

TEST_F(Vf, OfAMachineAreThoseInItsDescription) {
    EXPECT_EQ(json({"vf", "list", "web"})["vfs"], functions({0, 1}));
    EXPECT_EQ(json({"vf", "list", "7"})["vfs"], functions({}));
    EXPECT_EQ(json({"vf", "list", "off one"})["vfs"], functions({0}));
    EXPECT_EQ(on({"vf", "list", "7"}).out, "");
}

TEST_F(Vf, IsAttachedNowAndForLaterStarts) {
    EXPECT_EQ(json({"vf", "attach", "web", "04:01.5"})["vfs"], functions({0, 1, 5}));
    EXPECT_EQ(json({"vf", "attach", "2", "0000:04:01.6"})["vfs"], functions({6}));
    EXPECT_EQ(json({"vf", "list", "web"})["vfs"], functions({0, 1, 5}));
    json({"vm", "shutdown", "web"});
    EXPECT_EQ(json({"vf", "list", "web"})["vfs"], functions({0, 1, 5}));
    EXPECT_THAT(virsh("dumpxml web"), HasSubstr("slot='0x01' function='0x5'"));
}

TEST_F(Vf, ThatCannotBeGivenIsRefused) {
    const std::string before = virsh("dumpxml web") + virsh("dumpxml --inactive web");
    const auto refused = [&](const std::string& machine, const std::string& vf) {
        expect_failure(
            {"vf", "attach", machine, vf}, 1,
            "Cannot attach 0000:" + vf + " to " + machine +
                (machine == "web" ? " (running)"
                 : machine == "7" ? " (paused)"
                                  : " (shut off)") +
                ": Attaching device to VM failed");
    };
    refused("web", "04:01.1");      // it has it
    refused("7", "04:01.1");        // another machine has it
    refused("web", "04:1f.7");      // nobody has it
    refused("off one", "04:01.5");  // only running machines can get devices
    EXPECT_EQ(virsh("dumpxml web") + virsh("dumpxml --inactive web"), before);
}

TEST_F(Vf, IsDetachedFromTheDefinitionAlone) {
    const auto detached = json({"vf", "detach", "web", "04:01.1"});
    EXPECT_EQ(detached["vf"], "0000:04:01.1");
    EXPECT_EQ(detached["kept_until_next_start"], true);
    EXPECT_EQ(detached["changed"], true);
    EXPECT_EQ(json({"vf", "list", "web"})["vfs"], functions({0, 1})) << "it runs with both";
    json({"vm", "shutdown", "web"});
    EXPECT_EQ(json({"vf", "list", "web"})["vfs"], functions({0}));
    EXPECT_EQ(json({"vf", "detach", "off one", "04:01.0"})["kept_until_next_start"], false);
    EXPECT_EQ(json({"vf", "list", "off one"})["vfs"], functions({}));
}

TEST_F(Vf, ThatAMachineLacksIsNotFound) {
    expect_failure(
        {"vf", "detach", "web", "04:01.7"}, 3,
        "Cannot detach 0000:04:01.7 from web (running): VF not attached");
    expect_failure({"vf", "list", "nobody"}, 3, "There is no virtual machine nobody");
}

TEST_F(Vf, LocationsAreCheckedBeforeAnythingElse) {
    for (const char* word :
         {"", "4", "04:01", "04:01.", "04:01.8", "04:20.0", "04:01.0x", "x4:01.0", " 4:01.0",
          "0000:04:01", "00000:04:01.0", "+4:01.0", "04:01.00", "0:04:01.0.0"}) {
        expect_failure(
            {"vf", "attach", "nobody", word}, 2,
            std::string("VF is ") + word + ", expected a location such as 04:01.2");
    }
}

TEST_F(Vf, ListsLeaveNoFileBehind) {
    const std::string here = std::filesystem::current_path();
    std::filesystem::remove("domain.xml");
    json({"vf", "list", "web"});
    json({"bridge", "list", "web"});
    EXPECT_FALSE(std::filesystem::exists(here + "/domain.xml"));
}

// The library reads definitions without the passwords of consoles.
class Passwords : public test::MachinesOnHost {
protected:
    void SetUp() override {
        MachinesOnHost::SetUp();
        if (IsSkipped()) {
            return;
        }
        std::string definition = virsh("dumpxml --inactive 'off one'");
        definition.insert(
            definition.find("</devices>"),
            "<graphics type='vnc' port='-1' autoport='yes' passwd='first'/>"
            "<graphics type='spice' autoport='yes' passwd='second'/>"
            "<interface type='bridge'><source bridge='br0'/><target dev='tap7'/></interface>");
        char path[] = "/tmp/kxctl-machine-XXXXXX";
        close(mkstemp(path));
        std::ofstream(path) << definition;
        virsh(std::string("define ") + path);
        unlink(path);
        virsh("start 'off one'");
        ASSERT_TRUE(kept()) << definition;
    }

    bool kept() {
        const std::string definition = virsh("dumpxml --inactive --security-info 'off one'");
        return definition.find("passwd='first'") != definition.npos &&
               definition.find("passwd='second'") != definition.npos;
    }
};

TEST_F(Passwords, OfConsolesStayInTheDefinition) {
    EXPECT_EQ(on({"vf", "detach", "off one", "04:01.0"}).exit, 0);
    EXPECT_TRUE(kept()) << "vf detach";
    EXPECT_EQ(on({"vf", "attach", "off one", "04:01.2"}).exit, 0);
    EXPECT_TRUE(kept()) << "vf attach";
    EXPECT_EQ(on({"bridge", "detach", "off one", "tap7"}).exit, 0);
    EXPECT_TRUE(kept()) << "bridge detach";
    EXPECT_EQ(virsh("dumpxml --inactive 'off one'").find("tap7"), std::string::npos);
}

}  // namespace
