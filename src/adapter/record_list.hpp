// Building, freeing and dropping the two lists of adapters, whose heads agents see.
#pragma once

#include <kxlinhw/adapter_lists.h>

#include <cstdint>

#include "support/chain.hpp"

namespace kx::adapter {

// A list under construction. The agent's variable always points to the newest record; it is null
// when there was no memory for it. The part that was built stays linked to the global head.
template <class Record>
class GrowingList {
public:
    GrowingList(Record*& head, Record*& cursor) : head_(head), cursor_(cursor) {}
    ~GrowingList() { static_cast<void>(chain_.release()); }
    GrowingList(const GrowingList&) = delete;
    GrowingList& operator=(const GrowingList&) = delete;

    // A zeroed record at the list's end, or null.
    [[nodiscard]] Record* append() {
        cursor_ = chain_.append(allocate_record<Record>());
        if (chain_.first() == cursor_) {
            head_ = cursor_;
        }
        return cursor_;
    }

    // The list is complete: set the agent's variable to its head.
    void finish() { head_ = cursor_ = chain_.first(); }

private:
    Record*& head_;
    Record*& cursor_;
    Chain<Record> chain_;
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
        free_chain(first);
    }

    // Free the list of a global head through the exported function, and clear the head. From now on
    // the allocator may use the addresses of the old list for a new one.
    void drop(Record*& head, uint32_t (*free_list)(Record*)) {
        free_list(head == freed_ ? nullptr : head);
        head = nullptr;
        freed_ = nullptr;
    }

private:
    // End the list before a record, if the record is part of it.
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

// Free the memory of each list and clear its head.
void drop_adapter_list();
void drop_adapterinfo_list();

}  // namespace kx::adapter
