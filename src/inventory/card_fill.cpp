// Filling an inventory with the groups that a mask asks for.
#include <kxlinhw/inventory.h>
#include <kxlinhw/iwarp.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/offload.h>
#include <kxlinhw/port.h>
#include <kxlinhw/statistics.h>
#include <kxlinhw/status.h>

#include <cstdio>
#include <new>
#include <string>

#include "inventory/offload_check.hpp"
#include "modules/module_list.hpp"
#include "support/cached_reading.hpp"
#include "support/text.hpp"

namespace kx::inventory {
namespace {

bool is_nic_only(const CardInfo& card) {
    return field_text(card.offload_device).starts_with("nic");
}

// Driver-module and offload parameters. The module parameters are read for every chip. When the
// offload control files of a card are missing, these parameters are lost again.
void fill_params(CardInfo& card) {
    getDriverParams(&card.params, "zfab4");
    getTOEparams(&card);
}

// The result is that of the last Q3 card; a Q4 or Q5 card without statistics does not count as a
// failure.
void fill_stats(CardInfo& card, uint32_t& result) {
    const std::string chip(field_text(card.chip_type));
    if (chip != "Q3" && chip != "Q4" && chip != "Q5") {
        card.stats = nullptr;
        return;
    }
    std::printf("Card of type: %s\n", chip.c_str());
    if (chip == "Q3") {
        const std::string device(field_text(card.offload_device));
        result = getCardStats(&card.stats, device.c_str());
    } else {
        getQ4CardStats(&card);
    }
}

// Statistics are not filled together with parameters. A chain that a card loses here is not freed,
// because an agent that fills one inventory twice may still use it.
void fill_card(CardInfo& card, uint32_t mask, uint32_t& result) {
    if (is_nic_only(card)) {
        card.stats = nullptr;
        card.params = CardParams{};
    } else if ((mask & KX_FILL_CARD_PARAMS) != 0) {
        fill_params(card);
    } else if ((mask & (KX_FILL_CARD_STATS | KX_FILL_CARD_STATS_2)) != 0) {
        fill_stats(card, result);
    } else {
        card.stats = nullptr;
    }
}

void fill_port(PortInfo& port, uint32_t mask) {
    if ((mask & KX_FILL_ADDRESSES) != 0) {
        getAddress(port.interface_name, &port);
    }
    if ((mask & KX_FILL_PORT_PARAMS) != 0) {
        getPortParameters(port.interface_name, &port);
    }
    if ((mask & KX_FILL_PORT_STATS) != 0) {
        getTxRxStats(port.interface_name, &port);
    } else {
        port.stats = nullptr;
    }
}

}  // namespace
}  // namespace kx::inventory

extern "C" {

uint32_t FillInfo_Kxcard(CardList** list, uint32_t mask) try {
    using namespace kx::inventory;
    if (list == nullptr || *list == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const kx::CachedReadingScope scope;
    if ((mask & KX_FILL_DRIVERS) != 0) {
        const uint32_t status = getDriverInfo(&(*list)->drivers);
        if (status != KX_SUCCESS) {
            return status;
        }
    }
    if (kx::modules::no_ethernet_driver_loaded()) {
        std::puts("FillInfo_Kxcard: No zfab3 or zfab4 Driver loaded");
        return KX_DRIVER_NOT_LOADED;
    }
    uint32_t result = KX_SUCCESS;
    const OffloadDevices offload_devices;
    for (CardInfo* card = (*list)->cards; card != nullptr; card = card->next) {
        const PortInfo* const first = card->ports;
        offload_devices.name_device(*card, first == nullptr ? "noPort" : first->interface_name);
        fill_card(*card, mask, result);
        for (PortInfo* port = card->ports; port != nullptr; port = port->next) {
            fill_port(*port, mask);
        }
    }
    return result;
} catch (const std::bad_alloc&) {
    return KX_NO_MEMORY;
}

}  // extern "C"
