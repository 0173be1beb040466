// Setting and reading the iWARP parameters of the two RDMA drivers.
#include <kxlinhw/host.h>
#include <kxlinhw/iwarp.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>

#include <cstdio>
#include <cstring>

#include "settings/iwarp_table.hpp"
#include "settings/module_parameter.hpp"
#include "support/text.hpp"

static_assert(sizeof(IwarpProps) == 332);
static_assert(offsetof(IwarpProps, module) == 24);
static_assert(offsetof(IwarpProps, change_mask) == 152);
static_assert(offsetof(IwarpProps, db_delay_usecs) == 204);
static_assert(offsetof(IwarpProps, fastreg_support) == 216);
static_assert(offsetof(IwarpProps, allow_nonroot_rawqps) == 284);
static_assert(offsetof(IwarpProps, use_dsgl) == 328);

namespace kx::settings {
namespace {

constexpr int kIwarpService = 10;

ModName log_origin() { return KxLogger::MapSVCToModName(kIwarpService); }

// The text is passed as the format: agents may recognise it by that. It has no values.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
[[gnu::format(printf, 1, 0)]] void log_refusal(const char* text) {
    KxLogger::KestrixLogMsg(log_origin(), KX_LOG_ERROR, text);
}
#pragma GCC diagnostic pop

// The status of an operation that ends before it begins, or the module.
struct Target {
    uint32_t status;
    const IwarpModule* module;
};

// The loaded state is checked before the name, so an unknown module that is not loaded counts as
// not loaded.
Target find_module(const char* name) {
    if (lsmod(name) == 0) {  // an unreadable module list counts as loaded
        KxLogger::KestrixLogMsg(log_origin(), KX_LOG_ERROR, "Module %s is not loaded", name);
        return {KX_DRIVER_NOT_LOADED, nullptr};
    }
    for (const IwarpModule& module : kIwarpModules) {
        if (std::strcmp(name, module.name) == 0) {
            return {KX_SUCCESS, &module};
        }
    }
    KxLogger::KestrixLogMsg(log_origin(), KX_LOG_ERROR, "Unsupported Driver: %s", name);
    return {KX_UNSUPPORTED_DRIVER, nullptr};
}

// Records of agents may be at any address.
int32_t value_of(const IwarpProps& record, const IwarpParameter& row) {
    int32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const char*>(&record) + row.offset, sizeof value);
    return value;
}

void store_value(IwarpProps& record, const IwarpParameter& row, uint32_t value) {
    std::memcpy(reinterpret_cast<char*>(&record) + row.offset, &value, sizeof value);
}

}  // namespace
}  // namespace kx::settings

extern "C" {

uint32_t SetIwarpProps(void* record) {
    using namespace kx::settings;
    if (record == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const auto& props = *static_cast<const IwarpProps*>(record);
    const kx::TerminatedText name(props.module);
    std::printf("SetIwarpProps:: Module: %s\n", name.c_str());
    const auto [status, module] = find_module(name.c_str());
    if (module == nullptr) {
        return status;
    }
    if ((props.change_mask & module->forbidden) != 0) {
        log_refusal(module->refusal);
        return KX_INVALID_PARAMETER;
    }
    for (const IwarpParameter& row : kIwarpParameters) {
        if ((props.change_mask & row.change_bit) != 0) {
            write_module_parameter(module->name, row.name, value_of(props, row));
        }
    }
    return KX_SUCCESS;
}

uint32_t GetIwarpProps(void* record, uint32_t* recordSize) {
    using namespace kx::settings;
    if (record == nullptr || recordSize == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    auto& props = *static_cast<IwarpProps*>(record);
    const kx::TerminatedText name(props.module);
    std::printf("GetIwarpProps:: Module: %s\n", name.c_str());
    *recordSize = 0;
    const auto [status, module] = find_module(name.c_str());
    if (module == nullptr) {
        return status;
    }
    for (const IwarpParameter& row : module->readings) {
        store_value(props, row, read_module_parameter(module->name, row.name));
    }
    *recordSize = sizeof(IwarpProps);
    return KX_SUCCESS;
}

}  // extern "C"
