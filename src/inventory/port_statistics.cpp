// Counters of a port, from its Ethernet driver.
#include <kxlinhw/statistics.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "inventory/stat_chain.hpp"
#include "support/handle.hpp"
#include "support/interface_socket.hpp"

namespace {

// The number of the driver's counters; 0 also when the driver does not report it.
uint32_t counter_count(const kx::InterfaceSocket& socket, const char* interface_name) {
    ethtool_drvinfo info{};
    info.cmd = ETHTOOL_GDRVINFO;
    return socket.ethtool(interface_name, &info) ? info.n_stats : 0;
}

// An ethtool record with room for a number of items after it.
template <class Record>
kx::Block<Record> allocate_with_items(std::size_t items, std::size_t item_size) {
    return kx::Block<Record>(
        static_cast<Record*>(std::calloc(1, sizeof(Record) + items * item_size)));
}

// The driver's answers: both blocks have room for the number of counters that it announced.
struct Counters {
    kx::Block<ethtool_gstrings> names;
    kx::Block<ethtool_stats> values;

    explicit Counters(uint32_t count)
        : names(allocate_with_items<ethtool_gstrings>(count, ETH_GSTRING_LEN)),
          values(allocate_with_items<ethtool_stats>(count, sizeof(uint64_t))) {
        if (allocated()) {
            names->cmd = ETHTOOL_GSTRINGS;
            names->string_set = ETH_SS_STATS;
            names->len = count;
            values->cmd = ETHTOOL_GSTATS;
            values->n_stats = count;
        }
    }

    [[nodiscard]] bool allocated() const { return names != nullptr && values != nullptr; }
};

void store_counter(const Counters& counters, std::size_t k, StatEntry& entry) {
    std::memcpy(entry.name, counters.names->data + k * ETH_GSTRING_LEN, sizeof entry.name);
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): the caller asked allocated()
    std::memcpy(&entry.value, counters.values->data + k, sizeof entry.value);
}

uint32_t store_counters(const Counters& counters, uint32_t count, PortInfo& port) {
    kx::inventory::StatChain chain(&port.stats);
    for (std::size_t k = 0; k < count; ++k) {
        StatEntry* const entry = chain.next();
        if (entry == nullptr) {
            break;
        }
        store_counter(counters, k, *entry);
    }
    return chain.short_of_memory() ? KX_NO_MEMORY : KX_SUCCESS;
}

}  // namespace

extern "C" {

uint32_t getTxRxStats(const char* interface_name, PortInfo* port) {
    if (interface_name == nullptr || port == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const kx::InterfaceSocket socket;
    const uint32_t count = counter_count(socket, interface_name);
    if (count == 0) {
        return KX_UNKNOWN_ERROR;
    }
    const Counters counters(count);
    if (!counters.allocated()) {
        return KX_NO_MEMORY;
    }
    if (!socket.ethtool(interface_name, counters.names.get())) {
        std::perror("Cannot get stats strings information");
        return KX_UNKNOWN_ERROR;
    }
    if (!socket.ethtool(interface_name, counters.values.get())) {
        return KX_UNKNOWN_ERROR;
    }
    // The announced number is used, not the numbers in the answers: the blocks have that size.
    return store_counters(counters, count, *port);
}

}  // extern "C"
