// Allocation, so that it can be made to fail while a test's window is open.
//
// Looking up the real functions may itself allocate; those few bytes come from a buffer here and
// are never freed.
#include <kxsim/preload.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "preload/interception.hpp"
#include "process/attached.hpp"
#include "process/next.hpp"

namespace {

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face

alignas(std::max_align_t) constinit unsigned char early_bytes[16384] = {};
constinit std::size_t early_used = 0;

thread_local bool looking_up __attribute__((tls_model("initial-exec"))) = false;

void* allocate_early(std::size_t size) {
    const std::size_t rounded =
        (size + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
    if (rounded < size || rounded > sizeof early_bytes - early_used) {
        return nullptr;
    }
    void* const block = early_bytes + early_used;
    early_used += rounded;
    return block;
}

bool is_early(const void* block) {
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const auto start = reinterpret_cast<std::uintptr_t>(early_bytes);
    return address >= start && address < start + sizeof early_bytes;
}

// The real function, or null during its lookup.
template <FunctionName kName, class Function>
Function* real() {
    if (looking_up) {
        return nullptr;
    }
    looking_up = true;
    Function* const function = next<kName, Function>();
    looking_up = false;
    return function;
}

bool fails(const char* call, const void* caller) {
    if (kxsim_allocation_fails(call, caller) == 0) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

void* malloc(size_t size) noexcept {
    const auto function = real<"malloc", decltype(::malloc)>();
    if (function == nullptr) {
        return allocate_early(size);
    }
    return fails("malloc", __builtin_return_address(0)) ? nullptr : function(size);
}

void* calloc(size_t count, size_t size) noexcept {
    const auto function = real<"calloc", decltype(::calloc)>();
    if (function == nullptr) {
        std::size_t bytes = 0;
        return __builtin_mul_overflow(count, size, &bytes) ? nullptr : allocate_early(bytes);
    }
    return fails("calloc", __builtin_return_address(0)) ? nullptr : function(count, size);
}

void* realloc(void* block, size_t size) noexcept {
    if (is_early(block)) {
        const auto room = static_cast<std::size_t>(
            early_bytes + sizeof early_bytes - static_cast<unsigned char*>(block));
        void* const moved = malloc(size);
        if (moved != nullptr) {
            std::memcpy(moved, block, size < room ? size : room);
        }
        return moved;
    }
    const auto function = real<"realloc", decltype(::realloc)>();
    if (function == nullptr) {
        return block == nullptr ? allocate_early(size) : nullptr;
    }
    return fails("realloc", __builtin_return_address(0)) ? nullptr : function(block, size);
}

void free(void* block) noexcept {
    if (block == nullptr || is_early(block)) {
        return;
    }
    // Null during the lookup: memory that the lookup itself frees is kept.
    if (const auto function = real<"free", decltype(::free)>(); function != nullptr) {
        function(block);
    }
}

#pragma GCC visibility pop

}  // extern "C"
