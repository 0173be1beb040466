// The number of ports of a product, by its device id without the digit of the function.
#include <kxlinhw/adapter_lists.h>

#include <cstring>
#include <string_view>

#include "support/text.hpp"

namespace {

struct PortCount {
    std::string_view device_id;
    uint8_t ports;
};

constexpr PortCount kPortCounts[] = {
    {"4000", 2}, {"4001", 2}, {"4002", 2}, {"4003", 2}, {"4004", 2}, {"4005", 2}, {"4006", 2},
    {"4007", 2}, {"4008", 2}, {"4009", 2}, {"400a", 2}, {"400b", 2}, {"400c", 2}, {"400d", 2},
    {"400e", 2}, {"400f", 1}, {"4010", 4}, {"4011", 4}, {"4012", 4}, {"4013", 1}, {"4014", 4},
    {"4015", 2}, {"4016", 2}, {"5000", 2}, {"5001", 2}, {"5002", 2}, {"5003", 4}, {"5004", 4},
    {"5005", 2}, {"5006", 4}, {"5007", 2}, {"5008", 2}, {"5009", 4}, {"500a", 4}, {"500b", 2},
    {"500c", 2}, {"500d", 2}, {"500e", 4}, {"500f", 1}, {"5010", 2}, {"5011", 2}, {"5012", 4},
    {"5013", 2}, {"5014", 2}, {"5015", 2}, {"5016", 2},
};

constexpr std::size_t kIdLength = 4;
static_assert(std::size(kPortCounts) == 46, "23 products of each generation");

}  // namespace

extern "C" uint8_t getPortsQ4(const char* device_id) {
    if (device_id == nullptr) {
        return 0;
    }
    const std::string_view wanted(device_id, strnlen(device_id, kIdLength));
    for (const PortCount& row : kPortCounts) {
        if (row.device_id == wanted) {
            return row.ports;
        }
    }
    return 0;
}
