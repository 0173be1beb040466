// kxctl vm: machines by name, UUID and id; their states agree with those that virsh shows.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>

#include "kxctl/machines_on_host.hpp"
#include "library/hypervisor_messages.hpp"
#include "library/machines.hpp"

namespace {

using testing::HasSubstr;

class Vm : public test::MachinesOnHost {
protected:
    std::string state(const std::string& name) {
        const auto machines = json({"vm", "list"})["vms"];
        for (const auto& machine : machines) {
            if (machine["name"] == name) {
                return machine["state"].get<std::string>();
            }
        }
        return "missing";
    }
};

TEST_F(Vm, ListsThemByName) {
    const auto machines = json({"vm", "list"})["vms"];
    ASSERT_EQ(machines.size(), 3U);
    EXPECT_EQ(machines[0]["name"], "7");
    EXPECT_EQ(machines[0]["id"], 2);
    EXPECT_EQ(machines[0]["state"], "paused");
    EXPECT_EQ(machines[1]["name"], "off one");
    EXPECT_TRUE(machines[1]["id"].is_null());
    EXPECT_EQ(machines[1]["state"], "shut off");
    EXPECT_EQ(machines[2]["name"], "web");
    EXPECT_EQ(machines[2]["id"], 1);
    EXPECT_EQ(machines[2]["state"], "running");
    EXPECT_EQ(machines[2]["uuid"], test::kWebUuid);
}

TEST_F(Vm, IsFoundByNameThenUuidThenId) {
    EXPECT_EQ(json({"vm", "reboot", "web"})["vm"]["name"], "web");
    EXPECT_EQ(json({"vm", "reboot", test::kWebUuid})["vm"]["name"], "web");
    EXPECT_EQ(json({"vm", "reboot", "1122334455664788 99AABBCCDDEEFF01"}, 3)["error"]["code"], 3);
    EXPECT_EQ(json({"vm", "reboot", "112233445566478899AABBCCDDEEFF01"})["vm"]["name"], "web");
    EXPECT_EQ(json({"vm", "reboot", "1"})["vm"]["name"], "web");
    EXPECT_EQ(json({"vm", "resume", "7"})["vm"]["id"], 2) << "a name of digits is a name";
}

// The id of one machine, or its UUID, may be the name of another one.
TEST_F(Vm, AWordThatNamesTwoIsRefused) {
    host.machine({.name = "1"});
    const test::Result id = on({"vm", "start", "1"});
    EXPECT_EQ(id.exit, 3);
    EXPECT_THAT(
        id.err, HasSubstr("1 may be web (running), UUID 11223344-5566-4788-99aa-bbccddeeff01, id 1 "
                          "or 1 (shut off), UUID "));
    EXPECT_EQ(state("1"), "shut off");
    host.machine({.name = test::kWebUuid});
    EXPECT_EQ(on({"vm", "suspend", test::kWebUuid}).exit, 3);
    EXPECT_EQ(state("web"), "running");
    EXPECT_EQ(on({"vm", "suspend", "web"}).exit, 0) << "each has another name too";
}

TEST_F(Vm, AStateThatChangesMeanwhileIsReported) {
    const auto find = [this] {
        const auto attached = host.attach();
        return kx::ctl::find_machine("web");
    };
    const auto report = [this](const kx::ctl::Machine& before) {
        const auto attached = host.attach();
        return kx::ctl::report_other_state(before);
    };
    const kx::ctl::Machine before = find();
    EXPECT_EQ(report(before), kx::ctl::ExitCode::kDone);
    virsh("suspend web");
    EXPECT_EQ(report(before), kx::ctl::ExitCode::kPartly);
}

TEST_F(Vm, AMachineThatStoppedMeanwhileIsNotChanged) {
    const auto find = [this] {
        const auto attached = host.attach();
        return kx::ctl::find_machine("web");
    };
    const auto check = [this](const kx::ctl::Machine& machine) {
        const auto attached = host.attach();
        kx::ctl::check_before_change(machine);
    };
    const kx::ctl::Machine found = find();
    EXPECT_NO_THROW(check(found));
    virsh("shutdown web");
    try {
        check(found);
        ADD_FAILURE() << "it is shut off";
    } catch (const kx::ctl::Failure& failure) {
        EXPECT_EQ(failure.code(), kx::ctl::ExitCode::kBusy);
        EXPECT_THAT(failure.what(), HasSubstr("it is web (shut off), UUID "));
        EXPECT_THAT(failure.what(), HasSubstr("; nothing was changed"));
    }
}

// The second look at the machines fails.
TEST_F(Vm, IsLookedAtRightBeforeAChange) {
    const std::vector<std::string> changes[] = {
        {"vf", "attach", "web", "04:01.4"},
        {"vf", "detach", "web", "04:01.0"},
        {"bridge", "attach", "web", "br0"},
        {"bridge", "detach", "web", "testnet0"}};
    const std::string definition = virsh("dumpxml web; virsh dumpxml --inactive web");
    for (const auto& change : changes) {
        kxsim::FaultRule rule = host.fail(
            {.call = "libvirt",
             .nth = 2,
             .error = EIO,
             .object = "virConnectNumOfDomains",
             .program = "kxctl"});
        EXPECT_EQ(on(change).exit, 1) << change[0] << change[1];
        rule.remove();
        EXPECT_EQ(virsh("dumpxml web; virsh dumpxml --inactive web"), definition) << change[1];
    }
}

// libvirt lists them in any order.
TEST_F(Vm, WhatLibvirtDoesNotTellIsNullWithItsReason) {
    struct Row {
        const char* call;
        unsigned nth;
        const char* key;
        const char* what;
    };
    for (const Row& row :
         {Row{"virDomainGetName", 1, "name", "name"}, Row{"virDomainGetName", 2, "state", "state"},
          Row{"virDomainGetUUID", 1, "uuid", "UUID"},
          Row{"virDomainGetOSType", 1, "os_type", "type"}}) {
        kxsim::FaultRule rule =
            host.fail({.call = "libvirt", .nth = row.nth, .error = EIO, .object = row.call});
        const auto answer = json({"vm", "list"}, 4);
        EXPECT_THAT(
            answer["incomplete"][0].get<std::string>(),
            testing::MatchesRegex(
                std::string("The ") + row.what + " of the virtual machine .* is not known"));
        EXPECT_EQ(
            std::ranges::count_if(
                answer["vms"], [&](const auto& machine) { return machine[row.key].is_null(); }),
            1)
            << answer;
        rule.remove();
    }
}

TEST_F(Vm, AStateThatVirshDoesNotTellIsNull) {
    host.fail(
        {.call = "libvirt",
         .times = 0,
         .error = EIO,
         .object = "virConnectOpenAuth",
         .program = "virsh"});
    EXPECT_EQ(json({"vm", "list"}, 4)["vms"][2]["state"], nullptr);
}

// The machine that the user means may be the one that has no name now.
TEST_F(Vm, AWordIsRefusedWhileANameIsNotKnown) {
    kxsim::FaultRule rule =
        host.fail({.call = "libvirt", .times = 0, .error = EIO, .object = "virDomainGetName"});
    expect_failure(
        {"vm", "suspend", "web"}, 1,
        "The virtual machine web cannot be found: libvirt did not give each name and UUID");
    rule.remove();
    EXPECT_EQ(state("web"), "running");
}

TEST_F(Vm, ThatIsUnknownIsNotFound) {
    for (const char* word : {"nobody", "-1", "0", "3", "1x", "11223344"}) {
        expect_failure(
            {"vm", "start", "--", word}, 3, std::string("There is no virtual machine ") + word);
    }
}

TEST_F(Vm, WithASimilarNameIsSuggested) {
    expect_failure({"vm", "start", "wbe"}, 3, "There is no virtual machine wbe; did you mean web?");
}

TEST_F(Vm, GoesThroughItsLifeFromOneProcessToTheNext) {
    EXPECT_EQ(json({"vm", "start", "off one"})["vm"]["id"], 3);
    EXPECT_EQ(state("off one"), "running");
    const auto suspended = json({"vm", "suspend", "off one"});
    EXPECT_EQ(suspended["state_before"], "running");
    EXPECT_EQ(suspended["vm"]["state"], "paused");
    EXPECT_THAT(virsh("domstate 'off one'"), HasSubstr("paused"));
    EXPECT_EQ(json({"vm", "start", "3"})["vm"]["state"], "running") << "a start resumes it";
    EXPECT_EQ(json({"vm", "suspend", "3"})["vm"]["state"], "paused");
    EXPECT_EQ(json({"vm", "resume", "3"})["vm"]["state"], "running");
    EXPECT_EQ(json({"vm", "reboot", "3"})["vm"]["id"], 3);
    const auto off = json({"vm", "shutdown", "3"});
    EXPECT_EQ(off["vm"]["state"], "shut off");
    EXPECT_TRUE(off["vm"]["id"].is_null());
    EXPECT_EQ(json({"vm", "start", "off one"})["vm"]["id"], 4) << "ids are not given twice";
}

TEST_F(Vm, SeesWhatVirshDid) {
    virsh("suspend web");
    virsh("start 'off one'");
    EXPECT_EQ(state("web"), "paused");
    EXPECT_EQ(state("off one"), "running");
}

TEST_F(Vm, IsRefusedWhatItsStateDoesNotAllow) {
    expect_failure({"vm", "start", "web"}, 1, "Cannot start web (running): Invalid Operation");
    expect_failure({"vm", "suspend", "7"}, 1, "Cannot suspend 7 (paused): Invalid Operation");
    expect_failure({"vm", "resume", "web"}, 1, "Cannot resume web (running): Invalid Operation");
    expect_failure(
        {"vm", "shutdown", "off one"}, 1, "Cannot shut down off one (shut off): Invalid Operation");
    expect_failure(
        {"vm", "reboot", "off one"}, 1,
        "Cannot reboot off one (shut off): Requested operation is not valid: domain is not "
        "running");
}

TEST_F(Vm, OnAHostWithoutHypervisorIsAFailure) {
    host.remove("/var/lib/libvirt/kxsim/node.xml");
    const test::Result result = on({"vm", "list"});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(
        result.err,
        HasSubstr("kxctl: Cannot list the virtual machines: LibVirt connection failure: XML "
                  "error: failed to parse xml document"));
}

TEST_F(Vm, MessagesOfTheLibraryAreNotItsOutput) {
    const test::Result verbose = on({"vm", "list", "--json", "-v"});
    EXPECT_EQ(nlohmann::json::parse(verbose.out)["vms"].size(), 3U);
    EXPECT_THAT(verbose.err, HasSubstr("Attempting to connect to hypervisor\n"));
    const test::Result refused = on({"vm", "start", "web", "-v"});
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, HasSubstr("libkxlinhw: vm: error: VMStateOperation: Invalid"));
}

