// The steps by which InitAndFillInfo_Kxcard builds an inventory. Every record they make hangs in
// the list at once, so that Close_Kxcard frees whatever a failing step leaves.
#pragma once

#include <kxlinhw/records.h>

#include <optional>
#include <string>

namespace kx::inventory {

// Is neither Ethernet driver loaded? An unreadable module list counts as loaded.
[[nodiscard]] bool no_ethernet_driver_loaded();

// Put the maker's functions on the PCI bus into the list and count the physical ones. 0 or 66.
[[nodiscard]] uint32_t scan_cards(CardList& list);

// Attach the host's interfaces to the cards of the list. 0, 1 or 66.
[[nodiscard]] uint32_t discover_ports(CardList& list);

// The Q3 offload driver's device list, read once for all cards of a fill.
class OffloadDevices {
public:
    OffloadDevices();

    // Decide a card's offload device text by the name of its first port.
    void decide(CardInfo& card, const char* port_name) const;

private:
    bool exists_;
    std::optional<std::string> content_;
};

}  // namespace kx::inventory
