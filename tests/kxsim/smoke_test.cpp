// The shipping library on a small simulated host, from end to end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <array>
#include <kxsim/host.hpp>

namespace {

kxsim::Adapter dual_port_q5() {
    return {
        .chip = "Q5",
        .location = "03:00.4",
        .ports = {
            {.name = "eth2",
             .mac = "00:07:43:00:00:01",
             .ipv4 = {"192.0.2.1/24"},
             .ipv6 = {"2001:db8::1/64"},
             .mtu = 9000,
             .firmware = "1.27.5.0"},
            {.name = "eth3"}}};
}

class SmallHost : public testing::Test {
protected:
    SmallHost() {
        host_.module({.name = "zfab4", .version = "3.19.0.1", .loaded = true});
        host_.adapter(dual_port_q5());
    }

    kxsim::Host host_;
};

TEST_F(SmallHost, ListsItsCard) {
    const auto attached = host_.attach();
    CardInfo card{};
    uint32_t length = 0;
    ASSERT_EQ(GetCardInfo(&card, &length), 0U);
    EXPECT_EQ(length, 555U);
    EXPECT_STREQ(card.pci_bus_location, "03:00.4");
    EXPECT_EQ(card.vendor_id, uint32_t{KESTRIX_PCI_VENDOR_ID});
    EXPECT_EQ(card.device_id, 0x5410U);
    EXPECT_EQ(card.port_count, 2U);
    EXPECT_STREQ(card.chip_type, "Q5");
}

TEST_F(SmallHost, ListsItsPortsWithTheirAddresses) {
    const auto attached = host_.attach();
    std::array<char, 2 * KX_PORT_COPY + 8> buffer{};
    uint32_t length = 0;
    ASSERT_EQ(GetPortInfo("03:00.4", buffer.data(), &length), 0U);
    EXPECT_EQ(length, 2U * KX_PORT_COPY);
    const auto* const port = reinterpret_cast<const PortInfo*>(buffer.data());
    EXPECT_STREQ(port->interface_name, "eth2");
    EXPECT_STREQ(port->mac, "00:07:43:00:00:01");
    EXPECT_STREQ(port->ipv4_address, "192.0.2.1");
    EXPECT_STREQ(port->ipv4_netmask, "255.255.255.0");
    EXPECT_STREQ(port->ipv6_address, "2001:db8::1");
    EXPECT_STREQ(port->settings.mtu, "9000");
}

TEST_F(SmallHost, IsGoneWhenItIsDetached) {
    {
        const auto attached = host_.attach();
        EXPECT_EQ(lsmod("zfab4"), 1U);
    }
    EXPECT_NE(lsmod("zfab4"), 1U);
}

}  // namespace
