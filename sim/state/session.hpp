// The data that all processes of a session share, apart from files and interfaces: fault rules,
// counters, the log of an open window, and the requested time of sleeps.
#pragma once

#include <atomic>
#include <cstdint>

#include "state/calls.hpp"
#include "state/requests.hpp"

namespace kxsim::state {

// Below the session's directory.
inline constexpr char kTreeDirectory[] = "/tree";  // the simulated files, by their paths
inline constexpr char kSessionFile[] = "/state/session";
inline constexpr char kNetworkFile[] = "/state/network";

inline constexpr char kRootVariable[] = "KXSIM_ROOT";  // names the session in the environment

inline constexpr std::uint32_t kMostRules = 64;
inline constexpr std::uint32_t kMostLogged = 1U << 16;
inline constexpr std::uint32_t kMostFlushed = 1024;
inline constexpr std::size_t kObjectSize = 104;  // of a path or name, cut if need be

// "The nth call of a kind fails", or is cut short.
struct FaultRule {
    std::atomic<std::uint32_t> in_use;
    Call call;
    std::uint16_t reserved;
    std::uint32_t nth;      // of the calls that match, counted from 1
    std::uint32_t times;    // how many calls fail from the first one; 0 for all
    std::int32_t error;     // errno; 0 when it is cut short
    std::uint32_t most;     // bytes that a read or write is cut to, or that a failed write leaves
    std::uint32_t command;  // of an ioctl; 0 for any
    char object[kObjectSize];  // path or interface name, "*" at its end for any rest; empty for any
    char from[32];             // allocations: part of the calling object's file name; empty for any
    char program[16];          // the name of the program that calls; empty for any
    std::atomic<std::uint32_t> seen;   // calls that matched
    std::atomic<std::uint32_t> fired;  // calls that failed or were cut short
    char struck[kObjectSize];          // what the last of them was about
};

// One call made while a window was open.
struct LoggedCall {
    Call call;
    std::uint16_t reserved;
    std::int32_t error;     // errno of the fault or the model's refusal; 0 when the call went on
    std::uint32_t command;  // of an ioctl, flags of an open
    std::uint32_t values[kMostRequestFields];  // that an interface request carries
    char object[kObjectSize];
};

// How many bytes of a file are on the disk: those that it had when it was opened, or flushed.
struct FlushedFile {
    std::atomic<std::uint64_t> inode;  // 0: a free place
    std::atomic<std::int64_t> size;
};

struct Session {
    std::atomic<std::uint32_t> window_process;  // the process that counts its calls; 0 for none
    std::uint32_t hide_entry_types;             // directory entries are of unknown type
    std::uint32_t programs_named;               // by rules: allocations everywhere have to ask them
    std::atomic<std::uint64_t> slept_microseconds;
    std::atomic<std::uint32_t> machine_changes;  // of the virtual machines' files
    std::atomic<std::int32_t> last_machine_id;   // ids are not given twice
    std::atomic<std::uint64_t> counts[kCallCount];
    std::atomic<std::uint32_t> logged;           // may run past kMostLogged; the rest was not kept
    std::atomic<std::uint32_t> flushes_watched;  // whether the table below is kept
    FlushedFile flushed[kMostFlushed];           // filled from its beginning
    LoggedCall log[kMostLogged];
    FaultRule rules[kMostRules];
};

static_assert(
    std::atomic<std::uint64_t>::is_always_lock_free, "the counters are shared between processes");

}  // namespace kxsim::state
