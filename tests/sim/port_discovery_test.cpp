// Which interfaces become ports of which card, and in what order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <linux/ethtool.h>

#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/records.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kCard[] = "03:00.4";

struct HostWithCard : kxsim::Host {
    HostWithCard() {
        module({.name = "zfab4", .loaded = true});
        adapter({.chip = "Q5", .location = kCard});
    }
};

kxsim::Interface interface_on(const std::string& name, const std::string& bus_info) {
    return {.name = name, .bus_info = bus_info};
}

// "1 eth2" for each port of a card, in the order of the answer.
std::vector<std::string> ports_of(const char* location) {
    return test::each(test::port_info(location).records, [](const PortInfo& port) {
        return std::to_string(port.instance) + " " + test::text(port.interface_name);
    });
}

// The ports of one card that has these interfaces, found in this order.
std::vector<std::string> ports_from(const std::vector<std::string>& names) {
    HostWithCard host;
    for (const std::string& name : names) {
        host.interface(interface_on(name, "0000:03:00.4"));
    }
    const auto attached = host.attach();
    return ports_of(kCard);
}

TEST(Ports, AreNumberedFromOneInAscendingOrderOfTheInterfaceNumber) {
    EXPECT_THAT(ports_from({"eth10", "eth2"}), ElementsAre("1 eth2", "2 eth10"));
    EXPECT_THAT(
        ports_from({"eth3", "eth1", "eth2", "eth0"}),
        ElementsAre("1 eth0", "2 eth1", "3 eth2", "4 eth3"));
}

TEST(Ports, WithOtherNamesStandBehindAllEthPorts) {
    EXPECT_THAT(
        ports_from({"ens1f4", "eth7", "eth200"}), ElementsAre("1 eth7", "2 eth200", "3 ens1f4"));
}

TEST(Ports, OfEqualNumberGoBehindTheHeadOrBeforeTheirEquals) {
    EXPECT_THAT(ports_from({"ens1", "ens2", "ens3"}), ElementsAre("1 ens1", "2 ens3", "3 ens2"));
    EXPECT_THAT(
        ports_from({"eth1", "ens1", "ens2", "ens3"}),
        ElementsAre("1 eth1", "2 ens3", "3 ens2", "4 ens1"));
    EXPECT_THAT(
        ports_from({"ens1", "ens2", "eth1", "ens3"}),
        ElementsAre("1 eth1", "2 ens3", "3 ens1", "4 ens2"));
}

TEST(Ports, AreOrderedByTheLowByteOfTheirNumber) {
    EXPECT_THAT(ports_from({"eth50", "eth300"}), ElementsAre("1 eth300", "2 eth50"));
}

TEST(Ports, OfEthTwoHundredFiftyFiveCountAsUnnumbered) {
    EXPECT_THAT(ports_from({"ens1", "eth255"}), ElementsAre("1 ens1", "2 eth255"));
}

TEST(Ports, InAnyNumberKeepTheOrderThatAWalkOfTheListWouldGive) {
    std::vector<std::string> names;
    std::vector<std::pair<int, std::string>> walked;  // the same rule, written differently
    for (int k = 0; k < 200; ++k) {
        const int number = k % 5 == 0 ? 255 : (k * 7919) % 41;
        const std::string name =
            k % 5 == 0 ? "ens" + std::to_string(k) : "eth" + std::to_string(number + 256 * k);
        names.push_back(name);
        auto place = walked.begin();
        if (!walked.empty() && number >= walked.front().first) {
            ++place;
            while (place != walked.end() && place->first < number) {
                ++place;
            }
        }
        walked.emplace(place, number, name);
    }
    std::vector<std::string> expected;
    for (const auto& [number, name] : walked) {
        expected.push_back(std::to_string((expected.size() + 1) % 256) + " " + name);
    }
    EXPECT_EQ(ports_from(names), expected);
}

TEST(Ports, OfStackedInterfacesAreLeftOut) {
    EXPECT_THAT(
        ports_from({"eth0.100", "vlan5", "bond0", "myvlan", "mybond", "eth1"}),
        ElementsAre("1 eth1"));
}

TEST(Ports, GoToTheCardOfTheirBus) {
    HostWithCard host;
    host.adapter({.chip = "Q4", .location = "04:00.4"});
    host.interface(interface_on("eth0", "0000:04:00.4"));
    host.interface(interface_on("eth1", "0000:03:00.4"));
    host.interface(interface_on("eth2", "0000:04:00.4"));
    const auto attached = host.attach();
    EXPECT_THAT(ports_of("03:00.4"), ElementsAre("1 eth1"));
    EXPECT_THAT(ports_of("04:00.4"), ElementsAre("1 eth0", "2 eth2"));
}

