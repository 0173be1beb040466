// The query functions: build an inventory, copy the requested records, free the inventory.
#include <kxlinhw/inventory.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/query.h>
#include <kxlinhw/status.h>

#include <cstring>

#include "support/handle.hpp"
#include "support/text.hpp"

namespace {

using Inventory = kx::Handle<CardList, &Close_Kxcard>;

struct Chain {
    uint32_t status;    // why there is nothing to copy, or 0
    const void* first;  // may be null: there is nothing to copy, which is not a failure
    uint32_t record_size;
};

// Copy a chain into the agent's buffer. Only a chain with records needs a buffer, so an agent
// without a buffer still gets the other statuses first.
uint32_t copy_chain(const Chain& chain, void* buffer, uint32_t* length) {
    if (chain.status == KX_SUCCESS && chain.first != nullptr && buffer == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    if (chain.status == KX_SUCCESS) {
        *length = ConstructBuffer(buffer, chain.record_size, chain.first);
    }
    return chain.status;
}

// The steps that all queries share; select returns the chain of the inventory to copy.
template <class Select>
uint32_t answer(uint32_t mask, void* buffer, uint32_t* length, Select select) {
    if (length == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    *length = 0;
    CardList* list = nullptr;
    const uint32_t status = InitAndFillInfo_Kxcard(&list, mask);
    if (status != KX_SUCCESS) {
        return status;
    }
    const Inventory inventory(list);
    return copy_chain(select(list), buffer, length);
}

// Like answer, for queries about one card; a null location names no card.
template <class Select>
uint32_t answer_for_card(
    const char* location, uint32_t mask, void* buffer, uint32_t* length, Select select) {
    return answer(mask, buffer, length, [&](CardList* list) {
        CardInfo* const card = lookupCardInfo(list, location);
        return card == nullptr ? Chain{KX_NO_SUCH_DEVICE, nullptr, 0} : select(card);
    });
}

}  // namespace

extern "C" {

uint32_t GetCardInfo(void* buffer, uint32_t* length) {
    return answer(KX_FILL_CARD_PARAMS, buffer, length, [](CardList* list) {
        return Chain{KX_SUCCESS, list->cards, KX_CARD_COPY};
    });
}

uint32_t GetCardStats(const char* location, void* buffer, uint32_t* length) {
    constexpr uint32_t kMask = KX_FILL_CARD_STATS | KX_FILL_CARD_STATS_2;
    return answer_for_card(location, kMask, buffer, length, [](CardInfo* card) {
        return Chain{card->stats == nullptr ? KX_NIC_ONLY : KX_SUCCESS, card->stats, KX_STAT_COPY};
    });
}

uint32_t GetPortInfo(const char* location, void* buffer, uint32_t* length) {
    constexpr uint32_t kMask = KX_FILL_ADDRESSES | KX_FILL_PORT_PARAMS;
    return answer_for_card(location, kMask, buffer, length, [](CardInfo* card) {
        return Chain{card->ports == nullptr ? KX_NO_PORT : KX_SUCCESS, card->ports, KX_PORT_COPY};
    });
}

uint32_t GetPortStat(const char* location, uint32_t instance, void* buffer, uint32_t* length) {
    return answer_for_card(location, KX_FILL_PORT_STATS, buffer, length, [=](CardInfo* card) {
        const PortInfo* const port = lookupPortInCard(card, instance);
        return port == nullptr ? Chain{KX_INVALID_PORT, nullptr, 0}
                               : Chain{KX_SUCCESS, port->stats, KX_STAT_COPY};
    });
}

// Needs no card and no loaded driver: it reports what is installed.
uint32_t GetDriverDetails(void* buffer, uint32_t* length) {
    if (length == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    *length = 0;
    const Inventory inventory(kx::allocate_record<CardList>().release());
    if (!inventory) {
        return KX_NO_MEMORY;
    }
    const uint32_t status = getDriverInfo(&inventory->drivers);
    return copy_chain({status, inventory->drivers, KX_DRIVER_COPY}, buffer, length);
}

uint32_t ConstructBuffer(void* destination, uint32_t record_size, const void* first) {
    if (destination == nullptr) {
        return 0;
    }
    char* out = static_cast<char*>(destination);
    uint32_t total = 0;
    const char* record = static_cast<const char*>(first);
    while (record != nullptr) {
        std::memcpy(out, record, record_size);
        out += record_size;
        total += record_size;
        std::memcpy(&record, record + record_size, sizeof record);
    }
    return total;
}

CardInfo* lookupCardInfo(CardList* list, const char* location) {
    if (list == nullptr || location == nullptr) {
        return nullptr;
    }
    constexpr std::size_t kWidth = sizeof(CardInfo::pci_bus_location);
    const std::string_view wanted = kx::field_text(location, kWidth);
    CardInfo* card = list->cards;
    while (card != nullptr && kx::field_text(card->pci_bus_location) != wanted) {
        card = card->next;
    }
    return card;
}

PortInfo* lookupPortInCard(CardInfo* card, uint32_t instance) {
    PortInfo* port = card == nullptr ? nullptr : card->ports;
    while (port != nullptr && port->instance != instance) {
        port = port->next;
    }
    return port;
}

}  // extern "C"
