// Chains of records of the C allocator; the interface returns lists in this form.
#pragma once

#include <utility>

#include "support/handle.hpp"

namespace kx {

// Free a chain from its first record. free_parts frees what a record points to, directly before the
// record itself.
template <class Record, class FreeParts>
void free_chain(Record* first, FreeParts free_parts) {
    while (first != nullptr) {
        const Block<Record> record(first);
        first = record->next;
        free_parts(*record);
    }
}

template <class Record>
void free_chain(Record* first) {
    free_chain(first, [](const Record&) {});
}

// A chain under construction, freed unless it is released.
template <class Record>
class Chain {
public:
    Chain() = default;
    ~Chain() { clear(); }
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    // Add a record at the end; null adds nothing. Returns the record.
    Record* append(Block<Record> record) {
        Record* const added = record.release();
        if (added != nullptr) {
            (last_ == nullptr ? first_ : last_->next) = added;
            last_ = added;
        }
        return added;
    }

    // Null when the chain is empty.
    [[nodiscard]] Record* first() const { return first_; }

    void clear() { free_chain(release()); }

    [[nodiscard]] Record* release() {
        last_ = nullptr;
        return std::exchange(first_, nullptr);
    }

private:
    Record* first_ = nullptr;
    Record* last_ = nullptr;
};

}  // namespace kx