TEST(Ports, DomainOfTheBusIsDroppedWhateverItIs) {
    HostWithCard host;
    host.interface(interface_on("eth0", "0001:03:00.4"));
    host.interface(interface_on("eth1", "xxxxx03:00.4"));
    const auto attached = host.attach();
    EXPECT_THAT(ports_of(kCard), ElementsAre("1 eth0", "2 eth1"));
}

TEST(Ports, OfNoCardAreLeftOut) {
    HostWithCard host;
    int number = 0;
    for (const char* bus :
         {"0000:03:00.0", "03:00.4", "", "0000", "0000:", "0000:03:00.40", "0000:3:0.4"}) {
        host.interface(interface_on("eth" + std::to_string(number++), bus));
    }
    const auto attached = host.attach();
    EXPECT_EQ(test::port_info(kCard).status, 72U);
}

TEST(Ports, BusTextThatFillsItsFieldIsReadNoFurther) {
    HostWithCard host;
    host.interface(interface_on("eth0", std::string(32, '0')));
    const auto attached = host.attach();
    EXPECT_EQ(test::port_info(kCard).status, 72U);
}

TEST(Ports, WhoseDriverDoesNotAnswerAreLeftOut) {
    HostWithCard host;
    host.interface(interface_on("eth0", "0000:03:00.4"));
    host.interface(interface_on("eth1", "0000:03:00.4"));
    host.refuse("eth0", ETHTOOL_GDRVINFO, EOPNOTSUPP);
    const auto attached = host.attach();
    EXPECT_THAT(ports_of(kCard), ElementsAre("1 eth1"));
}

TEST(Ports, CannotBeFoundWithoutASocket) {
    HostWithCard host;
    host.interface(interface_on("eth0", "0000:03:00.4"));
    const auto attached = host.attach();
    host.fail({.call = "socket", .times = 0, .error = EMFILE});
    EXPECT_EQ(test::port_info(kCard).status, 72U);
}

TEST(Ports, RaiseTheCardsPortCount) {
    HostWithCard host;
    host.interface(interface_on("eth0", "0000:03:00.4"));
    host.interface(interface_on("eth1", "0000:03:00.4"));
    const auto attached = host.attach();
    EXPECT_EQ(+test::card_info().records.at(0).port_count, 2);
}

TEST(Ports, CardHoldsTheFirmwareTextOfThePortAttachedLast) {
    HostWithCard host;
    host.interface({.name = "eth5", .firmware = "1.0.0.0", .bus_info = "0000:03:00.4"});
    host.interface({.name = "eth2", .firmware = std::string(32, 'f'), .bus_info = "0000:03:00.4"});
    const auto attached = host.attach();
    EXPECT_EQ(test::text(test::card_info().records.at(0).firmware), std::string(32, 'f'));
}

TEST(Ports, AreMarkedAsDiscovered) {
    HostWithCard host;
    host.interface(interface_on("eth0", "0000:03:00.4"));
    const auto attached = host.attach();
    EXPECT_EQ(test::port_info(kCard).records.at(0).settings.state, 2);
}

TEST(Ports, KeepTheUpperBytesOfTheirNumberUntilAQueryWritesThere) {
    HostWithCard host;
    host.interface(interface_on("eth66051", "0000:03:00.4"));  // 0x00010203
    const auto attached = host.attach();
    CardList* list = nullptr;
    ASSERT_EQ(InitAndFillInfo_Kxcard(&list, 0), 0U);
    const PortInfo& port = *list->cards->ports;
    EXPECT_EQ(port.instance, 1);
    EXPECT_EQ(port.link_detected, 2);
    EXPECT_EQ(port.mac[0], 1);
    EXPECT_EQ(port.mac[1], 0);
    Close_Kxcard(list);
}

TEST(Ports, NameOfFifteenCharactersIsAskedForWhole) {
    EXPECT_THAT(ports_from({"kx0123456789abc"}), ElementsAre("1 kx0123456789abc"));
}

TEST(Ports, DiscoveryOpensOneSocketAndReadsTheDirectoryOnce) {
    HostWithCard host;
    for (int k = 0; k < 50; ++k) {
        host.interface(interface_on("eth" + std::to_string(k), "0000:03:00.4"));
    }
    const auto attached = host.attach();
    CardList* list = nullptr;
    const auto calls = host.count([&] { InitAndFillInfo_Kxcard(&list, 0); });
    EXPECT_EQ(calls["socket"], 1U);
    EXPECT_EQ(calls["ioctl"], 50U);
    EXPECT_EQ(calls.on("opendir", "/sys/class/net"), 1U);
    Close_Kxcard(list);
}

}  // namespace
