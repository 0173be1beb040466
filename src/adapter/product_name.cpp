#include "adapter/product_name.hpp"

#include <algorithm>
#include <cstring>

#include "support/products.hpp"

namespace kx::adapter {
void trim_name(std::span<char> field, std::size_t length) {
    std::size_t last = std::min(length, field.size());
    while (last > 1 && field[last - 1] == ' ') {
        --last;
    }
    if (last < field.size()) {
        field[last] = '\0';
    }
}

void write_q3_name(std::span<char> field, uint32_t device_id, std::string_view identifier) {
    const Product* const product = find_product(device_id);
    const bool known = product != nullptr && !product->name.empty();
    const std::string_view name = known ? product->name : identifier;
    const std::size_t length = std::min(name.size(), field.size());
    std::memcpy(field.data(), name.data(), length);
    if (!known) {
        trim_name(field, length);
    } else if (length < field.size()) {
        field[length] = '\0';
    }
}

}  // namespace kx::adapter
