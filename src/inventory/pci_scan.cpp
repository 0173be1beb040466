// Makes the cards of an inventory from the functions on the PCI bus.
//
// The host of the adapters sees physical functions, a guest only virtual functions. The list
// contains the physical functions. Virtual functions are kept aside and added only when there is no
// physical function. The count is 0 then, so the caller knows that there is no card to manage.
#include "inventory/pci_scan.hpp"

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

extern "C" {
#include <pci/pci.h>
}

#include <kxlinhw/status.h>

#include "support/chain.hpp"
#include "support/handle.hpp"
#include "support/pci_bus.hpp"
#include "support/products.hpp"
#include "support/text.hpp"

namespace kx::inventory {
namespace {

constexpr uint16_t kVirtualFunctionBit = 0x800;
constexpr uint8_t kManagedFunction = 4;  // of a Q4 or Q5 adapter; its siblings serve storage
constexpr uint8_t kDiscovered = 6;
constexpr uint8_t kMostCards = 255;  // the largest count that fits the list's count byte

enum class Kind { kOther, kPhysical, kVirtual };

char first_digit(uint16_t device_id) {
    char text[8];
    std::snprintf(text, sizeof text, "%X", device_id);
    return text[0];
}

// The order of the tests matters: an id that begins with neither 4 nor 5 is a Q3 before any other
// test, so the ids 0xA007 and 0xB007 never count as virtual functions.
Kind classify(const pci_dev& device) {
    const char digit = first_digit(device.device_id);
    if (device.device_id != 0 && digit != '4' && digit != '5') {
        return Kind::kPhysical;
    }
    if ((device.device_id & kVirtualFunctionBit) != 0) {
        return Kind::kVirtual;
    }
    return device.func == kManagedFunction ? Kind::kPhysical : Kind::kOther;
}

const char* physical_chip_type(uint16_t device_id) {
    switch (first_digit(device_id)) {
        case '5':
            return "Q5";
        case '4':
            return "Q4";
        default:
            return "Q3";
    }
}

const char* virtual_chip_type(uint16_t device_id) {
    return first_digit(device_id) == '5' ? "Q5-VF" : "Q4-VF";
}

// The text of a virtual function is one byte longer than its field. Its NUL is the first byte of
// the model, which is empty for virtual functions.
void write_chip_type(CardInfo& card, const char* text) {
    std::memcpy(
        reinterpret_cast<char*>(&card) + offsetof(CardInfo, chip_type), text,
        std::strlen(text) + 1);
}

std::string_view model_text(uint16_t device_id) {
    const Product* const product = find_product(device_id);
    return product == nullptr ? std::string_view() : product->long_name;
}

Block<CardInfo> make_card(const pci_dev& device) {
    Block<CardInfo> card = allocate_record<CardInfo>();
    if (card) {
        copy_text(card->pci_bus_location, pci_bus_location(device));
        card->vendor_id = device.vendor_id;
        card->device_id = device.device_id;
        card->pci_class = device.device_class;
        card->params.state = kDiscovered;
    }
    return card;
}

Block<CardInfo> make_physical_card(pci_dev& device) {
    fill_pci_device(&device, PCI_FILL_CLASS | PCI_FILL_IRQ);
    Block<CardInfo> card = make_card(device);
    if (card) {
        write_chip_type(*card, physical_chip_type(device.device_id));
        card->irq = static_cast<uint32_t>(device.irq);
        copy_text(card->model, model_text(device.device_id));
    }
    return card;
}

Block<CardInfo> make_virtual_card(pci_dev& device) {
    fill_pci_device(&device, PCI_FILL_CLASS);
    Block<CardInfo> card = make_card(device);
    if (card) {
        write_chip_type(*card, virtual_chip_type(device.device_id));
    }
    return card;
}

// Consecutive functions of one device count once.
class LastDevice {
public:
    bool is(const pci_dev& device) const { return device.bus == bus_ && device.dev == dev_; }
    void remember(const pci_dev& device) {
        bus_ = device.bus;
        dev_ = device.dev;
    }

private:
    uint32_t bus_ = 0xFFFFFFFF;
    uint32_t dev_ = 0xFFFFFFFF;
};

}  // namespace

uint32_t scan_cards(CardList& list) {
    const PciBus bus;
    Chain<CardInfo> physical;
    Chain<CardInfo> pending;
    LastDevice last;
    uint8_t count = 0;
    for (pci_dev* device = bus.first(); device != nullptr; device = device->next) {
        fill_pci_device(device, PCI_FILL_IDENT);
        if (device->vendor_id != KESTRIX_PCI_VENDOR_ID) {
            continue;
        }
        const Kind kind = classify(*device);
        if (kind == Kind::kOther || (kind == Kind::kPhysical && last.is(*device))) {
            continue;
        }
        if (kind == Kind::kVirtual && count > 0) {
            pending.clear();
            continue;
        }
        Block<CardInfo> card =
            kind == Kind::kPhysical ? make_physical_card(*device) : make_virtual_card(*device);
        if (!card) {
            return KX_NO_MEMORY;
        }
        if (kind == Kind::kVirtual) {
            pending.append(std::move(card));
            continue;
        }
        last.remember(*device);
        count = count == kMostCards ? count : static_cast<uint8_t>(count + 1);
        physical.append(std::move(card));
    }
    list.cards = count > 0 ? physical.release() : pending.release();
    list.card_count = count;
    return KX_SUCCESS;
}

}  // namespace kx::inventory
