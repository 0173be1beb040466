// Functions that both lists of adapters use: creating records, and the steps that fill a record
// from an adapter.
#pragma once

#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/status.h>

#include <cstdint>
#include <cstdio>
#include <span>
#include <string_view>
#include <utility>

#include "adapter/bus_table.hpp"
#include "support/handle.hpp"

extern "C" {
#include <pci/pci.h>
}

namespace kx::adapter {

[[nodiscard]] KxChipClass chip_class_of(uint16_t device_id);

// Store the adapter's index, its PCI location and its ids in a record.
template <class Record>
void describe(Record& record, uint8_t adapter, const pci_dev& device) {
    record.adapter = adapter;
    record.domain = static_cast<uint16_t>(device.domain);
    record.bus = device.bus;
    record.device = device.dev;
    record.function = device.func;
    record.vendor_id = device.vendor_id;
    record.device_id = device.device_id;
    record.chip_class = static_cast<uint8_t>(chip_class_of(device.device_id));
}

// A list under construction. The agent's variable always points to the newest record; it is null
// when there was no memory for it.
template <class Record>
class GrowingList {
public:
    GrowingList(Record*& head, Record*& cursor) : head_(head), cursor_(cursor) {}

    // A zeroed record at the list's end, or null.
    [[nodiscard]] Record* append() {
        Record* const added = allocate_record<Record>().release();
        cursor_ = added;
        if (first_ == nullptr) {
            head_ = first_ = added;
        } else {
            last_->next = added;
        }
        last_ = added;
        return added;
    }

    // The list is complete: set the agent's variable to its head.
    void finish() { head_ = cursor_ = first_; }

private:
    Record*& head_;
    Record*& cursor_;
    Record* first_ = nullptr;
    Record* last_ = nullptr;
};

// By contract the global head keeps pointing to a list that the agent has freed. This object
// remembers, until the head is cleared, that the list no longer exists. When the agent frees only
// the end of the list (its newest record, after a build that failed), the rest stays a list. Other
// chains belong to the agent and are always freed.
template <class Record>
class FreedList {
public:
    void free(Record* first, Record* head) {
        if (first == nullptr || (first == head && first == freed_)) {
            return;
        }
        if (first == head) {
            freed_ = first;
        } else if (head != freed_) {
            cut_before(first, head);
        }
        while (first != nullptr) {
            const Block<Record> record(first);
            first = record->next;
        }
    }

    // Free the list of a global head through the exported function, and clear the head. From now on
    // the allocator may use the addresses of the old list for a new one.
    void drop(Record*& head, uint32_t (*free_list)(Record*)) {
        free_list(head == freed_ ? nullptr : head);
        head = nullptr;
        freed_ = nullptr;
    }

private:
    // End the list in front of a record, if the record is part of it.
    static void cut_before(const Record* record, Record* head) {
        while (head != nullptr && head->next != record) {
            head = head->next;
        }
        if (head != nullptr) {
            head->next = nullptr;
        }
    }

    const Record* freed_ = nullptr;
};

// Copy the text of a VPD value into a field, cut at the field's end; the rest of the field does not
// change.
void put_value(std::span<char> field, std::string_view value);

// Six bytes of 12 hexadecimal digits. Any other character counts as 0xFF, as the high or the low
// digit.
void decode_mac(std::span<uint8_t, 6> mac, std::string_view digits);

// Q5: read the EEPROM, and store the values of its VPD in the fields of a zeroed record.
void read_q5_values(uint8_t adapter, uint32_t cap, AdapterInfoRecord& record);

// Q3, window open: settings and option ROM record, when the flash holds an option ROM.
void read_q3_boot(
    uint8_t adapter, std::span<uint8_t, KX_Q3_SETTINGS_SIZE> settings,
    std::span<uint8_t, KX_Q3_OPTION_ROM_SIZE> option_rom);

// Q4 and Q5, window open: the configuration record, zero when it cannot be read.
void read_boot_config(uint8_t adapter, Q4BootConfig& config);

// Q4 and Q5, window open: 1 when the flash holds an option ROM.
[[nodiscard]] uint8_t option_rom_valid(uint8_t adapter);

// Free the memory of each list and clear its head.
void drop_adapter_list();
void drop_adapterinfo_list();

}  // namespace kx::adapter
