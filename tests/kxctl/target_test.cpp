// The card or port that a command works on: how users name it, and that no command works on
// another one.
#include "library/target.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "failure/failure.hpp"
#include "kxctl/on_host.hpp"

namespace {

using kx::ctl::Arguments;
using kx::ctl::ExitCode;
using kx::ctl::Failure;
using kx::ctl::PciLocation;
using kx::ctl::PortTarget;
using testing::AnyOf;
using testing::HasSubstr;
using Json = nlohmann::json;

Arguments words(const std::string& location, const std::string& port = "") {
    Arguments arguments;
    arguments.add("LOCATION", {location});
    if (!port.empty()) {
        arguments.add("PORT", {port});
    }
    return arguments;
}

template <class Function>
void expect_failure(Function function, ExitCode code, const std::string& text) {
    try {
        function();
        ADD_FAILURE() << "nothing failed";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), code) << failure.what();
        EXPECT_THAT(failure.what(), HasSubstr(text));
    }
}

TEST(PciLocations, AreReadInEverySpelling) {
    for (const char* text :
         {"03:0a.4", "3:a.4", "03:0A.4", "0000:03:0a.4", "0:3:a.4", "00000000:03:0A.4"}) {
        const auto location = PciLocation::parse(text);
        ASSERT_TRUE(location) << text;
        EXPECT_EQ(location->text(), "03:0a.4") << text;
    }
    EXPECT_EQ(PciLocation::parse("10000:e1:00.0")->full_text(), "10000:e1:00.0");
}

TEST(PciLocations, RefuseEveryOtherText) {
    for (const char* text :
         {"", "03", "03:00", "03:00.", ":00.4", "03:.4", "003:00.4", "03:20.0", "03:00.8",
          "03:00.04", "0000:03:00.4.", "0:0000:03:00.4", "-3:00.4", "03:00.4 ", " 03:00.4",
          "g3:00.4", ":03:00.4", "0x3:00.4", "100000000:03:00.4"}) {
        EXPECT_FALSE(PciLocation::parse(text)) << text;
    }
}

class Target : public testing::Test {
protected:
    Target() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter(
            {.chip = "Q5",
             .location = "0a:00.4",
             .ports = {
                 {.name = "eth2", .mac = "00:07:43:00:00:02"},
                 {.name = "eth3", .mac = "00:07:43:00:00:03"}}});
        host_.interface({.name = "eth0"});
        host_.directory("/etc/kestrix-plexo");
    }

    test::Result run(std::vector<std::string> line) { return test::run_on(host_, std::move(line)); }

    // The port with another MAC, as when the interfaces were renamed.
    void replace(const std::string& name, const std::string& mac) {
        host_.remove_interface(name);
        host_.port("0a:00.4", {.name = name, .mac = mac});
    }

    kxsim::Host host_;
};

TEST_F(Target, PortsHaveManyNames) {
    const Json eth3 = {
        {"location", "0a:00.4"},
        {"instance", 2},
        {"interface", "eth3"},
        {"mac", "00:07:43:00:00:03"}};
    for (const std::vector<std::string>& name : std::vector<std::vector<std::string>>{
             {"eth3"},
             {"0a:00.4", "2"},
             {"0A:00.4/2"},
             {"0000:0A:00.4", "2"},
             {"0000:0a:00.4/2"}}) {
        std::vector<std::string> line = {"port", "show"};
        line.insert(line.end(), name.begin(), name.end());
        Json answer = test::json_on(host_, line);
        for (const auto& [key, value] : eth3.items()) {
            EXPECT_EQ(answer[key], value) << name[0];
        }
    }
}

TEST_F(Target, SettingsFollowAnInterfaceToo) {
    EXPECT_EQ(run({"port", "set", "eth3", "mtu=9000", "gso=off"}).exit, 0);
    EXPECT_EQ(run({"port", "set", "0a:00.4/1", "mtu=4000"}).exit, 0);
    EXPECT_EQ(host_.mtu("eth3"), 9000U);
    EXPECT_EQ(host_.nic("eth3").gso, 0U);
    EXPECT_EQ(host_.mtu("eth2"), 4000U);
}

