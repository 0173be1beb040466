// Interfaces of the simulated host: requests by name, addresses, directories.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/netlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

class Network : public testing::Test {
protected:
    Network() : attached_(host_.attach()), socket_(socket(AF_INET, SOCK_DGRAM, 0)) {}
    ~Network() override { close(socket_); }

    // Returns 0 or the errno.
    int ask(const char* name, unsigned long request, void* data) const {
        ifreq asked{};
        std::strncpy(asked.ifr_name, name, IFNAMSIZ - 1);
        asked.ifr_data = static_cast<char*>(data);
        return ioctl(socket_, request, &asked) == 0 ? 0 : errno;
    }

    int set_mtu(const char* name, int mtu) const {
        ifreq asked{};
        std::strncpy(asked.ifr_name, name, IFNAMSIZ - 1);
        asked.ifr_mtu = mtu;
        return ioctl(socket_, SIOCSIFMTU, &asked) == 0 ? 0 : errno;
    }

    int driver_info(const char* name, ethtool_drvinfo& info) const {
        info = {};
        info.cmd = ETHTOOL_GDRVINFO;
        return ask(name, SIOCETHTOOL, &info);
    }

    kxsim::Host host_;
    kxsim::Attached attached_;
    int socket_;
};

TEST_F(Network, DriversTellWhatTheyAre) {
    host_.interface(
        {.name = "eth0",
         .firmware = "1.27.5.0",
         .driver = "zfab4",
         .driver_version = "3.19.0.1",
         .bus_info = "0000:03:00.4"});
    ethtool_drvinfo info;
    ASSERT_EQ(driver_info("eth0", info), 0);
    EXPECT_STREQ(info.driver, "zfab4");
    EXPECT_STREQ(info.version, "3.19.0.1");
    EXPECT_STREQ(info.fw_version, "1.27.5.0");
    EXPECT_STREQ(info.bus_info, "0000:03:00.4");
}

TEST_F(Network, AFirmwareTextMayFillItsField) {
    host_.interface({.name = "eth0", .firmware = std::string(32, 'f')});
    ethtool_drvinfo info;
    ASSERT_EQ(driver_info("eth0", info), 0);
    EXPECT_EQ(std::string(info.fw_version, 32), std::string(32, 'f'));
    EXPECT_EQ(info.bus_info[0], '\0');
}

TEST_F(Network, PortsOfAnAdapterTakeItsDriverAndItsBus) {
    host_.adapter({.chip = "Q3", .location = "05:00.0", .ports = {{.name = "eth0"}}});
    ethtool_drvinfo info;
    ASSERT_EQ(driver_info("eth0", info), 0);
    EXPECT_STREQ(info.driver, "zfab3");
    EXPECT_STREQ(info.bus_info, "0000:05:00.0");
}

TEST_F(Network, RequestsOfUnknownNamesNeverReachTheRealMachine) {
    ethtool_drvinfo info;
    EXPECT_EQ(driver_info("lo", info), ENODEV);
    EXPECT_EQ(driver_info("", info), ENODEV);
    EXPECT_EQ(set_mtu("lo", 1500), ENODEV);
    EXPECT_EQ(ask("lo", SIOCDEVPRIVATE, nullptr), ENODEV);
}

