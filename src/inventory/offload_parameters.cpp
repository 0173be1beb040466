// The current parameters of the offload engine.
#include <kxlinhw/offload.h>
#include <kxlinhw/status.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "inventory/paths.hpp"
#include "support/offload_table.hpp"
#include "support/small_file.hpp"
#include "support/text.hpp"

namespace {

constexpr std::size_t kLongestParameterLine = 255;
constexpr std::size_t kLongestValue = 16;  // characters read of a control file
constexpr uint8_t kNoControlFiles = 2;
constexpr int kDeviceWithoutPort = 0;

void read_parameters(CardParams& params, int device_index) {
    using namespace kx;
    for (const OffloadParameter& row : kOffloadReadings) {
        const auto text =
            kx::read_value_file(offload_file(device_index, row.name).c_str(), kLongestValue);
        if (text) {
            set_offload_value(params, row, std::atoi(text->c_str()));
        }
    }
}

}  // namespace

extern "C" {

uint32_t getTOEDeviceIndex(const char* interface_name, int* index_out) try {
    if (interface_name == nullptr || index_out == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const auto list = kx::read_file(kx::inventory::kOffloadDevices);
    if (!list) {
        return KX_UNKNOWN_ERROR;
    }
    kx::LinePieces lines(*list, kLongestParameterLine);
    while (const auto line = lines.next()) {
        const std::string text(kx::c_text(*line));
        if (text.find(interface_name) != text.npos) {
            int index = 0;
            std::sscanf(text.c_str(), "toe%d", &index);
            *index_out = index;
            return KX_SUCCESS;
        }
    }
    return KX_NIC_ONLY;
} catch (const std::bad_alloc&) {
    return KX_NO_MEMORY;
}

uint32_t getTOEparams(CardInfo* card) try {
    if (card == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    int device_index = kDeviceWithoutPort;
    if (card->ports != nullptr) {
        const uint32_t status = getTOEDeviceIndex(card->ports->interface_name, &device_index);
        if (status != KX_SUCCESS) {
            return status;
        }
    }
    if (!kx::path_exists(kx::offload_directory(device_index).c_str())) {
        card->params = CardParams{};
        card->params.state = kNoControlFiles;
        return KX_RESOURCE_UNAVAILABLE;
    }
    read_parameters(card->params, device_index);
    return KX_SUCCESS;
} catch (const std::bad_alloc&) {
    return KX_NO_MEMORY;
}

}  // extern "C"