TEST_F(Vm, NamesThatAreNoWordsOfAShellAreNames) {
    host.machine({.name = "a'b;$(reboot) <&>", .state = "running"});
    EXPECT_EQ(json({"vm", "suspend", "a'b;$(reboot) <&>"})["vm"]["state"], "paused");
}

TEST(HypervisorReason, IsTheLastOneOfLibvirtOrVirsh) {
    using kx::ctl::reason_in;
    EXPECT_EQ(reason_in(""), "");
    EXPECT_EQ(reason_in("Attempting to connect to hypervisor\n"), "");
    EXPECT_EQ(
        reason_in("libvirt: QEMU Driver error : Requested operation is not valid: PCI device "
                  "0000:04:01.0 is in use by driver QEMU, domain web\n"),
        "Requested operation is not valid: PCI device 0000:04:01.0 is in use by driver QEMU, "
        "domain web");
    EXPECT_EQ(
        reason_in("error: Failed to attach interface\n"
                  "error: internal error: no bridge named 'br7'\n\n"),
        "internal error: no bridge named 'br7'");
    EXPECT_EQ(reason_in("libvirt:  error : without a driver"), "without a driver");
}

// No simulated host: the library's own connection to a socket that is not there.
TEST(HypervisorReason, IsShownWithoutVerbose) {
    test::Setup setup;
    setup.environment = {
        "LIBVIRT_DEFAULT_URI=qemu+unix:///system?socket=/nonexistent/libvirt-sock"};
    const test::Result result = test::run({"vm", "list"}, setup);
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(
        result.err,
        "kxctl: Cannot list the virtual machines: LibVirt connection failure: Failed to connect "
        "socket to '/nonexistent/libvirt-sock': No such file or directory\n");
}

}  // namespace
