// Addresses, MAC and MTU of a port.
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <cstring>
#include <kxsim/host.hpp>
#include <string>

#include "support/records.hpp"

namespace {

using test::text;

PortInfo addresses_of(const kxsim::Interface& interface) {
    kxsim::Host host;
    host.interface(interface);
    const auto attached = host.attach();
    PortInfo port{};
    EXPECT_EQ(getAddress(interface.name.c_str(), &port), 0U);
    return port;
}

TEST(Addresses, AreTextsOfTheInterfacesOwn) {
    kxsim::Host host;
    host.interface({.name = "eth1", .mac = "00:07:43:00:00:01", .ipv4 = {"192.0.2.1/24"}});
    host.interface(
        {.name = "eth2",
         .mac = "00:07:43:00:00:02",
         .ipv4 = {"198.51.100.7/20"},
         .ipv6 = {"2001:db8::7/64"},
         .mtu = 9000});
    const auto attached = host.attach();
    PortInfo port{};
    EXPECT_EQ(getAddress("eth2", &port), 0U);
    EXPECT_EQ(text(port.mac), "00:07:43:00:00:02");
    EXPECT_EQ(text(port.ipv4_address), "198.51.100.7");
    EXPECT_EQ(text(port.ipv4_netmask), "255.255.240.0");
    EXPECT_EQ(text(port.ipv6_address), "2001:db8::7");
    EXPECT_EQ(text(port.settings.mtu), "9000");
}

TEST(Addresses, LastOfAFamilyWins) {
    const PortInfo port = addresses_of(
        {.name = "eth1",
         .ipv4 = {"192.0.2.1/24", "198.51.100.2/25"},
         .ipv6 = {"2001:db8::1/64", "fe80::2/64"}});
    EXPECT_EQ(text(port.ipv4_address), "198.51.100.2");
    EXPECT_EQ(text(port.ipv4_netmask), "255.255.255.128");
    EXPECT_EQ(text(port.ipv6_address), "fe80::2");
}

// A text that was cut off would be the address of another host.
TEST(Addresses, Ipv6TextThatDoesNotFitDoesNotCount) {
    constexpr char kLong[] = "2001:db8:1111:2222:3333:4444:5555:6666/64";
    const PortInfo alone = addresses_of({.name = "eth1", .ipv6 = {kLong}});
    EXPECT_EQ(text(alone.ipv6_address), "");
    EXPECT_EQ(text(alone.supported_connectors), "");
    const PortInfo behind =
        addresses_of({.name = "eth1", .ipv6 = {"2001:db8::1/64", "fe80::2/64", kLong}});
    EXPECT_EQ(text(behind.ipv6_address), "fe80::2");
    const PortInfo before = addresses_of({.name = "eth1", .ipv6 = {kLong, "2001:db8::1/64"}});
    EXPECT_EQ(text(before.ipv6_address), "2001:db8::1");
}

TEST(Addresses, Ipv6TextOfThirtyOneCharactersIsTheLongestThatFits) {
    const PortInfo longest =
        addresses_of({.name = "eth1", .ipv6 = {"2001:db8:1:22:333:4444:555:6666/64"}});
    EXPECT_EQ(text(longest.ipv6_address), "2001:db8:1:22:333:4444:555:6666");
    EXPECT_EQ(text(longest.ipv6_address).size(), 31U);
    const PortInfo longer =
        addresses_of({.name = "eth1", .ipv6 = {"2001:db8:1:22:333:4444:5555:6666/64"}});
    EXPECT_EQ(text(longer.ipv6_address), "");
}

TEST(Addresses, InterfaceWithoutAddressHasEmptyTexts) {
    kxsim::Host host;
    host.interface({.name = "eth1", .ipv4 = {"192.0.2.1/24"}, .ipv6 = {"2001:db8::1/64"}});
    host.interface({.name = "eth2"});
    const auto attached = host.attach();
    PortInfo port{};
    std::strcpy(port.ipv4_address, "old");
    std::strcpy(port.ipv4_netmask, "old");
    std::strcpy(port.ipv6_address, "old");
    EXPECT_EQ(getAddress("eth2", &port), 0U);
    EXPECT_EQ(text(port.ipv4_address), "");
    EXPECT_EQ(text(port.ipv4_netmask), "");
    EXPECT_EQ(text(port.ipv6_address), "");
}

TEST(Addresses, UnreadableListIsAFailureBeforeAnyFileIsRead) {
    kxsim::Host host;
    host.interface({.name = "eth1", .mac = "00:07:43:00:00:01"});
    const auto attached = host.attach();
    host.fail({.call = "getifaddrs", .error = ENOBUFS});
    PortInfo port{};
    EXPECT_EQ(getAddress("eth1", &port), 1U);
    EXPECT_EQ(text(port.mac), "");
    EXPECT_EQ(text(port.settings.mtu), "");
}

TEST(Addresses, MissingAndEmptyFilesLeaveTheirFields) {
    for (const bool missing : {true, false}) {
        kxsim::Host host;
        host.interface({.name = "eth1"});
        for (const char* path : {"/sys/class/net/eth1/address", "/sys/class/net/eth1/mtu"}) {
            missing ? host.remove(path) : host.file(path, "");
        }
        const auto attached = host.attach();
        PortInfo port{};
        std::strcpy(port.mac, "mac");
        std::strcpy(port.settings.mtu, "mtu");
        EXPECT_EQ(getAddress("eth1", &port), 0U);
        EXPECT_EQ(text(port.mac), "mac");
        EXPECT_EQ(text(port.settings.mtu), "mtu");
    }
}

TEST(Addresses, LongFilesAreCutToTheirFields) {
    kxsim::Host host;
    host.interface({.name = "eth1"});
    host.file("/sys/class/net/eth1/address", std::string(100, 'a') + "\n");
    host.file("/sys/class/net/eth1/mtu", "123456789012345678901234\n");
    const auto attached = host.attach();
    PortInfo port{};
    EXPECT_EQ(getAddress("eth1", &port), 0U);
    EXPECT_EQ(text(port.mac), std::string(31, 'a'));
    EXPECT_EQ(text(port.ipv4_address), "");
    EXPECT_EQ(text(port.settings.mtu), "1234567");
    EXPECT_EQ(text(port.settings.tx_checksum), "");
}

TEST(Addresses, OnlyTheFirstLineCounts) {
    kxsim::Host host;
    host.interface({.name = "eth1"});
    host.file("/sys/class/net/eth1/address", "aa:bb\ncc:dd\n");
    host.file("/sys/class/net/eth1/mtu", "1500\n9000\n");
    const auto attached = host.attach();
    PortInfo port{};
    EXPECT_EQ(getAddress("eth1", &port), 0U);
    EXPECT_EQ(text(port.mac), "aa:bb");
    EXPECT_EQ(text(port.settings.mtu), "1500");
}

TEST(Addresses, FileWithoutNewlineLosesNothing) {
    kxsim::Host host;
    host.interface({.name = "eth1"});
    host.file("/sys/class/net/eth1/mtu", "1500");
    const auto attached = host.attach();
    PortInfo port{};
    EXPECT_EQ(getAddress("eth1", &port), 0U);
    EXPECT_EQ(text(port.settings.mtu), "1500");
}

TEST(Addresses, OfManyPortsTakeOneReadingOfTheHostsAddresses) {
    kxsim::Host host;
    host.module({.name = "zfab4", .loaded = true});
    host.adapter({.chip = "Q5", .location = "03:00.4"});
    for (int k = 0; k < 20; ++k) {
        host.interface({.name = "eth" + std::to_string(k), .bus_info = "0000:03:00.4"});
    }
    const auto attached = host.attach();
    CardList* list = nullptr;
    const auto calls =
        host.count([&] { EXPECT_EQ(InitAndFillInfo_Kxcard(&list, KX_FILL_ADDRESSES), 0U); });
    EXPECT_EQ(calls["getifaddrs"], 1U);
    Close_Kxcard(list);
}

TEST(Addresses, AloneAreReadAfreshByEveryCall) {
    kxsim::Host host;
    host.interface({.name = "eth1", .ipv4 = {"192.0.2.1/24"}});
    const auto attached = host.attach();
    PortInfo port{};
    const auto calls = host.count([&] {
        getAddress("eth1", &port);
        getAddress("eth1", &port);
    });
    EXPECT_EQ(calls["getifaddrs"], 2U);
}

TEST(Addresses, NullArgumentsAreRefused) {
    PortInfo port{};
    EXPECT_EQ(getAddress(nullptr, &port), 317U);
    EXPECT_EQ(getAddress("eth1", nullptr), 317U);
}

}  // namespace
