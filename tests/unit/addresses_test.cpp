// Addresses of an interface of a host whose list of addresses is the test's.
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <kxlinhw/inventory.h>
#include <kxlinhw/status.h>

#include <cstring>

#include "support/records.hpp"

namespace {

int answer = 0;

}  // namespace

// A host without any address; or one that does not tell.
extern "C" int getifaddrs(ifaddrs** first) noexcept {
    *first = nullptr;
    return answer;
}

namespace {

struct Addresses : testing::Test {
    Addresses() {
        answer = 0;
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

TEST_F(Addresses, ThatCannotBeListedAreAnError) {
    answer = -1;
    EXPECT_EQ(getAddress("no-such-interface", &port), KX_UNKNOWN_ERROR);
    expect_kept();
}

}  // namespace
