// kxctl bridge: interfaces of machines on the host's bridges, as virsh lists them.
#include <gmock/gmock.h>

#include <sstream>

#include "kxctl/machines_on_host.hpp"

namespace {

class Bridge : public test::MachinesOnHost {
protected:
    std::vector<std::string> targets(const std::string& machine) {
        std::vector<std::string> names;
        const auto interfaces = json({"bridge", "list", machine})["interfaces"];
        for (const auto& interface : interfaces) {
            names.push_back(interface["target"].get<std::string>());
        }
        return names;
    }
    // "TARGET TYPE BRIDGE MODEL MAC", a line for each, as virsh has them.
    std::string virsh_lines() {
        return virsh("domiflist web | tail -n +3 | tr -s ' ' | sed 's/^ //;s/ $//;/^$/d'");
    }
    std::string own_lines() {
        std::string lines;
        const auto interfaces = json({"bridge", "list", "web"})["interfaces"];
        for (const auto& interface : interfaces) {
            for (const char* key : {"target", "type", "bridge", "model"}) {
                lines += (interface[key].is_null() ? "-" : interface[key].get<std::string>()) + " ";
            }
            lines += interface["mac"].get<std::string>() + "\n";
        }
        return lines;
    }
};

TEST_F(Bridge, ListsWhatVirshLists) {
    EXPECT_EQ(targets("web"), (std::vector<std::string>{"testnet0", "testnet1"}));
    EXPECT_EQ(own_lines(), virsh_lines());
    EXPECT_EQ(targets("7"), std::vector<std::string>());
}

TEST_F(Bridge, IsGivenToARunningMachine) {
    const auto interfaces = json({"bridge", "attach", "1", "br1"})["interfaces"];
    ASSERT_EQ(interfaces.size(), 3U);
    EXPECT_EQ(interfaces[2]["bridge"], "br1");
    EXPECT_TRUE(interfaces[2]["model"].is_null());
    EXPECT_EQ(own_lines(), virsh_lines()) << "the next processes see it under the same MAC";
    json({"vm", "shutdown", "web"});
    json({"vm", "start", "web"});
    EXPECT_EQ(targets("web").size(), 2U) << "only until it stops";
}

TEST_F(Bridge, ThatTheHostLacksIsRefused) {
    expect_failure(
        {"bridge", "attach", "web", "br9"}, 1,
        "Cannot attach web (running) to bridge br9: Failed to attach interface");
    expect_failure(
        {"bridge", "attach", "web", "br0; reboot"}, 1,
        "Cannot attach web (running) to bridge br0; reboot: Failed to attach interface");
    EXPECT_EQ(targets("web").size(), 2U);
}

TEST_F(Bridge, LeavesTheDefinitionAndThenTheMachine) {
    const auto detached = json({"bridge", "detach", "web", "testnet0"});
    EXPECT_EQ(detached["target"], "testnet0");
    EXPECT_EQ(detached["kept_until_next_start"], true);
    EXPECT_EQ(targets("web").size(), 2U);
    json({"vm", "shutdown", "web"});
    json({"vm", "start", "web"});
    EXPECT_EQ(targets("web"), std::vector<std::string>{"testnet1"});
}

TEST_F(Bridge, WhoseTargetIsUnknownIsNotFound) {
    expect_failure(
        {"bridge", "detach", "web", "testnet"}, 3, "web (running) has no interface testnet");
    expect_failure({"bridge", "detach", "web", ""}, 3, "web (running) has no interface ");
    expect_failure({"bridge", "list", "9"}, 3, "There is no virtual machine 9");
}

TEST_F(Bridge, NeedsAMachineThatRuns) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"list", "off one"},
          {"attach", "off one", "br0"},
          {"detach", "off one", "testnet0"}}) {
        std::vector<std::string> line = {"bridge"};
        line.insert(line.end(), words.begin(), words.end());
        expect_failure(line, 1, "off one (shut off) has interfaces only while it runs");
    }
}

}  // namespace
