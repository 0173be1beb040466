// The set functions: find the target in a new inventory, copy the caller's block into it, apply the
// settings of the block's change mask.
#include <kxlinhw/inventory.h>
#include <kxlinhw/iwarp.h>
#include <kxlinhw/query.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include <cstring>
#include <new>
#include <string_view>

#include "settings/detail_text.hpp"
#include "settings/module_parameter.hpp"
#include "settings/offload_settings.hpp"
#include "support/handle.hpp"
#include "support/text.hpp"

namespace kx::settings {
namespace {

using Inventory = Handle<CardList, &Close_Kxcard>;

// A new inventory, or null and the status of the failure.
Inventory build_inventory(uint32_t mask, uint32_t& status) {
    CardList* list = nullptr;
    status = InitAndFillInfo_Kxcard(&list, mask);
    return Inventory(status == KX_SUCCESS ? list : nullptr);
}

// The name of a card in messages is the text at the beginning of its record. A name that is longer
// than the location's field continues in the fields after it.
constexpr std::size_t kCardNameSize = 32;

std::string_view name_at_start(const CardInfo& card) {
    return field_text(reinterpret_cast<const char*>(&card), kCardNameSize);
}

// A group of setters, and the bits of the port change mask that select it.
struct Group {
    uint32_t bits;
    int (*apply)(const char* interface_name, PortSettings* settings, uint32_t mask);
};

// The groups after the MTU, in the order in which they run.
constexpr Group kGroups[] = {
    {KX_PORT_TSO | KX_PORT_TX_CHECKSUM | KX_PORT_RX_CHECKSUM | KX_PORT_SCATTER_GATHER | KX_PORT_GSO,
     setOffloads},
    {KX_PORT_RING_RX | KX_PORT_RING_RX_MINI | KX_PORT_RING_RX_JUMBO | KX_PORT_RING_TX,
     setRingParams},
    {KX_PORT_LINK | KX_PORT_MESSAGE_LEVEL | KX_PORT_ADVERTISE, setLinkSettings},
    {KX_PORT_RX_PAUSE | KX_PORT_TX_PAUSE | KX_PORT_PAUSE_AUTONEG, setPauseParams},
    {KX_PORT_RX_USECS, setCoalesce},
    {KX_PORT_RESTART_AUTONEG, resetAutoneg},
};

// The only message that replaces the detail text. Agents expect no blank before "failed".
bool apply_mtu(const char* interface_name, PortSettings* settings, uint32_t mask) {
    const int status = setMTU(interface_name, settings, mask);
    if (status != 0) {
        set_detail(PortMessage(
            "Set %s for interface %sfailed: %s ", "MTU", interface_name, GetErrStr(status)));
    }
    return status == 0;
}

bool apply_groups(const char* interface_name, PortSettings* settings, uint32_t mask) {
    bool good = true;
    if ((mask & KX_PORT_MTU) != 0) {
        good = apply_mtu(interface_name, settings, mask);
    }
    for (const Group& group : kGroups) {
        if ((mask & group.bits) != 0 && group.apply(interface_name, settings, mask) != 0) {
            good = false;
        }
    }
    return good;
}

}  // namespace
}  // namespace kx::settings

extern "C" {

uint32_t SetPortParam(void* portRecord, char* cardLocation, int portIndex) {
    using namespace kx::settings;
    if (portRecord == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    uint32_t status = KX_SUCCESS;
    const Inventory inventory = build_inventory(KX_FILL_ADDRESSES, status);
    if (!inventory) {
        return status;
    }
    CardInfo* const card = lookupCardInfo(inventory.get(), cardLocation);
    if (card == nullptr) {
        return KX_NO_SUCH_DEVICE;
    }
    PortInfo* const port = lookupPortInCard(card, static_cast<uint32_t>(portIndex));
    if (port == nullptr) {
        return KX_INVALID_PORT;
    }
    auto* const record = static_cast<PortInfo*>(portRecord);
    std::memcpy(record->interface_name, port->interface_name, sizeof record->interface_name);
    std::memcpy(record->mac, port->mac, sizeof record->mac);
    std::memcpy(&port->settings, &record->settings, sizeof port->settings);
    return setPortParams(port);
}

uint32_t SetCardParam(void* cardBlock, char* cardLocation) {
    using namespace kx::settings;
    if (cardBlock == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    uint32_t status = KX_SUCCESS;
    const Inventory inventory = build_inventory(0, status);
    if (!inventory) {
        return status;
    }
    CardInfo* const card = lookupCardInfo(inventory.get(), cardLocation);
    if (card == nullptr) {
        return KX_NO_SUCH_DEVICE;
    }
    std::memcpy(&card->params, cardBlock, sizeof card->params);
    return setCardParams(card);
}

uint32_t setPortParams(PortInfo* port) {
    using namespace kx::settings;
    if (port == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const uint32_t mask = port->settings.change_mask;
    const kx::TerminatedText interface_name(port->interface_name);
    clear_detail();
    return apply_groups(interface_name.c_str(), &port->settings, mask) ? KX_SUCCESS : KX_SET_FAILED;
}

uint32_t setCardParams(CardInfo* card) try {
    using namespace kx::settings;
    if (card == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const uint32_t mask = card->params.change_mask;
    name_card_in_messages(name_at_start(*card));
    clear_detail();
    uint32_t status = KX_SUCCESS;
    if ((mask & KX_CARD_OFFLOAD_BITS) != 0) {
        const auto applied = apply_offload_settings(*card, mask);
        if (!applied) {
            return KX_SET_FAILED;
        }
        status = *applied;
    }
    if ((mask & ~uint32_t{KX_CARD_OFFLOAD_BITS}) != 0) {
        status |= setDriverParams(&card->params, mask, kEthernetDriver);
    }
    return status;
} catch (const std::bad_alloc&) {
    return KX_SET_FAILED;
}

PortInfo* lookupPortInfo(CardList* list, char* cardLocation, uint32_t portNumber) {
    return lookupPortInCard(lookupCardInfo(list, cardLocation), portNumber);
}

int isBool(int v) { return v == 0 || v == 1 ? 1 : 0; }

}  // extern "C"
