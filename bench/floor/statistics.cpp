// The answer of GetPortStat for the first port. It requests the counters of every port.
#include <kxlinhw/records.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "floor/files.hpp"
#include "floor/floor.hpp"

namespace bench::floor {
namespace {

struct Counters {
    ethtool_gstrings* names;
    ethtool_stats* values;
    uint32_t count;
};

Counters ask(int socket, const char* name) {
    ethtool_drvinfo info{};
    info.cmd = ETHTOOL_GDRVINFO;
    request(socket, name, &info);
    Counters counters{};
    counters.count = info.n_stats;
    counters.names = static_cast<ethtool_gstrings*>(
        std::calloc(1, sizeof(ethtool_gstrings) + std::size_t{info.n_stats} * ETH_GSTRING_LEN));
    counters.values = static_cast<ethtool_stats*>(
        std::calloc(1, sizeof(ethtool_stats) + std::size_t{info.n_stats} * sizeof(uint64_t)));
    counters.names->cmd = ETHTOOL_GSTRINGS;
    counters.names->string_set = ETH_SS_STATS;
    counters.names->len = info.n_stats;
    counters.values->cmd = ETHTOOL_GSTATS;
    counters.values->n_stats = info.n_stats;
    request(socket, name, counters.names);
    request(socket, name, counters.values);
    return counters;
}

}  // namespace

void port_stat(void* buffer, uint32_t* length) {
    is_loaded(loaded_modules(), "zfab4");
    find_adapters();
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    char firmware[ETHTOOL_FWVERS_LEN];
    const auto ports = find_ports(socket, firmware);
    for (std::size_t i = 0; i < ports.size(); ++i) {
        const Counters counters = ask(socket, ports[i].name);
        auto* out = static_cast<char*>(buffer);
        for (uint32_t k = 0; i == 0 && k < counters.count; ++k, out += KX_STAT_COPY) {
            auto& entry = *reinterpret_cast<StatEntry*>(out);
            entry.group = 0;
            std::memcpy(
                entry.name, counters.names->data + std::size_t{k} * ETH_GSTRING_LEN,
                sizeof entry.name);
            entry.value = counters.values->data[k];
        }
        if (i == 0) {
            *length = counters.count * KX_STAT_COPY;
        }
        std::free(counters.names);
        std::free(counters.values);
    }
    close(socket);
}

}  // namespace bench::floor
