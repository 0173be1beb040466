// Memory that the agent frees: zeroed arrays and lists of the C allocator.
#pragma once

#include <cstddef>
#include <cstdlib>

#include "support/handle.hpp"

namespace kx::vm {

// A zeroed array, or null when memory runs out. An array without elements is a block, too.
template <class T>
[[nodiscard]] T* allocate_array(std::size_t count) {
    // NOLINTNEXTLINE(clang-analyzer-optin.portability.UnixAPI)
    return static_cast<T*>(std::calloc(count, sizeof(T)));
}

// A list that grows at its end.
template <class Node>
class Chain {
public:
    // A zeroed node at the end, or null when memory runs out.
    [[nodiscard]] Node* append() {
        Node* const node = allocate_record<Node>().release();
        if (node != nullptr) {
            (last_ == nullptr ? first_ : last_->next) = node;
            last_ = node;
        }
        return node;
    }

    // Null when the list is empty. The nodes are never freed here.
    [[nodiscard]] Node* first() const { return first_; }

private:
    Node* first_ = nullptr;
    Node* last_ = nullptr;
};

}  // namespace kx::vm
