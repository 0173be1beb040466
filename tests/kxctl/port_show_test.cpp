// port show on simulated hosts, and that no setting of a port is missing from the table.
#include <gmock/gmock.h>
#include <linux/ethtool.h>

#include <bit>
#include <cerrno>

#include "kxctl/on_host.hpp"
#include "settings/port_settings.hpp"

namespace {

using test::json_on;
using test::run_on;
using testing::HasSubstr;
using Json = nlohmann::json;

kxsim::Nic odd_nic() {
    kxsim::Nic nic;
    nic.link_settings.supported = 0x40 | 0x400 | 0x1000;
    nic.link_settings.advertising = 0x1000;
    nic.link_settings.speed = 1000;
    nic.link_settings.duplex = 0;
    nic.link_settings.autoneg = 0;
    nic.link_settings.phy_address = 9;
    nic.link_settings.transceiver = 1;
    nic.message_level = 0x21;
    nic.tx_checksum = 0;
    nic.tso = 0;
    nic.wake_on_lan.supported = 0x21;
    nic.wake_on_lan.wolopts = 0x20;
    nic.coalescing.rx_coalesce_usecs = 33;
    nic.rings.rx_pending = 101;
    nic.rings.rx_mini_pending = 102;
    nic.rings.rx_jumbo_pending = 103;
    nic.rings.tx_pending = 104;
    nic.rings.rx_max_pending = 201;
    nic.rings.rx_mini_max_pending = 202;
    nic.rings.rx_jumbo_max_pending = 203;
    nic.rings.tx_max_pending = 204;
    nic.pause.autoneg = 0;
    nic.pause.tx_pause = 0;
    return nic;
}

Json one_ipv6(const char* address, int prefix_length, const char* scope) {
    return {{"address", address}, {"prefix_length", prefix_length}, {"scope", scope}};
}

class PortShow : public testing::Test {
protected:
    PortShow() {
        host_.module({.name = "zfab4", .loaded = true});
        host_.adapter(
            {.chip = "Q5",
             .location = "03:00.4",
             .ports = {
                 {.name = "eth2",
                  .mac = "00:11:22:33:44:55",
                  .ipv4 = {"192.0.2.1/24"},
                  .ipv6 = {"2001:db8::1/64"},
                  .mtu = 9000,
                  .nic = odd_nic()},
                 {.name = "eth3", .mac = "00:11:22:33:44:56"}}});
    }