TEST_F(Network, RequestsOnWhatIsNotOpenAreRefused) {
    host_.interface({.name = "eth0"});
    ifreq asked{};
    std::strcpy(asked.ifr_name, "eth0");
    asked.ifr_mtu = 1500;
    EXPECT_EQ(ioctl(-1, SIOCSIFMTU, &asked), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Network, CommandsThatNoDriverKnowsAreNotSupported) {
    host_.interface({.name = "eth0"});
    std::uint32_t command = 0xFFFF;
    EXPECT_EQ(ask("eth0", SIOCETHTOOL, &command), EOPNOTSUPP);
}

TEST_F(Network, AnInterfaceRefusesWhatItIsToldToRefuse) {
    host_.interface({.name = "eth0"});
    host_.interface({.name = "eth1"});
    host_.refuse("eth0", ETHTOOL_GDRVINFO, EPERM);
    host_.refuse("eth0", SIOCDEVPRIVATE, EBUSY);
    ethtool_drvinfo info;
    EXPECT_EQ(driver_info("eth0", info), EPERM);
    EXPECT_EQ(driver_info("eth1", info), 0);
    EXPECT_EQ(ask("eth0", SIOCDEVPRIVATE, nullptr), EBUSY);
    host_.refuse("eth0", ETHTOOL_GDRVINFO, 0);
    EXPECT_EQ(driver_info("eth0", info), 0);
}

TEST_F(Network, ANewMtuShowsInTheInterfacesDirectory) {
    host_.interface({.name = "eth0", .mtu = 9000});
    EXPECT_EQ(host_.read("/sys/class/net/eth0/mtu"), "9000\n");
    EXPECT_EQ(set_mtu("eth0", 1400), 0);
    EXPECT_EQ(host_.mtu("eth0"), 1400U);
    EXPECT_EQ(host_.read("/sys/class/net/eth0/mtu"), "1400\n");
    EXPECT_EQ(set_mtu("eth0", 0), EINVAL);
}

TEST_F(Network, ToolsCannotAskRealDriversBehindTheHostsBack) {
    EXPECT_EQ(socket(AF_NETLINK, SOCK_RAW, NETLINK_GENERIC), -1);
    EXPECT_EQ(errno, EPROTONOSUPPORT);
}

// --- Requests that the kernel answers ---

std::string text_of(const sockaddr* address) {
    char text[INET6_ADDRSTRLEN] = "none";
    if (address != nullptr && address->sa_family == AF_INET) {
        inet_ntop(
            AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof text);
    } else if (address != nullptr && address->sa_family == AF_INET6) {
        inet_ntop(
            AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text,
            sizeof text);
    } else if (address != nullptr) {
        return "link";
    }
    return text;
}

// The answers of the real machine's loopback interface differ from those of the host's.
TEST_F(Network, TheKernelsRequestsAreAnsweredFromTheHost) {
    host_.interface({.name = "other"});
    host_.interface(
        {.name = "lo", .mac = "00:07:43:00:00:01", .ipv4 = {"192.0.2.9/25"}, .mtu = 1234});
    ifreq asked{};
    std::strcpy(asked.ifr_name, "lo");
    const auto run = [&](unsigned long request) {
        return ioctl(socket_, request, &asked) == 0 ? 0 : errno;
    };
    ASSERT_EQ(run(SIOCGIFMTU), 0);
    EXPECT_EQ(asked.ifr_mtu, 1234);
    ASSERT_EQ(run(SIOCGIFINDEX), 0);
    EXPECT_EQ(asked.ifr_ifindex, 2);
    ASSERT_EQ(run(SIOCGIFFLAGS), 0);
    EXPECT_EQ(asked.ifr_flags & (IFF_UP | IFF_LOOPBACK), IFF_UP);
    ASSERT_EQ(run(SIOCGIFHWADDR), 0);
    EXPECT_EQ(std::memcmp(asked.ifr_hwaddr.sa_data, "\0\x07\x43\0\0\1", 6), 0);
    ASSERT_EQ(run(SIOCGIFADDR), 0);
    EXPECT_EQ(text_of(&asked.ifr_addr), "192.0.2.9");
    ASSERT_EQ(run(SIOCGIFNETMASK), 0);
    EXPECT_EQ(text_of(&asked.ifr_netmask), "255.255.255.128");
    ASSERT_EQ(run(SIOCGIFBRDADDR), 0);
    EXPECT_EQ(text_of(&asked.ifr_broadaddr), "192.0.2.127");
    host_.refuse("lo", SIOCGIFMTU, EPERM);
    EXPECT_EQ(run(SIOCGIFMTU), EPERM);
    std::strcpy(asked.ifr_name, "other");
    EXPECT_EQ(run(SIOCGIFADDR), EADDRNOTAVAIL);
    std::strcpy(asked.ifr_name, "nosuch");
    EXPECT_EQ(run(SIOCGIFMTU), ENODEV);
}

TEST_F(Network, NamesAndNumbersOfInterfacesAreTheHosts) {
    host_.interface({.name = "eth0", .ipv4 = {"192.0.2.1/24", "192.0.2.2/24"}});
    host_.interface({.name = "lo", .ipv4 = {"127.0.0.1/8"}});
    EXPECT_EQ(if_nametoindex("lo"), 2U);
    EXPECT_EQ(if_nametoindex("nosuch"), 0U);
    char name[IF_NAMESIZE] = "";
    EXPECT_STREQ(if_indextoname(1, name), "eth0");
    EXPECT_EQ(if_indextoname(9, name), nullptr);
    EXPECT_EQ(errno, ENXIO);
    struct if_nameindex* const list = if_nameindex();
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list[0].if_name, "eth0");
    EXPECT_STREQ(list[1].if_name, "lo");
    EXPECT_EQ(list[2].if_name, nullptr);
    if_freenameindex(list);

    ifconf all{};
    ASSERT_EQ(ioctl(socket_, SIOCGIFCONF, &all), 0);
    EXPECT_EQ(all.ifc_len, static_cast<int>(3 * sizeof(ifreq)));
    ifreq two[2];
    all.ifc_req = two;
    all.ifc_len = sizeof two;
    ASSERT_EQ(ioctl(socket_, SIOCGIFCONF, &all), 0);
    EXPECT_EQ(all.ifc_len, static_cast<int>(sizeof two));
    EXPECT_STREQ(two[1].ifr_name, "eth0");
    EXPECT_EQ(text_of(&two[1].ifr_addr), "192.0.2.2");
}

