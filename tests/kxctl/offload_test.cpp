// offload show on simulated hosts.
#include <gmock/gmock.h>
#include <linux/ethtool.h>

#include <cerrno>

#include "kxctl/on_host.hpp"

namespace {

using test::json_on;
using test::run_on;
using testing::HasSubstr;
using Json = nlohmann::json;

class Offload : public testing::Test {
protected:
    Offload() {
        host_.module({.name = "zfab3", .loaded = true});
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2"}}});
        host_.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth5"}}});
        host_.adapter({.chip = "Q4", .location = "06:00.4"});
    }

    void give_engine(const std::map<std::string, std::string>& parameters = {}) {
        host_.toe_device({.index = 3, .interfaces = {"eth2"}, .parameters = parameters});
    }

    kxsim::Host host_;
};

// Name and unit of every parameter, in the order of the table.
const std::vector<std::pair<std::string, std::string>> kParameters = {
    {"activated", ""},
    {"max_host_sndbuf", "bytes"},
    {"tx_hold_thres", "bytes"},
    {"max_wr", "work requests"},
    {"rx_credit_thres", "bytes"},
    {"failover_alg", ""},
    {"mss", "bytes"},
    {"delayed_ack", ""},
    {"max_conn", "connections"},
    {"soft_backlog_limit", ""},
    {"ddp", ""},
    {"ddp_thres", "bytes"},
    {"recvmsg_spin_us", "us"},
    {"ddp_push_wait", ""},
    {"ddp_rcvcoalesce", ""},
    {"zcopy_sendmsg_partial_thres", "bytes"},
    {"zcopy_sendmsg_partial_copy", "bytes"},
    {"zcopy_sendmsg_thres", "bytes"},
    {"zcopy_sendmsg_copy", "bytes"},
    {"zcopy_sendmsg_ret_pending_dma", "bytes"},
    {"kseg_ddp", ""},
    {"cop_managed_offloading", ""},
    {"tx_coal", ""},
};

TEST_F(Offload, ShowsEveryParameterWithItsOwnValueAndUnit) {
    std::map<std::string, std::string> values;
    int value = -50;
    for (const auto& [name, unit] : kParameters) {
        values[name] = std::to_string(value++);
    }
    give_engine(values);
    const Json reply = json_on(host_, {"offload", "show", "03:00.4"});
    EXPECT_EQ(reply.at("location"), "03:00.4");
    EXPECT_EQ(reply.at("device"), 3);
    const Json& parameters = reply.at("parameters");
    ASSERT_EQ(parameters.size(), kParameters.size());
    for (std::size_t k = 0; k < kParameters.size(); ++k) {
        const auto& [name, unit] = kParameters[k];
        EXPECT_EQ(parameters[k].at("name"), name);
        EXPECT_EQ(parameters[k].at("unit"), unit.empty() ? Json() : Json(unit));
        if (name != "tx_coal") {  // of the Ethernet driver's module
            EXPECT_EQ(parameters[k].at("value"), -50 + static_cast<int>(k)) << name;
        }
    }
}

TEST_F(Offload, IsATableForPeople) {
    give_engine({{"mss", "1400"}, {"max_conn", "-1"}});
    const test::Result result = run_on(host_, {"offload", "show", "03:00.4"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr("PARAMETER                      VALUE  UNIT\n"));
    EXPECT_THAT(result.out, HasSubstr("\nmss                             1400  bytes\n"));
    EXPECT_THAT(result.out, HasSubstr("\nmax_conn                          -1  connections\n"));
}

TEST_F(Offload, OfACardWithoutAPortIsTheFirstDevices) {
    host_.toe_device({.index = 0, .interfaces = {}, .parameters = {{"mss", "900"}}});
    const Json reply = json_on(host_, {"offload", "show", "06:00.4"});
    EXPECT_EQ(reply.at("device"), 0);
    EXPECT_EQ(reply.at("parameters")[6].at("value"), 900);
}

TEST_F(Offload, OfACardWithoutAPortIsNotTheDeviceOfAnotherCard) {
    host_.toe_device({.index = 0, .interfaces = {"eth2"}});
    const test::Result result = run_on(host_, {"offload", "show", "06:00.4"});
    EXPECT_EQ(result.exit, 5);
    EXPECT_THAT(result.err, HasSubstr("would take toe0 (eth2) for a card without an interface"));
}

TEST_F(Offload, OfACardNamesItsPorts) {
    give_engine();
    const Json reply = json_on(host_, {"offload", "show", "eth2"});
    EXPECT_EQ(reply.at("location"), "03:00.4");
    EXPECT_EQ(reply.at("ports").at(0).at("interface"), "eth2");
    EXPECT_EQ(reply.at("ports").at(0).at("instance"), 1);
    EXPECT_TRUE(reply.at("ports").at(0).at("mac").is_string());
}

// The library finds eth1 in the line of eth10, which is the engine of another card.
class OffloadLines : public testing::Test {
protected:
    OffloadLines() {
        host_.module({.name = "zfab3", .loaded = true});
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter({.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth1"}}});
        host_.adapter({.chip = "Q5", .location = "04:00.4", .ports = {{.name = "eth10"}}});
        host_.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth3"}}});
        host_.adapter({.chip = "Q3", .location = "06:00.0", .ports = {{.name = "eth30"}}});
        host_.toe_device({.index = 0, .interfaces = {"eth10"}, .parameters = {{"mss", "900"}}});
        host_.toe_device({.index = 1, .interfaces = {"eth1"}, .parameters = {{"mss", "1400"}}});
        host_.toe_device({.index = 2, .interfaces = {"eth30"}, .of_zfab3 = true});
        host_.toe_device({.index = 3, .interfaces = {"eth3"}, .of_zfab3 = true});
        host_.file("/etc/sysctl.conf", "");
        host_.file("/proc/net/zfab3/toe2/snmp", "InSegs: 2\n");
        host_.file("/proc/net/zfab3/toe3/snmp", "InSegs: 3\n");
    }

    kxsim::Host host_;
};

TEST_F(OffloadLines, OfAnotherInterfaceAreRefused) {
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"offload", "show", "03:00.4"}, {"offload", "set", "03:00.4", "mss=1000"}}) {
        const test::Result result = run_on(host_, words);
        EXPECT_EQ(result.exit, 5);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(
            result.err, HasSubstr("would take toe0 (eth10) for eth1, which toe1 (eth1) serves"));
    }
    EXPECT_EQ(host_.read("/proc/sys/toe/toe0_tom/mss"), "900\n");
    EXPECT_EQ(host_.read("/proc/sys/toe/toe1_tom/mss"), "1400\n");
}

TEST_F(OffloadLines, OfTheInterfaceItselfAreTaken) {
    EXPECT_EQ(run_on(host_, {"offload", "set", "04:00.4", "mss=1000"}).exit, 0);
    EXPECT_EQ(host_.read("/proc/sys/toe/toe0_tom/mss"), "1000\n");
}

TEST_F(OffloadLines, OfAnotherQ3AreNotItsCounters) {
    EXPECT_EQ(run_on(host_, {"card", "stats", "05:00.0"}).exit, 5);
    EXPECT_EQ(run_on(host_, {"card", "stats", "06:00.0"}).exit, 0);
}

// With no port that answers, the library reads and changes the first device.
TEST_F(OffloadLines, AreNotTakenWhenAPortDoesNotAnswerOnce) {
    const kxsim::Fault fault{
        .call = "ioctl", .error = EIO, .object = "eth10", .command = ETHTOOL_GDRVINFO};
    kxsim::sweep(host_, fault, [&](unsigned nth) {
        const test::Result result = run_on(host_, {"offload", "show", "04:00.4", "--json"});
        if (result.exit == 0) {
            EXPECT_EQ(Json::parse(result.out).at("parameters")[6].at("value"), 900) << nth;
        }
        EXPECT_THAT(result.exit, testing::AnyOf(0, 4)) << nth << result.err;
    });
}

TEST_F(Offload, OfACardWithoutAnEngineIsNotSupported) {
    const test::Result result = run_on(host_, {"offload", "show", "05:00.0"});
    EXPECT_EQ(result.exit, 14);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("NIC-Only"));
}

TEST_F(Offload, WhoseDeviceIsNotListedIsNotSupported) {
    host_.toe_device({.index = 0, .interfaces = {"eth9"}});
    EXPECT_EQ(run_on(host_, {"offload", "show", "03:00.4"}).exit, 14);
}

TEST_F(Offload, WithoutAListOfDevicesFails) {
    EXPECT_EQ(run_on(host_, {"offload", "show", "03:00.4"}).exit, 1);
}

TEST_F(Offload, WithoutControlFilesIsNotFound) {
    host_.toe_device({.index = 3, .interfaces = {"eth2"}, .control_files = false});
    const test::Result result = run_on(host_, {"offload", "show", "03:00.4"});
    EXPECT_EQ(result.exit, 3);
    EXPECT_THAT(result.err, HasSubstr("Resource unavailable"));
}

TEST_F(Offload, OfNoSuchCardIsNotFound) {
    EXPECT_EQ(run_on(host_, {"offload", "show", "09:00.4"}).exit, 3);
}

}  // namespace