    kxsim::Host host_;
};

TEST_F(PortShow, ShowsEveryFieldToPeople) {
    const test::Result result = run_on(host_, {"port", "show", "03:00.4", "1"});
    EXPECT_EQ(result.exit, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(
        result.out,
        "Interface               eth2\n"
        "Location                03:00.4 port 1\n"
        "Link                    up\n"
        "Auto-negotiation        off (supported, not advertised)\n"
        "Speed                   1000 Mb/s\n"
        "Duplex                  half\n"
        "Supported modes         10000baseT/Full\n"
        "Advertised modes        10000baseT/Full\n"
        "Connector               FIBRE\n"
        "Supported connectors    FIBRE\n"
        "Transceiver             External\n"
        "PHY address             9\n"
        "MAC                     00:11:22:33:44:55\n"
        "IPv4                    192.0.2.1 netmask 255.255.255.0\n"
        "IPv6                    2001:db8::1/64\n"
        "MTU                     9000 bytes\n"
        "Receive checksum        on\n"
        "Transmit checksum       off\n"
        "Scatter-gather          on\n"
        "TCP segmentation        off\n"
        "Generic segmentation    on\n"
        "Transmit ring           104 of 204 descriptors\n"
        "Receive ring            101 of 201 descriptors\n"
        "Receive mini ring       102 of 202 descriptors\n"
        "Receive jumbo ring      103 of 203 descriptors\n"
        "Message level           0x21\n"
        "Pause auto-negotiation  off\n"
        "Transmit pause          off\n"
        "Receive pause           on\n"
        "Receive coalescing      33 us\n"
        "Wake-on-LAN             g\n"
        "Supported wake-on-LAN   pg\n");
}

TEST_F(PortShow, ShowsEveryFieldToMachines) {
    EXPECT_EQ(
        json_on(host_, {"port", "show", "03:00.4", "1"}),
        Json(
            {{"location", "03:00.4"},
             {"instance", 1},
             {"interface", "eth2"},
             {"link_detected", true},
             {"link_detected_again", true},
             {"speed", 1000},
             {"duplex", "half"},
             {"autoneg", false},
             {"autoneg_supported", true},
             {"autoneg_advertised", false},
             {"supported_modes", {"10000baseT/Full"}},
             {"advertised_modes", {"10000baseT/Full"}},
             {"connector", "FIBRE"},
             {"supported_connectors", {"FIBRE"}},
             {"transceiver", "External"},
             {"phy_address", 9},
             {"mac", "00:11:22:33:44:55"},
             {"ipv4_address", "192.0.2.1"},
             {"ipv4_netmask", "255.255.255.0"},
             {"ipv6_address", "2001:db8::1"},
             {"ipv6_addresses", Json::array({one_ipv6("2001:db8::1", 64, "global")})},
             {"mtu", 9000},
             {"rx_checksum", true},
             {"tx_checksum", false},
             {"scatter_gather", true},
             {"tso", false},
             {"gso", true},
             {"pause_autoneg", false},
             {"rx_pause", true},
             {"tx_pause", false},
             {"rx_usecs", 33},
             {"message_level", 0x21},
             {"ring_rx", 101},
             {"ring_rx_maximum", 201},
             {"ring_rx_mini", 102},
             {"ring_rx_mini_maximum", 202},
             {"ring_rx_jumbo", 103},
             {"ring_rx_jumbo_maximum", 203},
             {"ring_tx", 104},
             {"ring_tx_maximum", 204},
             {"wake_on_lan_enabled", {"g"}},
             {"wake_on_lan_supported", {"p", "g"}}}));
}

TEST_F(PortShow, TakesThePortByItsNumber) {
    EXPECT_EQ(json_on(host_, {"port", "show", "03:00.4", "2"}).at("interface"), "eth3");
}

TEST_F(PortShow, ShowsADashForWhatTheDriverDoesNotTell) {
    for (const uint32_t command :
         {ETHTOOL_GSET, ETHTOOL_GRXCSUM, ETHTOOL_GPAUSEPARAM, ETHTOOL_GWOL}) {
        host_.refuse("eth2", command, EOPNOTSUPP);
    }
    const test::Result result = run_on(host_, {"port", "show", "03:00.4", "1"});
    for (const char* const line :
         {"Speed                   -\n", "Connector               -\n",
          "Receive checksum        -\n", "Receive pause           -\n",
          "Wake-on-LAN             -\n"}) {
        EXPECT_THAT(result.out, HasSubstr(line));
    }
    const Json port = json_on(host_, {"port", "show", "03:00.4", "1"});
    for (const char* const key : {"connector", "rx_checksum", "rx_pause", "wake_on_lan_enabled"}) {
        EXPECT_TRUE(port.at(key).is_null()) << key;
    }
}

// Which keys of the answer one request fills.
struct RequestKeys {
    std::uint32_t request;
    const char* what;
    std::vector<const char*> keys;
};

const std::vector<RequestKeys>& request_keys() {
    static const std::vector<RequestKeys> rows = {
        {ETHTOOL_GSET,
         "link settings",
         {"speed", "duplex", "autoneg", "connector", "autoneg_supported", "autoneg_advertised",
          "supported_modes", "advertised_modes", "supported_connectors", "transceiver",
          "phy_address"}},
        {ETHTOOL_GLINK, "link", {"link_detected", "link_detected_again"}},
        {ETHTOOL_GMSGLVL, "message level", {"message_level"}},
        {ETHTOOL_GRXCSUM, "receive checksum", {"rx_checksum"}},
        {ETHTOOL_GTXCSUM, "transmit checksum", {"tx_checksum"}},
        {ETHTOOL_GSG, "scatter-gather", {"scatter_gather"}},
        {ETHTOOL_GTSO, "TCP segmentation", {"tso"}},
        {ETHTOOL_GGSO, "generic segmentation", {"gso"}},
        {ETHTOOL_GWOL, "wake-on-LAN", {"wake_on_lan_supported", "wake_on_lan_enabled"}},
        {ETHTOOL_GCOALESCE, "coalescing", {"rx_usecs"}},
        {ETHTOOL_GRINGPARAM,
         "rings",
         {"ring_rx", "ring_rx_mini", "ring_rx_jumbo", "ring_tx", "ring_rx_maximum",
          "ring_rx_mini_maximum", "ring_rx_jumbo_maximum", "ring_tx_maximum"}},
        {ETHTOOL_GPAUSEPARAM, "pause", {"pause_autoneg", "tx_pause", "rx_pause"}},
    };
    return rows;
}

TEST_F(PortShow, HasNullForWhatTheDriverDoesNotHave) {
    for (const RequestKeys& row : request_keys()) {
        host_.refuse("eth2", row.request, EOPNOTSUPP);
    }
    const Json port = json_on(host_, {"port", "show", "03:00.4", "1"});
    for (const RequestKeys& row : request_keys()) {
        for (const char* const key : row.keys) {
            EXPECT_EQ(port.at(key), nullptr) << key;
        }
    }
    EXPECT_FALSE(port.contains("incomplete"));
}

TEST_F(PortShow, HasNullAndTheReasonForWhatCouldNotBeRead) {
    for (const RequestKeys& row : request_keys()) {
        host_.refuse("eth2", row.request, EIO);
        const Json port = json_on(host_, {"port", "show", "03:00.4", "1"}, 4);
        for (const char* const key : row.keys) {
            EXPECT_EQ(port.at(key), nullptr) << key;
        }
        const std::string reason = std::string("eth2: ") + row.what + ": Input/output error";
        EXPECT_EQ(port.value("incomplete", Json()), Json::array({reason}));
        EXPECT_EQ(run_on(host_, {"port", "show", "03:00.4", "1"}).err, "kxctl: " + reason + "\n");
        host_.refuse("eth2", row.request, 0);
    }
}

TEST_F(PortShow, ShowsSpeedsThatTheRecordHasNoRoomFor) {
    const auto speed_of = [](unsigned high, unsigned low) {
        kxsim::Nic nic = odd_nic();
        nic.link_settings.speed_hi = static_cast<std::uint16_t>(high);
        nic.link_settings.speed = static_cast<std::uint16_t>(low);
        kxsim::Host host;
        host.module({.name = "zfab4", .loaded = true});
        host.adapter(
            {.chip = "Q5", .location = "03:00.4", .ports = {{.name = "eth2", .nic = nic}}});
        return json_on(host, {"port", "show", "03:00.4", "1"}).at("speed");
    };
    EXPECT_EQ(speed_of(1, 34464), 100000);
    EXPECT_EQ(speed_of(3, 3392), 200000);
    EXPECT_EQ(speed_of(0, 40000), 40000);
    EXPECT_EQ(speed_of(0xFFFF, 0xFFFF), nullptr);
    EXPECT_EQ(speed_of(0, 0xFFFF), nullptr);
    EXPECT_EQ(speed_of(0, 0), nullptr);
}

TEST_F(PortShow, HasAllIpv6Addresses) {
    kxsim::Host host;
    host.module({.name = "zfab4", .loaded = true});
    host.adapter(
        {.chip = "Q5",
         .location = "03:00.4",
         .ports = {
             {.name = "eth2",
              .ipv6 = {"2001:db8:1111:2222:3333:4444:5555:6666/128", "fec0::1/10", "fe80::1/64"}},
             {.name = "eth3"}}});
    const Json port = json_on(host, {"port", "show", "03:00.4", "1"});
    EXPECT_EQ(port.at("ipv6_address"), "fe80::1");
    EXPECT_EQ(
        port.at("ipv6_addresses"),
        Json::array(
            {one_ipv6("2001:db8:1111:2222:3333:4444:5555:6666", 128, "global"),
             one_ipv6("fec0::1", 10, "site"), one_ipv6("fe80::1", 64, "link")}));
    EXPECT_EQ(json_on(host, {"port", "show", "03:00.4", "2"}).at("ipv6_addresses"), Json::array());
    host.fail({.call = "getifaddrs", .times = 0, .error = ENOMEM});
    EXPECT_EQ(json_on(host, {"port", "show", "03:00.4", "1"}, 4).at("ipv6_addresses"), nullptr);
}

TEST_F(PortShow, OfNoSuchCardOrPortIsNotFound) {
    const test::Result port = run_on(host_, {"port", "show", "03:00.4", "3"});
    EXPECT_EQ(port.exit, 3);
    EXPECT_EQ(port.out, "");
    EXPECT_EQ(port.err, "kxctl: Invalid port instance for the specified pci bus location\n");
    EXPECT_EQ(run_on(host_, {"port", "show", "09:00.4", "1"}).exit, 3);
}

TEST_F(PortShow, TakesNoWordThatIsNoNumberForAPort) {
    for (const char* const word : {"eth2", "1x", "-1", "+1", "1.0", "0", "4294967296", ""}) {
        const test::Result result = run_on(host_, {"port", "show", "03:00.4", "--", word});
        EXPECT_EQ(result.exit, 2) << word;
        EXPECT_THAT(result.err, HasSubstr("is no port number")) << word;
    }
    EXPECT_EQ(run_on(host_, {"port", "show", "03:00.4", "257"}).exit, 3);
}

TEST(PortSettings, CoversEveryBitOfTheChangeMask) {
    std::uint64_t bits = 0;
    for (const kx::ctl::Setting& setting : kx::ctl::port_settings()) {
        EXPECT_EQ(std::popcount(setting.change_bit), 1) << setting.key;
        EXPECT_LE(setting.offset + setting.width, sizeof(PortSettings)) << setting.key;
        bits |= setting.change_bit;
    }
    EXPECT_EQ(bits, 0xBFF01C66U);
    EXPECT_EQ(std::popcount(bits), 18);
}

}  // namespace
