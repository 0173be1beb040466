// The list of adapters with data from their VPD and boot images.
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/status.h>
#include <kxlinhw/vpd.h>

#include <array>
#include <cstddef>
#include <cstdio>

#include "adapter/adapter_reading.hpp"
#include "adapter/product_name.hpp"
#include "adapter/record_list.hpp"
#include "adapter/vpd_template.hpp"

namespace kx::adapter {
namespace {

FreedList<AdapterInfoRecord> freed_info;

// The field of a record for the value of a keyword.
struct ValueField {
    std::string_view keyword;
    std::size_t offset;
    std::size_t width;
};

constexpr ValueField kSerialNumber{
    "SL", offsetof(AdapterInfoRecord, serial_number), sizeof AdapterInfoRecord::serial_number};
constexpr ValueField kPartNumber{
    "PN", offsetof(AdapterInfoRecord, part_number), sizeof AdapterInfoRecord::part_number};
constexpr ValueField kMac{"NA", offsetof(AdapterInfoRecord, mac), sizeof AdapterInfoRecord::mac};
constexpr ValueField kV0{"V0", offsetof(AdapterInfoRecord, v0), sizeof AdapterInfoRecord::v0};
constexpr ValueField kV5{"V5", offsetof(AdapterInfoRecord, v5), sizeof AdapterInfoRecord::v5};
constexpr ValueField kV7{"V7", offsetof(AdapterInfoRecord, v5), sizeof AdapterInfoRecord::v5};

constexpr ValueField kQ4Values[] = {kSerialNumber, kPartNumber, kV0, kV5, kMac};
constexpr ValueField kQ3Values[] = {kSerialNumber, kMac, kV7};

void put_values(
    AdapterInfoRecord& record, std::span<const ValueField> fields, const VpdTemplate& layout,
    std::span<const uint8_t> vpd) {
    for (const ValueField& field : fields) {
        const std::span<char> place(reinterpret_cast<char*>(&record) + field.offset, field.width);
        put_value(place, vpd_value(layout, vpd, field.keyword));
    }
}

// Q4 and Q5: configuration record, option ROM and default configuration through the window.
int32_t read_flash(AdapterInfoRecord& record, uint8_t adapter, uint8_t chip_class) {
    if (const int32_t status = connect_to_hba_Q4(adapter); status != 0) {
        return status;
    }
    read_boot_config(adapter, record.boot.boot_config);
    record.option_rom_valid = option_rom_valid(adapter);
    record.default_config_version = static_cast<uint8_t>(get_default_config_version(chip_class));
    disconnect_from_hba(adapter);
    return 0;
}

// An adapter without VPD is not read; the status of the previous adapter stays.
void read_adapter(AdapterInfoRecord& record, int32_t& status) {
    uint32_t cap = 0;
    if (vpd_setup(record.adapter, &cap) != 0) {
        return;
    }
    switch (record.chip_class) {
        case KX_CLASS_Q5:
            status = q5_get_adapterinfo(record.adapter, cap, &record);
            break;
        case KX_CLASS_Q4:
            status = q4_get_adapterinfo(record.adapter, cap, &record);
            break;
        default:
            status = q3_get_adapterinfo(record.adapter, cap, &record);
            break;
    }
}

}  // namespace

void drop_adapterinfo_list() { freed_info.drop(g_KestrixAdapterInfo, adapterinfo_list_free); }

}  // namespace kx::adapter

extern "C" {

AdapterInfoRecord* g_KestrixAdapterInfo = nullptr;

uint32_t adapterinfo_list_free(AdapterInfoRecord* first) {
    kx::adapter::freed_info.free(first, g_KestrixAdapterInfo);
    return KX_SUCCESS;
}

int32_t q4_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record) {
    using namespace kx::adapter;
    if (record == nullptr) {
        return KX_ADAPTER_INVALID;
    }
    std::array<uint8_t, KX_Q4_EEPROM_SIZE> eeprom{};
    std::array<uint8_t, KX_Q4_VPD_SIZE> vpd{};
    std::array<uint8_t, KX_Q4_SERIAL_CONFIG_SIZE> serial_configuration;
    get_Q4(adapter, cap, eeprom.data(), vpd.data(), serial_configuration.data());
    put_value(record->product_name, vpd_identifier(vpd));
    put_values(*record, kQ4Values, kQ4VpdTemplate, vpd);
    return read_flash(*record, adapter, KX_CLASS_Q4);
}

int32_t q5_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record) {
    using namespace kx::adapter;
    if (record == nullptr) {
        return KX_ADAPTER_INVALID;
    }
    read_q5_values(adapter, cap, *record);
    return read_flash(*record, adapter, record->chip_class);
}

int32_t q3_get_adapterinfo(uint8_t adapter, uint32_t cap, AdapterInfoRecord* record) {
    using namespace kx::adapter;
    if (record == nullptr) {
        return KX_ADAPTER_INVALID;
    }
    std::array<uint8_t, KX_Q3_EEPROM_SIZE> eeprom{};
    std::array<uint8_t, KX_Q3_VPD_SIZE> vpd{};
    std::array<uint8_t, KX_SERIAL_CONFIG_SIZE> serial_configuration;
    get_Q3(adapter, cap, eeprom.data(), vpd.data(), serial_configuration.data());
    write_q3_name(record->product_name, record->device_id, vpd_identifier(vpd));
    put_values(*record, kQ3Values, kQ3VpdTemplate, vpd);
    if (const int32_t status = connect_to_hba(adapter); status != 0) {
        return status;
    }
    read_q3_boot(adapter, record->boot.q3.settings, record->boot.q3.option_rom);
    disconnect_from_hba(adapter);
    return 0;
}

uint32_t get_adapterinfo_list(AdapterInfoRecord** first) {
    using namespace kx::adapter;
    if (first == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    g_adapter_count = scan_hbas();
    if (g_adapter_count == 0) {
        return KX_NO_ADAPTERS;
    }
    drop_adapterinfo_list();
    std::puts("get_adapterinfo_list: Enter function...");
    GrowingList<AdapterInfoRecord> list(g_KestrixAdapterInfo, *first);
    int32_t status = 0;
    for (uint8_t adapter = 0; adapter < g_adapter_count; ++adapter) {
        AdapterInfoRecord* const record = list.append();
        if (record == nullptr) {
            return KX_LIST_NO_MEMORY;
        }
        const pci_dev* const device = device_at(adapter);
        if (device != nullptr) {
            describe(*record, adapter, *device);
            read_adapter(*record, status);
        }
    }
    list.finish();
    std::puts("get_adapterinfo_list: Exit function...");
    return static_cast<uint32_t>(status);
}

}  // extern "C"
