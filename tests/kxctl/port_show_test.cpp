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
        "IPv6                    2001:db8::1\n"
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
             {"link_detected", 1},
             {"link_detected_again", 1},
             {"speed", 1000},
             {"duplex", 0},
             {"autoneg", 0},
             {"autoneg_supported", 1},
             {"autoneg_advertised", 0},
             {"supported_modes", "10000baseT/Full"},
             {"advertised_modes", "10000baseT/Full"},
             {"connector", "FIBRE"},
             {"supported_connectors", "FIBRE"},
             {"transceiver", "External"},
             {"phy_address", 9},
             {"mac", "00:11:22:33:44:55"},
             {"ipv4_address", "192.0.2.1"},
             {"ipv4_netmask", "255.255.255.0"},
             {"ipv6_address", "2001:db8::1"},
             {"mtu", 9000},
             {"rx_checksum", 1},
             {"tx_checksum", 0},
             {"scatter_gather", 1},
             {"tso", 0},
             {"gso", 1},
             {"pause_autoneg", 0},
             {"rx_pause", 1},
             {"tx_pause", 0},
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
             {"wake_on_lan_enabled", "g"},
             {"wake_on_lan_supported", "pg"}}));
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
