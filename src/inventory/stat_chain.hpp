// Writing counters into a chain of entries, one after another.
#pragma once

#include <kxlinhw/records.h>

#include "support/handle.hpp"

namespace kx::inventory {

// Builds a chain in an empty slot. Overwrites an existing chain entry by entry, and never makes it
// longer.
class StatChain {
public:
    explicit StatChain(KxStatEntryPtr* slot) : slot_(slot), grows_(*slot == nullptr) {}

    // The entry for the next counter, cleared except for its link. Null at the end of an existing
    // chain, or when memory runs out.
    [[nodiscard]] StatEntry* next() {
        if (grows_) {
            *slot_ = allocate_record<StatEntry>().release();
            short_of_memory_ = *slot_ == nullptr;
        }
        StatEntry* const entry = *slot_;
        if (entry != nullptr) {
            *entry = StatEntry{.group = 0, .name = {}, .value = 0, .next = entry->next};
            slot_ = &entry->next;
        }
        return entry;
    }

    [[nodiscard]] bool short_of_memory() const { return short_of_memory_; }

private:
    KxStatEntryPtr* slot_;  // the slot of the next entry
    bool grows_;
    bool short_of_memory_ = false;
};

}  // namespace kx::inventory
