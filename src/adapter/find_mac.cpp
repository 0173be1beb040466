// The MAC address of a card's first port, from a new inventory.
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/inventory.h>

#include <cstdio>
#include <cstring>
#include <string_view>

#include "support/text.hpp"

namespace {

constexpr uint32_t kEveryGroup = 254;

// Fields may have no NUL: the text ends at the end of the field.
template <std::size_t N>
void print_field(const char* label, const char (&field)[N]) {
    const std::string_view text = kx::field_text(field);
    std::printf("%s%.*s\n", label, static_cast<int>(text.size()), text.data());
}

void print_card(const CardInfo& card) {
    print_field("PCILoc: ", card.pci_bus_location);
    std::printf("vendorID: %x\n", card.vendor_id);
    std::printf("deviceID: %x\n", card.device_id);
}

void print_port(const PortInfo& port, const char* location) {
    std::printf("\nPort: %d\n____________________________________\n", port.instance);
    print_field("Iface : ", port.interface_name);
    print_field("MACAddress : ", port.mac);
    std::printf(" pci_loc input param %s\n", location);
}

}  // namespace

// By contract the inventory stays in the process; nothing here frees it.
extern "C" int32_t findMac(const char* location, char* mac) {
    if (location == nullptr || mac == nullptr) {
        return 0;
    }
    CardList* list = nullptr;
    if (InitAndFillInfo_Kxcard(&list, 0) != 0) {
        return 0;
    }
    FillInfo_Kxcard(&list, kEveryGroup);
    std::printf("No of cards: %d\n", list->card_count);
    for (const CardInfo* card = list->cards; card != nullptr; card = card->next) {
        print_card(*card);
        const bool wanted = kx::field_text(card->pci_bus_location) == location;
        for (const PortInfo* port = card->ports; port != nullptr; port = port->next) {
            print_port(*port, location);
            if (wanted) {
                std::memcpy(mac, port->mac, sizeof port->mac);
                return 1;
            }
        }
    }
    return 0;
}
