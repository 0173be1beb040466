// An inventory's life: built afresh for every query or set call, freed at the call's end.
#include <kxlinhw/inventory.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>

#include <cstdio>
#include <new>

#include "inventory/inventory_steps.hpp"
#include "support/call_snapshot.hpp"
#include "support/handle.hpp"

namespace {

// Agents name a port by its place in the card's list, counted from 1.
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
    return FillInfo_Kxcard(&list, mask);
} catch (const std::bad_alloc&) {
    return KX_NO_MEMORY;
}

template <class Record>
void free_chain(Record* first) {
    while (first != nullptr) {
        const kx::Block<Record> record(first);
        first = record->next;
    }
}

void free_ports(PortInfo* first) {
    for (const PortInfo* port = first; port != nullptr; port = port->next) {
        free_chain(port->stats);
    }
    free_chain(first);
}

void free_cards(CardInfo* first) {
    for (const CardInfo* card = first; card != nullptr; card = card->next) {
        free_ports(card->ports);
        free_chain(card->stats);
    }
    free_chain(first);
}

}  // namespace

extern "C" {

uint32_t InitAndFillInfo_Kxcard(CardList** list, uint32_t mask) {
    if (list == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const kx::SnapshotScope scope;
    if (kx::inventory::no_ethernet_driver_loaded()) {
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
