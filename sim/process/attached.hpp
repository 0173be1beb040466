// The simulated host of this process: found through the environment at the first wrapped call, or
// attached by the process itself.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <climits>
#include <cstddef>

#include "state/adapters.hpp"
#include "state/network.hpp"
#include "state/order.hpp"
#include "state/session.hpp"

namespace kxsim::process {

// A file of the session, mapped at its first use.
struct Mapping {
    void* address;
    std::size_t size;
};

struct Host {
    char tree[PATH_MAX];  // directory of the simulated files, without a slash at its end
    std::size_t tree_length;
    std::size_t root_length;  // length of the session's directory at its beginning
    dev_t device;             // the file system that holds the tree
    state::Session* session;
    state::Network* network;
    state::Adapters* adapters;
    state::Order* order;
    Mapping flash[state::kMostAdapters];
    Mapping eeprom[state::kMostAdapters];
};

// The host that this thread is on; null on the real machine and while paused.
[[nodiscard]] Host* host();

// While such an object exists, this thread is on the real machine.
class Pause {
public:
    Pause() { ++depth_; }
    ~Pause() { --depth_; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

    static void begin() { ++depth_; }
    static void end() { --depth_; }
    static bool active() { return depth_ > 0; }

private:
    // Access to it must not allocate, because allocation is wrapped too.
    static inline thread_local int depth_ __attribute__((tls_model("initial-exec"))) = 0;
};

// Steps inside a wrapper must not change errno.
class KeepErrno {
public:
    KeepErrno() : reason_(errno) {}
    ~KeepErrno() { errno = reason_; }
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

private:
    int reason_;
};

}  // namespace kxsim::process
