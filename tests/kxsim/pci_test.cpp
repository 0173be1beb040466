// The simulated PCI bus, read by the real libpci and the real lspci.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <array>
#include <kxsim/host.hpp>
#include <string>
#include <vector>

#include "support/shell.hpp"

namespace {

using test::lines_of;
using test::shell;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;

class Pci : public testing::Test {
protected:
    Pci() : attached_(host_.attach()) {}

    kxsim::Host host_;
    kxsim::Attached attached_;
};

TEST_F(Pci, AnEmptyBusHasNoDevice) { EXPECT_EQ(shell("lspci").output, ""); }

TEST_F(Pci, LspciListsAnAdapterByItsMakersName) {
    host_.adapter({.chip = "Q5", .location = "03:00.4"});
    EXPECT_EQ(
        shell("lspci -D").output,
        "0000:03:00.4 Ethernet controller: Kestrix Communications Q520-CR dual-port 40GbE adapter "
        "(rev 01)\n");
    EXPECT_EQ(shell("lspci -n").output, "03:00.4 0200: 4b58:5410 (rev 01)\n");
}

TEST_F(Pci, AnAdapterBringsItsSiblingsAndVirtualFunctions) {
    host_.adapter(
        {.chip = "Q4", .location = "04:00.4", .siblings = {0, 1}, .virtual_functions = 9});
    std::vector<std::string> ids;
    for (const std::string& line : lines_of(shell("lspci -Dn").output)) {
        ids.push_back(line.substr(0, 12) + " " + line.substr(19, 9));
    }
    std::vector<std::string> expected;
    for (const char* at : {"00.0", "00.1", "00.4"}) {
        expected.push_back(std::string("0000:04:") + at + " 4b58:4410");
    }
    for (const char* at :
         {"01.0", "01.1", "01.2", "01.3", "01.4", "01.5", "01.6", "01.7", "02.0"}) {
        expected.push_back(std::string("0000:04:") + at + " 4b58:4810");
    }
    EXPECT_THAT(ids, ElementsAreArray(expected));
}

TEST_F(Pci, LspciReadsEverythingThatTheConfigurationSpaceTells) {
    host_.pci_device(
        {.location = "0001:0a:1f.7",
         .vendor_id = 0x8086,
         .device_id = 0x1533,
         .subsystem_vendor_id = 0x1111,
         .subsystem_id = 0x2222,
         .revision = 3,
         .irq = 18,
         .bar0 = 0xF7C00000,
         .bar0_size = 0x20000,
         .driver = "igb"});
    const std::string output = shell("lspci -vv -n 2>&1").output;
    for (const char* part :
         {"0001:0a:1f.7 0200: 8086:1533 (rev 03)", "Subsystem: 1111:2222", "pin D routed to IRQ 18",
          "Memory at f7c00000 (64-bit, non-prefetchable) [size=128K]",
          "Capabilities: [40] Power Management version 3", "Capabilities: [50] MSI",
          "Kernel driver in use: igb"}) {
        EXPECT_THAT(output, HasSubstr(part));
    }
    EXPECT_THAT(output, Not(HasSubstr("lspci:")));
}

std::vector<std::string> card_locations() {
    std::array<CardInfo, 8> cards{};
    uint32_t length = 0;
    EXPECT_EQ(GetCardInfo(cards.data(), &length), 0U);
    std::vector<std::string> locations;
    for (uint32_t i = 0; i < length / KX_CARD_COPY; ++i) {
        const auto* const card =
            reinterpret_cast<const char*>(cards.data()) + std::size_t{i} * KX_CARD_COPY;
        locations.emplace_back(card);
    }
    return locations;
}

TEST_F(Pci, DevicesComeInTheOrderOfMakingToLibpci) {
    host_.module({.name = "zfab4", .loaded = true});
    host_.adapter({.chip = "Q5", .location = "83:00.4"});
    host_.adapter({.chip = "Q3", .location = "05:00.0"});
    host_.adapter({.chip = "Q4", .location = "04:00.4"});
    EXPECT_THAT(card_locations(), ElementsAre("83:00.4", "05:00.0", "04:00.4"));
}

TEST_F(Pci, DevicesCanBeGivenAnotherOrder) {
    host_.module({.name = "zfab4", .loaded = true});
    host_.adapter({.chip = "Q5", .location = "83:00.4"});
    host_.adapter({.chip = "Q3", .location = "05:00.0"});
    // libpci puts each that it reads in front of its list.
    host_.order("/sys/bus/pci/devices", {"0000:83:00.4", "0000:05:00.0"});
    EXPECT_THAT(card_locations(), ElementsAre("05:00.0", "83:00.4"));
}

TEST_F(Pci, ConfigurationSpaceCanBeWritten) {
    host_.adapter({.chip = "Q5", .location = "03:00.4"});
    EXPECT_EQ(shell("setpci -s 03:00.4 INTERRUPT_LINE=2a").status, 0);
    EXPECT_EQ(shell("setpci -s 03:00.4 INTERRUPT_LINE").output, "2a\n");
}

TEST_F(Pci, RegisterWindowsOfAdaptersDoNotOverlap) {
    host_.adapter({.chip = "Q5", .location = "03:00.4"});
    host_.adapter({.chip = "Q5", .location = "04:00.4"});
    const std::string output = shell("lspci -v -n 2>/dev/null | grep Memory | sort -u").output;
    EXPECT_THAT(lines_of(output), testing::SizeIs(2));
}

TEST_F(Pci, LocationsAreChecked) {
    host_.adapter({.chip = "Q5", .location = "03:00.4"});
    for (const char* wrong :
         {"", "03:00", "03:00.8", "3:0.4", "03:20.0", "03:00.4x", "0G:00.4", "03:00.4",
          "0000:03:00.4", "00000:03:00.4"}) {
        EXPECT_THROW(host_.pci_device({.location = wrong}), std::invalid_argument) << wrong;
    }
    EXPECT_THROW(host_.adapter({.chip = "Q6", .location = "04:00.4"}), std::invalid_argument);
    EXPECT_THROW(host_.port("09:00.4", {.name = "eth0"}), std::invalid_argument);
}

}  // namespace
