// Memory that the agent frees: zeroed arrays of the C allocator.
#pragma once

#include <cstddef>
#include <cstdlib>

namespace kx::vm {

// A zeroed array, or null when memory runs out. An array without elements is a block, too.
template <class T>
[[nodiscard]] T* allocate_array(std::size_t count) {
    // NOLINTNEXTLINE(clang-analyzer-optin.portability.UnixAPI)
    return static_cast<T*>(std::calloc(count, sizeof(T)));
}

}  // namespace kx::vm
