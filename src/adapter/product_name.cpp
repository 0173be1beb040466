#include "adapter/product_name.hpp"

#include <algorithm>
#include <cstring>

namespace kx::adapter {
namespace {

struct DeviceModel {
    uint32_t device_id;
    const char* text;
};

constexpr uint32_t kEndOfModels = 0xFFFFFFFF;

// Names of Q3 products, whose VPD may have no name. Texts fit the 16 bytes of the shorter field.
constexpr DeviceModel kDeviceModels[] = {
    {0x21, "Q302-LR"}, {0x22, "Q301-SR"}, {0x23, "Q302-N"},        {0x24, "Q304-T"},
    {0x25, "Q302-CX"}, {0x26, "Q301-CX"}, {0x30, "Q310-CR"},       {0x31, "Q320-CR"},
    {0x32, "Q310-BT"}, {0x33, "Q310-SO"}, {0x34, "Q310-LR"},       {0x35, "Q320-LR"},
    {0x36, "Q320-BC"}, {0x37, "Q320-CX"}, {kEndOfModels, nullptr},
};

const char* model_text(uint32_t device_id) {
    const DeviceModel* row = kDeviceModels;
    while (row->device_id != kEndOfModels && row->device_id != device_id) {
        ++row;
    }
    return row->text;
}

}  // namespace

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
    const char* const model = model_text(device_id);
    const std::string_view name = model != nullptr ? std::string_view(model) : identifier;
    const std::size_t length = std::min(name.size(), field.size());
    std::memcpy(field.data(), name.data(), length);
    if (model == nullptr) {
        trim_name(field, length);
    } else if (length < field.size()) {
        field[length] = '\0';
    }
}

}  // namespace kx::adapter
