// The adapters' delays take no time here; they are only added up.
#include <unistd.h>

#include "preload/interception.hpp"
#include "process/attached.hpp"
#include "process/next.hpp"

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face

extern "C" {

#pragma GCC visibility push(default)

int usleep(useconds_t microseconds) {
    Host* const on = host();
    if (on == nullptr) {
        return next<"usleep", decltype(::usleep)>()(microseconds);
    }
    if (const int error = intercept(kxsim::state::Call::kUsleep, "", microseconds); error != 0) {
        return refuse<int>(error);
    }
    on->session->slept_microseconds.fetch_add(microseconds, std::memory_order_relaxed);
    return 0;
}

#pragma GCC visibility pop

}  // extern "C"
