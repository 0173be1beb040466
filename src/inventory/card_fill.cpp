// Filling an inventory with the groups that a mask asks for.
#include <kxlinhw/inventory.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>

#include <cstdio>
#include <new>
#include <string_view>

#include "inventory/inventory_steps.hpp"
#include "support/call_snapshot.hpp"
#include "support/text.hpp"

namespace kx::inventory {
namespace {

bool is_nic_only(const CardInfo& card) {
    return field_text(card.offload_device).starts_with("nic");
}

void fill_card(CardInfo& card) {
    card.stats = nullptr;
    if (is_nic_only(card)) {
        card.params = CardParams{};
    }
}

void fill_port(PortInfo& port, uint32_t mask) {
    if ((mask & KX_FILL_ADDRESSES) != 0) {
        getAddress(port.interface_name, &port);
    }
    port.stats = nullptr;
}

}  // namespace

bool no_ethernet_driver_loaded() { return isZfab3Loaded() == 0 && isZfab4Loaded() == 0; }

}  // namespace kx::inventory

extern "C" {

uint32_t FillInfo_Kxcard(CardList** list, uint32_t mask) try {
    using namespace kx::inventory;
    if (list == nullptr || *list == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const kx::SnapshotScope scope;
    if ((mask & KX_FILL_DRIVERS) != 0) {
        const uint32_t status = getDriverInfo(&(*list)->drivers);
        if (status != KX_SUCCESS) {
            return status;
        }
    }
    if (no_ethernet_driver_loaded()) {
        std::puts("FillInfo_Kxcard: No zfab3 or zfab4 Driver loaded");
        return KX_DRIVER_NOT_LOADED;
    }
    const OffloadDevices offload_devices;
    for (CardInfo* card = (*list)->cards; card != nullptr; card = card->next) {
        const PortInfo* const first = card->ports;
        offload_devices.decide(*card, first == nullptr ? "noPort" : first->interface_name);
        fill_card(*card);
        for (PortInfo* port = card->ports; port != nullptr; port = port->next) {
            fill_port(*port, mask);
        }
    }
    return KX_SUCCESS;
} catch (const std::bad_alloc&) {
    return KX_NO_MEMORY;
}

}  // extern "C"
