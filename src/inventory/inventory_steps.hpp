// The steps of InitAndFillInfo_Kxcard, which build an inventory. Each step links a new record into
// the list at once, so that Close_Kxcard frees everything when a later step fails.
#pragma once

#include <kxlinhw/records.h>

#include <optional>
#include <string>

namespace kx::inventory {

// Add the maker's functions on the PCI bus to the list, and count the physical functions. Returns 0
// or 66.
[[nodiscard]] uint32_t scan_cards(CardList& list);

// Attach the host's interfaces to the cards of the list. Returns 0, 1 or 66.
[[nodiscard]] uint32_t discover_ports(CardList& list);

// The Q3 offload driver's device list, read once for all cards of a fill.
class OffloadDevices {
public:
    OffloadDevices();

    // Set a card's offload device text from the name of its first port.
    void decide(CardInfo& card, const char* port_name) const;

private:
    bool exists_;
    std::optional<std::string> content_;
};

}  // namespace kx::inventory