TEST_F(Target, CardsAreFoundByAnInterface) {
    EXPECT_EQ(test::json_on(host_, {"port", "list", "eth3"})["location"], "0a:00.4");
    EXPECT_EQ(test::json_on(host_, {"port", "list", "0000:0A:00.4"})["location"], "0a:00.4");
}

TEST_F(Target, WhatNamesNoPortIsRefused) {
    const auto refused = [this](std::vector<std::string> line, int exit, const std::string& text) {
        line.insert(line.begin(), {"port", "show"});
        const test::Result result = run(line);
        EXPECT_EQ(result.exit, exit) << line[2];
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(text));
    };
    refused({"eth9"}, 3, "There is no interface eth9");
    refused({"../net/eth2"}, 2, "net/eth2 is no port number");
    refused({"eth0"}, 3, "eth0 (no PCI function");
    refused({"0a:00.4"}, 2, "0a:00.4 is a card");
    refused({"eth2", "1"}, 2, "eth2 names a port");
    refused({"0a:00.4/1", "1"}, 2, "0a:00.4/1 names a port");
    refused({"0a:00.4", "3"}, 3, "");
    refused({"0001:0a:00.4", "1"}, 3, "no adapter at 0001:0a:00.4, but at 0000:0a:00.4");
    refused({"0a:00.4/x"}, 2, "x is no port number");
    refused({"", "1"}, 3, "\"\" is not a location, an interface or a serial number");
    refused({"zz", "1"}, 3, "\"zz\" is not a location, an interface or a serial number");
}

TEST_F(Target, WrongNamesGetASuggestion) {
    host_.adapter({.chip = "Q5", .location = "0b:00.4"});
    const auto suggested = [this](std::vector<std::string> line, const std::string& text) {
        const test::Result result = run(line);
        EXPECT_EQ(result.exit, 3) << line[0] << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "kxctl: " + text + "\n");
    };
    suggested({"port", "list", "0a:00.5"}, "There is no adapter at 0a:00.5; did you mean 0a:00.4?");
    suggested(
        {"card", "stats", "0a:01.4"}, "There is no adapter at 0a:01.4; did you mean 0a:00.4?");
    suggested(
        {"port", "show", "0000:0b:00.0", "1"},
        "There is no adapter at 0000:0b:00.0; did you mean 0b:00.4?");
    suggested({"port", "show", "eht3"}, "There is no interface eht3; did you mean eth3?");
    suggested(
        {"iwarp", "show", "iw_zfab5"}, "There is no RDMA driver iw_zfab5; did you mean iw_zfab3?");
}

TEST(Targets, WrongSerialNumbersGetASuggestion) {
    EXPECT_THAT(
        test::run({"--sim=lab", "adapter", "show", "PT05160010"}).err,
        HasSubstr("a serial number of an adapter; did you mean PT05160001?"));
}

// A storage function beside the adapter's own one.
TEST_F(Target, ASiblingOfAnAdapterGetsASuggestion) {
    host_.pci_device({.location = "0a:00.5", .vendor_id = 0x4B58, .device_id = 0x5510});
    EXPECT_THAT(run({"port", "list", "0a:00.5"}).err, HasSubstr("; did you mean 0a:00.4?"));
}

// The library numbers the interfaces that answer. Whichever request fails, in the list or in the
// change, no other port is changed, and none is shown in place of the one that was meant.
TEST_F(Target, NoOtherPortIsChangedWhenARequestFailsOnce) {
    const kxsim::Fault fault{
        .call = "ioctl", .error = EIO, .object = "eth2", .command = ETHTOOL_GDRVINFO};
    const unsigned places = kxsim::sweep(host_, fault, [&](unsigned nth) {
        const test::Result result = run({"port", "set", "0a:00.4", "1", "mtu=9000"});
        EXPECT_EQ(host_.mtu("eth3"), 1500U) << nth;
        const bool changed = host_.mtu("eth2") == 9000U;
        EXPECT_THAT(result.exit, changed ? AnyOf(0, 4) : AnyOf(4, 5)) << nth << result.err;
        static_cast<void>(run({"port", "set", "0a:00.4", "1", "mtu=1500"}));
    });
    EXPECT_GE(places, 2U);
}

