// Chains of counters in tests: creating, reading, freeing.
#pragma once

#include <kxlinhw/records.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

namespace test {

struct Entry {
    int group;
    std::string name;
    uint64_t value;

    friend bool operator==(const Entry&, const Entry&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Entry& entry) {
        return out << '{' << entry.group << ", \"" << entry.name << "\", " << entry.value << '}';
    }
};

inline std::vector<Entry> entries_of(const StatEntry* first) {
    std::vector<Entry> entries;
    for (; first != nullptr; first = first->next) {
        const std::string name(first->name, strnlen(first->name, sizeof first->name));
        entries.push_back({first->group, name, +first->value});
    }
    return entries;
}

inline void free_entries(StatEntry* first) {
    while (first != nullptr) {
        StatEntry* const next = first->next;
        std::free(first);
        first = next;
    }
}

// Free a chain and empty its slot, which may be at any address.
inline void drop_entries(KxStatEntryPtr* slot) {
    free_entries(*slot);
    *slot = nullptr;
}

// A chain of entries that read {9, "old", 999}, for readers to overwrite.
inline StatEntry* make_chain(std::size_t length) {
    StatEntry* first = nullptr;
    for (std::size_t k = 0; k < length; ++k) {
        auto* const entry = static_cast<StatEntry*>(std::calloc(1, sizeof(StatEntry)));
        entry->group = 9;
        std::strcpy(entry->name, "old");
        entry->value = 999;
        entry->next = first;
        first = entry;
    }
    return first;
}

}  // namespace test
