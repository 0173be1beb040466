// The two variables that put a program on this process's simulated host: KXSIM_ROOT names the
// session, and LD_PRELOAD loads the library. A program may have cleared them.
#pragma once

#include <cstddef>

#include "process/attached.hpp"

namespace kxsim::preload {

// Whether an environment puts a program on a simulated host: this one or that of another kxsim.
[[nodiscard]] bool has_session(char* const* environment);

// Whether the loader finds this library by its path: it is absolute, and LD_PRELOAD can hold it.
[[nodiscard]] bool can_name_library();

// The bytes that add_session needs.
[[nodiscard]] std::size_t size_with_session(char* const* environment);

// The environment with both variables, in `room`.
[[nodiscard]] char** add_session(const process::Host& host, char* const* environment, void* room);

// Call `go` with an environment that puts a program on the host. It is on the stack, because
// nothing may be allocated between fork and exec.
template <class Go>
auto with_session(char* const* environment, Go go) {
    const process::Host* const on = process::host();
    if (on == nullptr || has_session(environment)) {
        return go(environment);
    }
    void* const room = __builtin_alloca(size_with_session(environment));
    return go(add_session(*on, environment, room));
}

// Put the variables back into the environment of this process.
void complete_environment();

}  // namespace kxsim::preload
