// Writing counters into a chain of entries, one after another.
#pragma once

#include <kxlinhw/records.h>

#include "support/handle.hpp"

namespace kx::inventory {

// Builds a chain in an empty slot; overwrites a chain that is there, entry by entry, and never
// lengthens it.
class StatChain {
public:
    explicit StatChain(KxStatEntryPtr* slot) : slot_(slot), grows_(*slot == nullptr) {}

    // The entry for the next counter, cleared but for its link. Null when an existing chain is at
    // its end, or when memory is short.
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
    KxStatEntryPtr* slot_;  // where the next entry hangs, or is to hang
    bool grows_;
    bool short_of_memory_ = false;
};

}  // namespace kx::inventory