TEST_F(Target, NoOtherPortIsChangedWhenAnyCallFailsOnce) {
    for (const char* call : {"open", "opendir", "readdir", "realpath", "socket"}) {
        kxsim::sweep(host_, {.call = call, .error = EIO}, [&](unsigned nth) {
            static_cast<void>(run({"port", "set", "0a:00.4", "1", "mtu=9000"}));
            EXPECT_EQ(host_.mtu("eth3"), 1500U) << call << nth;
        });
    }
}

TEST_F(Target, NoOtherPortIsShownWhenOneDoesNotAnswer) {
    host_.refuse("eth2", ETHTOOL_GDRVINFO, EIO);
    for (const char* verb : {"show", "stats"}) {
        const test::Result result = run({"port", verb, "0a:00.4", "1"});
        EXPECT_EQ(result.exit, 4);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr("the kernel lists eth2, eth3, of which eth3 answered"));
    }
    // The number of eth3 is not certain then.
    EXPECT_EQ(test::json_on(host_, {"port", "show", "eth3"}, 4)["interface"], "eth3");
    EXPECT_EQ(run({"port", "set", "eth3", "mtu=9000"}).exit, 0);
    EXPECT_EQ(run({"port", "set", "eth2", "mtu=9000"}).exit, 4);
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
}

// The third reading of the MAC is the one right before the change.
TEST_F(Target, NothingIsChangedWhenTheMacCannotBeChecked) {
    host_.fail(
        {.call = "file",
         .nth = 1,
         .times = 0,
         .error = EIO,
         .object = "/sys/class/net/eth2/address"});
    const test::Result result = run({"port", "set", "eth2", "mtu=9000"});
    EXPECT_EQ(result.exit, 4);
    EXPECT_THAT(result.err, HasSubstr("MAC unknown) may be another port; nothing was changed"));
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
}

TEST_F(Target, AnInterfaceThatMovedIsNotChanged) {
    const auto attached = host_.attach();
    const PortTarget target(words("0a:00.4", "1"));
    EXPECT_NO_THROW(target.check_before_change());
    replace("eth2", "00:07:43:00:00:99");
    expect_failure(
        [&] { target.check_before_change(); }, ExitCode::kBusy,
        "was eth2 (0000:0a:00.4, MAC 00:07:43:00:00:02) and is eth2 (0000:0a:00.4, MAC "
        "00:07:43:00:00:99) now; nothing was changed");
    expect_failure(
        [&] { static_cast<void>(target.read_again()); }, ExitCode::kPartly,
        "it is not certain which port was changed");
    expect_failure([&] { static_cast<void>(target.read_counters()); }, ExitCode::kBusy, "was eth2");
    host_.remove_interface("eth2");
    expect_failure([&] { target.check_before_change(); }, ExitCode::kBusy, "is not there now");
}

TEST_F(Target, AnInterfaceThatMovedToAnotherCardIsNotChanged) {
    host_.adapter({.chip = "Q5", .location = "0b:00.4"});
    const auto attached = host_.attach();
    const PortTarget target(words("eth2"));
    host_.remove_interface("eth2");
    host_.port("0b:00.4", {.name = "eth2", .mac = "00:07:43:00:00:02"});
    expect_failure(
        [&] { target.check_before_change(); }, ExitCode::kBusy, "and is eth2 (0000:0b:00.4,");
}

TEST_F(Target, ALocationInSeveralDomainsIsRefused) {
    host_.adapter({.chip = "Q5", .location = "0001:0a:00.4", .ports = {{.name = "eth5"}}});
    const test::Result result = run({"port", "list", "0a:00.4"});
    EXPECT_EQ(result.exit, 3);
    EXPECT_THAT(result.err, HasSubstr("0a:00.4 may be 0000:0a:00.4 or 0001:0a:00.4"));
    EXPECT_EQ(run({"port", "set", "0001:0a:00.4", "1", "mtu=9000"}).exit, 14);
    EXPECT_EQ(host_.mtu("eth2"), 1500U);
    EXPECT_EQ(run({"port", "set", "eth5", "mtu=9000"}).exit, 0);
    EXPECT_EQ(host_.mtu("eth5"), 9000U);
}

}  // namespace
