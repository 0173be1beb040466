// The simulated host's network interfaces, which all processes of a session share.
//
// A plain record in a mapped file. The builder writes it, and the models read and change it in
// every process, so that the next command sees a setting of the previous one.
#pragma once

#include <linux/ethtool.h>
#include <netinet/in.h>

#include <cstdint>
#include <kxsim/nic.hpp>

namespace kxsim::state {

inline constexpr std::size_t kNameSize = 16;  // of an interface, with its NUL
inline constexpr std::uint32_t kMostInterfaces = 4096;
inline constexpr std::uint32_t kMostAddresses = 16;       // of one interface
inline constexpr std::uint32_t kMostRefusals = 64;        // of one interface
inline constexpr std::uint32_t kMostCounters = 1U << 17;  // of all interfaces

struct Address {
    std::uint16_t family;  // AF_INET, AF_INET6
    std::uint8_t prefix;
    std::uint8_t has_netmask;
    union {
        in_addr ipv4;
        in6_addr ipv6;
    };
};

// The error of a request that the driver accepts and ignores.
inline constexpr std::int32_t kIgnored = -1;

// A request that the driver of an interface answers with an error.
struct Refusal {
    std::uint32_t command;  // an Ethernet tool command, or the number of another request
    std::int32_t error;     // errno, or kIgnored
};

// A counter of a driver. All interfaces take theirs from one pool.
struct Counter {
    char name[ETH_GSTRING_LEN];
    std::uint64_t value;
    std::uint64_t step;
};

// The counters of one interface, and the numbers of counters that its driver reports: -1 for the
// correct number.
struct CounterRange {
    std::uint32_t first;
    std::uint32_t count;
    std::int64_t announced;
    std::int64_t named;
    std::int64_t valued;
};

struct Interface {
    char driver[sizeof ethtool_drvinfo::driver];
    char driver_version[sizeof ethtool_drvinfo::version];
    char firmware[sizeof ethtool_drvinfo::fw_version];
    char bus_info[sizeof ethtool_drvinfo::bus_info];
    std::uint8_t mac[6];
    std::uint16_t reserved;
    std::uint32_t index;
    std::uint32_t flags;  // IFF_...
    std::uint32_t mtu;
    std::uint32_t address_count;
    Address addresses[kMostAddresses];
    std::uint32_t refusal_count;
    Refusal refusals[kMostRefusals];
    NicSettings nic;
    CounterRange counters;
};

struct Network {
    std::uint32_t count;  // slots in use; the slot of a removed interface has an empty name
    char names[kMostInterfaces][kNameSize];
    Interface interfaces[kMostInterfaces];
    std::uint32_t counters_used;
    Counter counters[kMostCounters];
};

}  // namespace kxsim::state
