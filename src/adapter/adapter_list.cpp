// The list of adapters with the content of their flash and EEPROM.
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/status.h>
#include <kxlinhw/vpd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "adapter/adapter_reading.hpp"
#include "adapter/product_name.hpp"
#include "adapter/record_list.hpp"
#include "adapter/vpd_template.hpp"

namespace kx::adapter {
namespace {

FreedList<AdapterRecord> freed;

uint8_t port_count(uint16_t device_id) {
    constexpr uint16_t kWithoutFunction = 0xF0FF;  // clears the bits that mark virtual functions
    char text[8];
    std::snprintf(text, sizeof text, "%x", device_id & kWithoutFunction);
    return getPortsQ4(text);
}

uint8_t default_config_version(const AdapterRecord& record) {
    return static_cast<uint8_t>(get_default_config_version(record.chip_class));
}

int32_t read_q3(AdapterRecord& record) {
    uint32_t cap = 0;
    vpd_setup(record.adapter, &cap);  // without VPD only the template fills the record
    std::array<uint8_t, KX_Q3_EEPROM_SIZE> eeprom{};
    get_Q3(record.adapter, cap, eeprom.data(), record.q3_vpd, record.serial_configuration);
    write_q3_name(record.product_name, record.device_id, vpd_identifier(record.q3_vpd));
    put_value(record.serial_number, vpd_value(kQ3VpdTemplate, record.q3_vpd, "SL"));
    decode_mac(record.factory_mac, vpd_value(kQ3VpdTemplate, record.q3_vpd, "NA"));
    if (const int32_t status = connect_to_hba(record.adapter); status != 0) {
        return status;
    }
    read_q3_boot(record.adapter, record.q3_settings, record.q3_option_rom);
    disconnect_from_hba(record.adapter);
    return 0;
}

// Q4 and Q5: configuration record and option ROM through the window.
int32_t read_flash(AdapterRecord& record) {
    if (const int32_t status = connect_to_hba_Q4(record.adapter); status != 0) {
        return status;
    }
    read_boot_config(record.adapter, record.boot_config);
    record.option_rom_valid = option_rom_valid(record.adapter);
    return 0;
}

// The offsets of a Q5's values in the VPD field of its record: those of a Q4, without the tags and
// keywords. The serial number is longer than its place; the MAC overwrites its end.
void fill_q5_vpd(AdapterRecord& record, const AdapterInfoRecord& values) {
    constexpr std::size_t kProductLength = 1;
    constexpr std::size_t kSerialLength = 62;
    constexpr std::size_t kMacLength = 89;
    constexpr std::size_t kV5Length = 175;
    uint8_t* const vpd = record.q4_vpd;
    const auto put = [vpd](std::size_t length_at, const char* value, uint8_t width) {
        vpd[length_at] = width;
        std::memcpy(vpd + length_at + 1, value, width);
    };
    vpd[kProductLength] = sizeof record.product_name;
    std::memcpy(vpd + kProductLength + 2, values.product_name, sizeof record.product_name);
    put(kSerialLength, values.serial_number, sizeof values.serial_number);
    put(kMacLength, values.mac, sizeof values.mac);
    put(kV5Length, values.v5, sizeof values.v5);
}

int32_t read_q5(AdapterRecord& record, uint32_t cap) {
    AdapterInfoRecord values{};
    read_q5_values(record.adapter, cap, values);
    fill_q5_vpd(record, values);
    if (const int32_t status = read_flash(record); status != 0) {
        return status;
    }
    record.default_config_version = default_config_version(record);
    disconnect_from_hba(record.adapter);
    return 0;
}

void print_name(const AdapterRecord& record, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(record.product_name[i]);
        std::printf("adp->product_name %x %c\n", byte, byte);
    }
}

void name_q4(AdapterRecord& record) {
    const std::string_view name = vpd_identifier(record.q4_vpd);
    const std::size_t length = std::min(name.size(), sizeof record.product_name);
    put_value(record.product_name, name);
    std::printf("vpd length %d\n", static_cast<int>(name.size()));
    trim_name(record.product_name, length);
    print_name(record, length);
}

void print_mac(const AdapterRecord& record) {
    int index = 0;
    for (const uint8_t byte : record.factory_mac) {
        std::printf("adp->factory_mac[%d] %x \n", index++, byte);
    }
}

int32_t read_q4(AdapterRecord& record, uint32_t cap) {
    std::array<uint8_t, KX_Q4_EEPROM_SIZE> eeprom{};
    get_Q4(record.adapter, cap, eeprom.data(), record.q4_vpd, record.serial_configuration);
    name_q4(record);
    decode_mac(record.factory_mac, vpd_value(kQ4VpdTemplate, record.q4_vpd, "NA"));
    print_mac(record);
    if (const int32_t status = read_flash(record); status != 0) {
        return status;
    }
    disconnect_from_hba(record.adapter);
    record.default_config_version = default_config_version(record);
    return 0;
}

int32_t read_adapter(AdapterRecord& record) {
    if (record.chip_class == KX_CLASS_Q3) {
        return read_q3(record);
    }
    uint32_t cap = 0;
    if (vpd_setup(record.adapter, &cap) != 0) {
        std::puts("WARNING: vpdcheck  failed for Q4 card");
        record.default_config_version = default_config_version(record);
        return 0;
    }
    return record.chip_class == KX_CLASS_Q5 ? read_q5(record, cap) : read_q4(record, cap);
}

}  // namespace

void drop_adapter_list() { freed.drop(g_KestrixAdapters, adapter_list_free); }

}  // namespace kx::adapter

extern "C" {

AdapterRecord* g_KestrixAdapters = nullptr;

uint32_t adapter_list_free(AdapterRecord* first) {
    kx::adapter::freed.free(first, g_KestrixAdapters);
    return KX_SUCCESS;
}

uint32_t get_adapter_list(AdapterRecord** first) {
    using namespace kx::adapter;
    if (first == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    g_adapter_count = scan_hbas();
    if (g_adapter_count == 0) {
        return KX_NO_ADAPTERS;
    }
    drop_adapter_list();
    std::puts("get_adapter_list:: Entered function...");
    GrowingList<AdapterRecord> list(g_KestrixAdapters, *first);
    for (uint8_t adapter = 0; adapter < g_adapter_count; ++adapter) {
        AdapterRecord* const record = list.append();
        if (record == nullptr) {
            return KX_LIST_NO_MEMORY;
        }
        const pci_dev* const device = device_at(adapter);
        if (device == nullptr) {
            continue;
        }
        describe(*record, adapter, *device);
        record->port_count = port_count(record->device_id);
        if (const int32_t status = read_adapter(*record); status != 0) {
            return static_cast<uint32_t>(status);
        }
    }
    list.finish();
    std::puts("get_adapter_list: Exit function...");
    return KX_SUCCESS;
}

}  // extern "C"
