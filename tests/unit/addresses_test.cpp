// Addresses of an interface; the test provides the host's list of addresses.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <kxlinhw/export.h>
#include <kxlinhw/inventory.h>
#include <kxlinhw/status.h>

#include <cstring>

#include "support/records.hpp"

namespace {

int answer = 0;
ifaddrs* list = nullptr;

}  // namespace

// A host without any address, or with the test's, or one that gives no list.
extern "C" KX_EXPORT int getifaddrs(ifaddrs** first) noexcept {
    *first = list;
    return answer;
}
extern "C" KX_EXPORT void freeifaddrs(ifaddrs*) noexcept {}

namespace {

struct Addresses : testing::Test {
    Addresses() {
        answer = 0;
        list = nullptr;
        std::strcpy(port.ipv4_address, "192.0.2.1");
        std::strcpy(port.ipv4_netmask, "255.255.255.0");
        std::strcpy(port.ipv6_address, "2001:db8::1");
    }

    void expect_kept() const {
        EXPECT_EQ(test::text(port.ipv4_address), "192.0.2.1");
        EXPECT_EQ(test::text(port.ipv4_netmask), "255.255.255.0");
        EXPECT_EQ(test::text(port.ipv6_address), "2001:db8::1");
    }

    PortInfo port{};
};

TEST_F(Addresses, OfThePortStayWhenTheHostHasNoEntryAtAll) {
    EXPECT_EQ(getAddress("no-such-interface", &port), KX_SUCCESS);
    expect_kept();
}

// A label belongs to the name: the host lists such an address as that of another interface.
TEST_F(Addresses, OfALabelAreNotThoseOfItsInterface) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    inet_pton(AF_INET, "192.0.2.7", &own.sin_addr);
    sockaddr_in labelled = own;
    inet_pton(AF_INET, "198.51.100.9", &labelled.sin_addr);
    char name[] = "eth2";
    char label[] = "eth2:1";
    ifaddrs entries[2]{};
    entries[0].ifa_name = name;
    entries[0].ifa_addr = reinterpret_cast<sockaddr*>(&own);
    entries[0].ifa_next = &entries[1];
    entries[1].ifa_name = label;
    entries[1].ifa_addr = reinterpret_cast<sockaddr*>(&labelled);
    list = entries;
    EXPECT_EQ(getAddress("eth2", &port), KX_SUCCESS);
    EXPECT_EQ(test::text(port.ipv4_address), "192.0.2.7");
    EXPECT_EQ(getAddress("eth2:1", &port), KX_SUCCESS);
    EXPECT_EQ(test::text(port.ipv4_address), "198.51.100.9");
}

TEST_F(Addresses, ThatCannotBeListedAreAnError) {
    answer = -1;
    EXPECT_EQ(getAddress("no-such-interface", &port), KX_UNKNOWN_ERROR);
    expect_kept();
}

}  // namespace
