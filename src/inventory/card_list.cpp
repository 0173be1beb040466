// Building and freeing an inventory. Every query and set call builds a new one and frees it at the
// end.
#include <kxlinhw/inventory.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>

#include <cstdio>
#include <new>

#include "inventory/pci_scan.hpp"
#include "inventory/port_discovery.hpp"
#include "modules/module_list.hpp"
#include "support/cached_reading.hpp"
#include "support/chain.hpp"

namespace {

// Agents name a port by its position in the card's list, counted from 1.
void number_ports(const CardList& list) {
    for (const CardInfo* card = list.cards; card != nullptr; card = card->next) {
        uint8_t number = 0;
        for (PortInfo* port = card->ports; port != nullptr; port = port->next) {
            port->instance = ++number;
        }
    }
}

uint32_t build(CardList*& list, uint32_t mask) try {
    using namespace kx::inventory;
    if (const uint32_t status = scan_cards(*list); status != KX_SUCCESS) {
        return status;
    }
    if (const uint32_t status = discover_ports(*list); status != KX_SUCCESS) {
        return status;
    }
    number_ports(*list);
    if (list->card_count == 0) {
        return KX_NO_CARDS;
    }
    // The status of a build is cut to one byte, whichever function fills the list.
    return static_cast<uint8_t>(FillInfo_Kxcard(&list, mask));
} catch (const std::bad_alloc&) {
    return KX_NO_MEMORY;
}

void free_ports(PortInfo* first) {
    kx::free_chain(first, [](const PortInfo& port) { kx::free_chain(port.stats); });
}

void free_cards(CardInfo* first) {
    kx::free_chain(first, [](const CardInfo& card) {
        free_ports(card.ports);
        kx::free_chain(card.stats);
    });
}

}  // namespace

extern "C" {

uint32_t InitAndFillInfo_Kxcard(CardList** list, uint32_t mask) {
    if (list == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const kx::CachedReadingScope scope;
    if (kx::modules::no_ethernet_driver_loaded()) {
        std::puts("InitAndFillInfo_Kxcard: No zfab3 or zfab4 Driver loaded");
        return KX_DRIVER_NOT_LOADED;
    }
    *list = kx::allocate_record<CardList>().release();
    if (*list == nullptr) {
        return KX_NO_MEMORY;
    }
    const uint32_t status = build(*list, mask);
    if (status != KX_SUCCESS) {
        Close_Kxcard(*list);
        *list = nullptr;
    }
    return status;
}

uint32_t Close_Kxcard(CardList* list) {
    const kx::Block<CardList> header(list);
    if (header) {
        free_cards(header->cards);
        freelist(header->drivers);
    }
    return KX_SUCCESS;
}

}  // extern "C"
