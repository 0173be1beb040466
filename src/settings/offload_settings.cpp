// The offload settings: each is a control file of the card's offload device.
#include "settings/offload_settings.hpp"

#include <fcntl.h>
#include <kxlinhw/offload.h>
#include <kxlinhw/query.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>
#include <unistd.h>

#include <cstdio>
#include <new>
#include <optional>
#include <string>

#include "settings/detail_text.hpp"
#include "support/handle.hpp"
#include "support/offload_table.hpp"
#include "support/small_file.hpp"
#include "support/text.hpp"

namespace kx::settings {
namespace {

constexpr char kNicOnly[] = "Set TOE Parameter(s) failed: Operation not supported: NIC-Only device";

char card_name[32];  // used in messages; agents that call setTOEParam rely on the name of the last
                     // card

bool is_nic_only(const CardInfo& card) {
    return field_text(card.offload_device).starts_with("nic");
}

// The type of the name is fixed by the interface; setTOEParam does not change the text.
uint32_t set_parameter(const OffloadParameter& row, int device_index, const CardParams& params) {
    return setTOEParam(
        const_cast<char*>(row.name), device_index, offload_value(params, row), row.min, row.max);
}

// Write a value as text; returns the status.
uint32_t write_control_file(const char* path, int64_t value) {
    const int opened = open(path, O_RDWR | O_CLOEXEC);
    const Descriptor file(opened);
    // Descriptor 0 counts as a failure too: it belongs to the agent's standard input.
    if (opened == 0 || !file) {
        return KX_RESOURCE_UNAVAILABLE;
    }
    const std::string text = std::to_string(value);
    if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        std::perror("WRITE ERROR:");
        return KX_INVALID_SET_VALUE;
    }
    return KX_SUCCESS;
}

// The index of the offload device that serves a port; nothing for a port that is not listed.
std::optional<int> find_device(const PortInfo* port) {
    int index = 0;
    const bool found =
        port != nullptr &&
        getTOEDeviceIndex(TerminatedText(port->interface_name).c_str(), &index) == KX_SUCCESS;
    return found ? std::optional(index) : std::nullopt;
}

void bring_device_up(const PortInfo* port) {
    if (port != nullptr) {
        static_cast<void>(zfabtool_devup(TerminatedText(port->interface_name).c_str()));
    }
}

std::nullopt_t refuse_without_device() {
    set_detail(
        PortMessage("Set TOE Parameter(s) failed for %s: Resource not available", card_name));
    return std::nullopt;
}

}  // namespace

void name_card_in_messages(std::string_view name) { copy_text(card_name, name); }

std::optional<uint32_t> apply_offload_settings(CardInfo& card, uint32_t mask) {
    if (is_nic_only(card)) {
        set_detail(kNicOnly);
        return std::nullopt;
    }
    const PortInfo* const port = card.ports;
    std::optional<int> device = find_device(port);
    const OffloadParameter& activation = kOffloadActivation;
    const bool activates = (mask & activation.change_bit) != 0;
    if (activates) {
        if (card.params.activated == 1) {
            bring_device_up(port);
        }
        device = find_device(port);  // it may appear only after the device is up
    }
    if (!device) {  // any other index belongs to another card
        return refuse_without_device();
    }
    uint32_t status = KX_SUCCESS;
    if (activates) {
        status = set_parameter(activation, *device, card.params);
    }
    if (!path_exists(offload_directory(*device).c_str())) {
        return refuse_without_device();
    }
    return status | setTOEParams(&card.params, mask, *device);
}

}  // namespace kx::settings

extern "C" {

uint32_t setTOEParam(char* name, int deviceIndex, int64_t value, int64_t min, int64_t max) try {
    using namespace kx::settings;
    if (name == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const std::string path = kx::offload_file(deviceIndex, name);
    const bool in_range = value >= min && value <= max;
    const uint32_t status =
        in_range ? write_control_file(path.c_str(), value) : uint32_t{KX_INVALID_SET_VALUE};
    if (status != KX_SUCCESS) {
        append_detail(OffloadMessage(
            "Set %s for %s failed: %s; ", name, card_name,
            GetErrStr(static_cast<int32_t>(status))));
        return KX_SET_FAILED;
    }
    static_cast<void>(saveSysctlParam(path.c_str(), value));  // applied in any case
    return KX_SUCCESS;
} catch (const std::bad_alloc&) {
    return KX_SET_FAILED;
}

uint32_t setTOEParams(CardParams* block, uint32_t mask, int deviceIndex) {
    if (block == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    uint32_t status = KX_SUCCESS;
    for (const kx::OffloadParameter& row : kx::kOffloadSettings) {
        if ((mask & row.change_bit) != 0) {
            status |= kx::settings::set_parameter(row, deviceIndex, *block);
        }
    }
    return status;
}

}  // extern "C"
