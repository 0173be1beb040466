// The C allocator as seen from the library: the blocks that libkxlinhw itself allocates with malloc
// and calloc, whether they are freed, and a failure of the n-th allocation.
#pragma once

#include <cstddef>

namespace test {

// Blocks that the library allocated and nobody has freed.
std::size_t library_blocks();

// Free the blocks that the library leaves allocated on purpose, so that the leak checker reports
// only mistakes.
void free_library_blocks();

// Make the n-th allocation from now on return null; 1 is the next, 0 none.
void fail_library_allocation(int n);

// Watch a block of any origin, until it is freed.
void watch(void* block);
bool is_watched(const void* block);

}  // namespace test
