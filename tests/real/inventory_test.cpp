// The inventory of the machine that runs the tests, compared with lspci, ethtool and ip.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/records.hpp"
#include "support/shell.hpp"

// Replaces the library's function: no machine that runs the tests has the drivers loaded.
extern "C" uint32_t lsmod(const char*) { return 1; }

namespace {

using Fields = std::map<std::string, std::string>;

// What lspci shows for the devices of the library's maker, by location without the domain.
std::map<std::string, Fields> lspci_devices() {
    std::map<std::string, Fields> devices;
    Fields device;
    const auto take = [&] {
        if (!device.empty() &&
            std::stoul(device.at("Vendor"), nullptr, 16) == KESTRIX_PCI_VENDOR_ID) {
            devices[device.at("Slot").substr(5)] = device;
        }
        device.clear();
    };
    for (const std::string& line : test::lines_of(test::shell("lspci -Dnvmm 2>/dev/null").output)) {
        const std::size_t colon = line.find(":\t");
        if (colon == std::string::npos) {
            take();
        } else {
            device[line.substr(0, colon)] = line.substr(colon + 2);
        }
    }
    take();
    return devices;
}

// The number behind "IRQ" in lspci's description of a device; 0 when it names none.
uint32_t lspci_irq(const std::string& location) {
    const std::string text = test::shell("lspci -v -s " + location + " 2>/dev/null").output;
    const std::size_t irq = text.find("IRQ ");
    return irq == std::string::npos ? 0 : static_cast<uint32_t>(std::stoul(text.substr(irq + 4)));
}

Fields ethtool_driver(const std::string& interface_name) {
    Fields fields;
    for (const std::string& line :
         test::lines_of(test::shell("ethtool -i " + interface_name + " 2>/dev/null").output)) {
        const std::size_t colon = line.find(": ");
        if (colon != std::string::npos) {
            fields[line.substr(0, colon)] = line.substr(colon + 2);
        }
    }
    return fields;
}

std::string netmask_text(int prefix_length) {
    const in_addr mask{htonl(prefix_length == 0 ? 0 : ~0U << (32 - prefix_length))};
    return inet_ntoa(mask);
}

std::vector<CardInfo> cards() { return test::card_info().records; }

class HostInventory : public testing::Test {
protected:
    void SetUp() override {
        if (lspci_devices().empty()) {
            GTEST_SKIP() << "this machine has no PCI network adapter to list";
        }
    }
};

TEST_F(HostInventory, CardsAreTheFirstFunctionsOfTheMakersDevicesAsLspciListsThem) {
    const auto devices = lspci_devices();
    for (const CardInfo& card : cards()) {
        ASSERT_TRUE(devices.contains(card.pci_bus_location)) << card.pci_bus_location;
        const Fields& device = devices.at(card.pci_bus_location);
        EXPECT_EQ(+card.vendor_id, std::stoul(device.at("Vendor"), nullptr, 16));
        EXPECT_EQ(+card.device_id, std::stoul(device.at("Device"), nullptr, 16));
        EXPECT_EQ(+card.pci_class, std::stoul(device.at("Class"), nullptr, 16));
        EXPECT_EQ(+card.irq, lspci_irq(card.pci_bus_location));
    }
    std::map<std::string, int> slots;  // bus and device, without the function
    for (const auto& [location, device] : devices) {
        slots[location.substr(0, location.find('.'))] = 1;
    }
    EXPECT_EQ(cards().size(), slots.size());
}

TEST_F(HostInventory, PortsCarryWhatEthtoolAndIpSay) {
    int found = 0;
    for (const CardInfo& card : cards()) {
        if (card.port_count == 0) {
            continue;
        }
        for (const PortInfo& port : test::port_info(card.pci_bus_location).records) {
            ++found;
            const std::string name = port.interface_name;
            const Fields driver = ethtool_driver(name);
            EXPECT_EQ("0000:" + std::string(card.pci_bus_location), driver.at("bus-info"));
            EXPECT_EQ(card.firmware, driver.at("firmware-version"));

            const auto link = nlohmann::json::parse(
                test::shell("ip -j addr show " + name + " 2>/dev/null").output)[0];
            EXPECT_EQ(port.mac, link.at("address").get<std::string>());
            EXPECT_EQ(port.settings.mtu, std::to_string(link.at("mtu").get<int>()));
            std::string ipv4;
            std::string netmask;
            std::string ipv6;
            for (const auto& address : link.at("addr_info")) {
                if (address.at("family") == "inet") {
                    ipv4 = address.at("local");
                    netmask = netmask_text(address.at("prefixlen"));
                } else {
                    ipv6 = address.at("local");
                }
            }
            EXPECT_EQ(port.ipv4_address, ipv4) << "the last address of a family wins";
            EXPECT_EQ(port.ipv4_netmask, netmask);
            EXPECT_EQ(port.ipv6_address, ipv6.substr(0, 31));
        }
    }
    if (found == 0) {
        GTEST_SKIP() << "no interface of this machine reports the bus of its adapter";
    }
}

}  // namespace
