// The number of ports of a product, by the text of its device id without the digit of the function.
#include <kxlinhw/adapter_lists.h>

#include <cstring>
#include <string_view>

#include "support/products.hpp"

namespace {

constexpr std::size_t kIdLength = 4;

// Is the text this id in lower-case hexadecimal digits?
bool spells(std::string_view text, unsigned device_id) {
    for (const char digit : text) {
        if (digit != "0123456789abcdef"[device_id >> 12 & 0xF]) {
            return false;
        }
        device_id <<= 4;
    }
    return text.size() == kIdLength;
}

}  // namespace

extern "C" uint8_t getPortsQ4(const char* device_id) {
    if (device_id == nullptr) {
        return 0;
    }
    const std::string_view wanted(device_id, strnlen(device_id, kIdLength));
    for (const kx::Product& product : kx::kProducts) {
        if (spells(wanted, product.device_id)) {
            return product.ports;
        }
    }
    return 0;
}
