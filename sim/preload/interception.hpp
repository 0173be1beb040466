// Interception of calls: every wrapper counts and logs its call here, and learns whether it fails.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "process/attached.hpp"
#include "process/next.hpp"
#include "state/calls.hpp"

namespace kxsim::preload {

using namespace process;  // NOLINT: the wrappers work on nothing else

// Count and log one call. Returns the errno with which a fault rule makes it fail, or 0. object is
// the path or the interface that the call is about, command the request of an ioctl.
[[nodiscard]] int intercept(state::Call call, const char* object = "", std::uint32_t command = 0);

// Like intercept, for calls on a descriptor; its path is looked up only when it is needed.
[[nodiscard]] int intercept_descriptor(state::Call call, int descriptor);

// Like intercept_descriptor, for a read or write. Cuts `size` to the bytes that a rule allows; a
// write that fails may write some bytes, any other failed call none.
[[nodiscard]] int intercept_transfer(state::Call call, int descriptor, std::size_t& size);

// Record the values of the interface request that was counted last.
void note_request(const state::Request& request, const void* record);

// Record that the host, not a rule, refused the call that was counted last.
void note_refusal(int error);

// The result of a call that failed: -1 or null, with errno set.
template <class Result>
[[nodiscard]] Result refuse(int error) {
    errno = error;
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else {
        return static_cast<Result>(-1);
    }
}

}  // namespace kxsim::preload