TEST_F(Network, RequestsThatAreNotSimulatedFailWithASentence) {
    host_.interface({.name = "lo"});
    ifreq asked{};
    std::strcpy(asked.ifr_name, "lo");
    testing::internal::CaptureStderr();
    EXPECT_EQ(ioctl(socket_, SIOCSIFTXQLEN, &asked), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "kxsim: the request 0x8943 of network interfaces is not simulated, so it failed\n");
    EXPECT_EQ(ioctl(socket_, SIOCGIFMTU, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
    int bytes = -1;
    EXPECT_EQ(ioctl(socket_, FIONREAD, &bytes), 0) << "this one is about the socket";
}

// --- Addresses ---

std::vector<std::string> addresses() {
    ifaddrs* list = nullptr;
    EXPECT_EQ(getifaddrs(&list), 0);
    std::vector<std::string> lines;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        lines.push_back(
            std::string(entry->ifa_name) + " " + text_of(entry->ifa_addr) + " " +
            text_of(entry->ifa_netmask));
    }
    freeifaddrs(list);
    return lines;
}

TEST_F(Network, AddressesAreListedInTheKernelsOrder) {
    host_.interface({.name = "lo", .ipv4 = {"127.0.0.1/8"}, .ipv6 = {"::1/128"}, .loopback = true});
    host_.interface(
        {.name = "eth0", .ipv4 = {"192.0.2.1/25", "192.0.2.129/25"}, .ipv6 = {"2001:db8::1/64"}});
    EXPECT_THAT(
        addresses(), ElementsAre(
                         "lo link none", "eth0 link none", "lo 127.0.0.1 255.0.0.0",
                         "eth0 192.0.2.1 255.255.255.128", "eth0 192.0.2.129 255.255.255.128",
                         "lo ::1 ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
                         "eth0 2001:db8::1 ffff:ffff:ffff:ffff::"));
}

TEST_F(Network, AnAddressMayLackItsNetmask) {
    host_.interface({.name = "eth0", .ipv4 = {"192.0.2.1"}});
    EXPECT_THAT(addresses(), ElementsAre("eth0 link none", "eth0 192.0.2.1 none"));
}

TEST_F(Network, WithoutInterfacesTheListIsEmpty) { EXPECT_TRUE(addresses().empty()); }

TEST_F(Network, ARemovedInterfaceIsGone) {
    host_.interface({.name = "eth0"});
    host_.interface({.name = "eth1"});
    host_.remove_interface("eth0");
    ethtool_drvinfo info;
    EXPECT_EQ(driver_info("eth0", info), ENODEV);
    EXPECT_THAT(addresses(), ElementsAre("eth1 link none"));
    EXPECT_FALSE(host_.exists("/sys/class/net/eth0"));
}

// --- What the builder refuses ---

TEST_F(Network, NamesAndAddressesAreChecked) {
    host_.interface({.name = "eth0"});
    for (const kxsim::Interface& wrong : {
             kxsim::Interface{.name = "eth0"},
             {.name = ""},
             {.name = "sixteen.letters."},
             {.name = "a/b"},
             {.name = "eth1", .mac = "02:00:00:00:00"},
             {.name = "eth1", .mac = "02:00:00:00:00:0g"},
             {.name = "eth1", .ipv4 = {"192.0.2.256/24"}},
             {.name = "eth1", .ipv4 = {"192.0.2.1/33"}},
             {.name = "eth1", .ipv4 = {"2001:db8::1/64"}},
             {.name = "eth1", .ipv6 = {"2001:db8::1/129"}},
             {.name = "eth1", .ipv6 = {"2001:db8::1/x"}},
             {.name = "eth1", .firmware = std::string(33, 'f')},
             {.name = "eth1", .bus_info = std::string(33, 'b')},
         }) {
        EXPECT_THROW(host_.interface(wrong), std::invalid_argument) << wrong.name << wrong.mac;
    }
    EXPECT_FALSE(host_.exists("/sys/class/net/eth1"));
    EXPECT_THROW(host_.refuse("eth7", 1, EIO), std::invalid_argument);
}

}  // namespace
