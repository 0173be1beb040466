// The MAC address of a card's first port.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/adapter_lists.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <kxsim/host.hpp>
#include <string>

#include "support/output.hpp"

// By contract findMac does not free the inventory that it builds, so this is no leak.
extern "C" KX_EXPORT const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:findMac\n"; }

namespace {

class FindMac : public testing::Test {
protected:
    FindMac() {
        host_.module({.name = "zfab4", .version = "3.19.0.1", .loaded = true});
        host_.adapter(
            {.chip = "Q4",
             .location = "03:00.4",
             .ports = {
                 {.name = "eth2", .mac = "00:07:43:00:00:01"},
                 {.name = "eth3", .mac = "00:07:43:00:00:02"}}});
        host_.adapter(
            {.chip = "Q5",
             .location = "04:00.4",
             .ports = {{.name = "eth4", .mac = "00:07:43:00:00:03"}}});
        host_.adapter({.chip = "Q5", .location = "05:00.4"});
    }

    int find(const char* location) {
        const auto attached = host_.attach();
        mac_.fill('x');
        int found = -1;
        printed_ = test::printed([&] { found = findMac(location, mac_.data()); });
        return found;
    }

    kxsim::Host host_;
    std::array<char, 33> mac_{};
    std::string printed_;
};

const std::string kLine = "____________________________________\n";

std::string card(const std::string& location, const std::string& device_id) {
    return "PCILoc: " + location + "\nvendorID: 4b58\ndeviceID: " + device_id + "\n";
}

std::string port(
    const std::string& number, const std::string& name, const std::string& mac,
    const std::string& wanted) {
    return "\nPort: " + number + "\n" + kLine + "Iface : " + name + "\nMACAddress : " + mac +
           "\n pci_loc input param " + wanted + "\n";
}

TEST_F(FindMac, FirstPortOfTheCardIsFound) {
    EXPECT_EQ(find("03:00.4"), 1);
    EXPECT_STREQ(mac_.data(), "00:07:43:00:00:01");
    EXPECT_EQ(mac_[31], '\0');
    EXPECT_EQ(mac_[32], 'x') << "32 bytes are copied";
    EXPECT_THAT(
        printed_, testing::EndsWith(
                      "No of cards: 3\n" + card("03:00.4", "4410") +
                      port("1", "eth2", "00:07:43:00:00:01", "03:00.4")));
}

TEST_F(FindMac, CardsAndPortsBeforeItArePrinted) {
    EXPECT_EQ(find("04:00.4"), 1);
    EXPECT_STREQ(mac_.data(), "00:07:43:00:00:03");
    EXPECT_THAT(
        printed_, testing::EndsWith(
                      "No of cards: 3\n" + card("03:00.4", "4410") +
                      port("1", "eth2", "00:07:43:00:00:01", "04:00.4") +
                      port("2", "eth3", "00:07:43:00:00:02", "04:00.4") + card("04:00.4", "5410") +
                      port("1", "eth4", "00:07:43:00:00:03", "04:00.4")));
}

TEST_F(FindMac, CardWithoutPortOrUnknownCardIsNotFound) {
    for (const char* const location : {"05:00.4", "06:00.4", "03:00.4 ", "03:00", ""}) {
        EXPECT_EQ(find(location), 0) << location;
        EXPECT_EQ(mac_[0], 'x');
    }
}

TEST_F(FindMac, HostWithoutInventoryHasNone) {
    host_.remove("/sys/class/net");
    EXPECT_EQ(find("03:00.4"), 0);
    EXPECT_EQ(mac_[0], 'x');
}

TEST_F(FindMac, NullIsNotFound) {
    EXPECT_EQ(find(nullptr), 0);
    EXPECT_EQ(findMac("03:00.4", nullptr), 0);
}

}  // namespace
