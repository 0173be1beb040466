// adapter: the content of the flash and the EEPROM of the host's adapters.
#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "library/adapter_fields.hpp"
#include "library/adapter_query.hpp"
#include "library/card_ports.hpp"
#include "library/no_adapter.hpp"
#include "library/register_windows.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::adapter {
namespace {

// The number of ports of an adapter with these interfaces.
std::optional<std::size_t> count_ports(const AdapterInfoRecord& adapter, const Json& ports) {
    return port_count(adapter, ports.size());
}

std::string count_text(std::optional<std::size_t> count) {
    return count ? fmt::format("{}", *count) : "";
}

Json count_json(std::optional<std::size_t> count) { return count ? Json(*count) : Json(); }

// For an adapter that was not read, only its location and ids are known; without its registers,
// also its product data.
bool flash_was_read(const AdapterInfoRecord& adapter) {
    return was_read(adapter) && !window_was_refused(adapter.adapter);
}

Json when_read(const AdapterInfoRecord& adapter, const Json& value) {
    return flash_was_read(adapter) ? value : Json();
}

void add_unread(Incomplete& incomplete, const AdapterInfoRecord& adapter) {
    if (!was_read(adapter)) {
        incomplete.add(unread_reason(adapter));
    } else if (window_was_refused(adapter.adapter)) {
        incomplete.add(refused_reason(adapter));
    }
}

std::string presence(bool present) { return present ? "present" : "none"; }

// The fields of an adapter in a list.
Json identity_json(const AdapterInfoRecord& adapter, const Json& ports) {
    return {
        {"location", location_of(adapter)},
        {"domain", std::uint32_t{adapter.domain}},
        {"adapter_index", adapter.adapter},
        {"vendor_id", std::uint32_t{adapter.vendor_id}},
        {"device_id", std::uint32_t{adapter.device_id}},
        {"chip_type", chip_text(adapter)},
        {"product", text_or_null(product_text(adapter.product_name))},
        {"serial_number", text_or_null(product_text(adapter.serial_number))},
        {"mac", text_or_null(mac_text(adapter))},
        {"port_count", count_json(count_ports(adapter, ports))},
        {"option_rom", when_read(adapter, has_option_rom(adapter))},
        {"bios_version", text_or_null(bios_version(adapter))},
        {"ports", ports},
    };
}

Json boot_json(const Q4BootConfig* config) {
    if (config == nullptr) {
        return {};
    }
    Json all = Json::object();
    for (const BootField& field : boot_fields()) {
        const std::vector<std::uint32_t> values = boot_values(*config, field);
        all[field.name] = field.count == 1 ? Json(values[0]) : Json(values);
    }
    all["initiator_name"] = text_or_null(initiator_name(*config));
    return all;
}

template <std::size_t N>
void put(char (&field)[N], const std::string& value) {
    std::copy_n(value.begin(), std::min(value.size(), N), field);
}

// Q3 records have no part number and no "V0"; both are in the product data of the adapter's other
// record.
void complete(AdapterInfoRecord& adapter) {
    if (adapter.chip_class == KX_CLASS_Q3 && was_read(adapter)) {
        const AdapterRecord record = query_adapter(location_of(adapter));
        const VpdContent content = decode_vpd(record.q3_vpd);
        put(adapter.part_number, content.value("PN"));
        put(adapter.v0, content.value("V0"));
    }
}

// A signed Q4 or Q5 record's fields, each under its name.
void add_boot_config(Table& table, const Q4BootConfig& config) {
    for (const BootField& field : boot_fields()) {
        table.add_row(
            {fmt::format("  {}", field.name),
             fmt::format("{}", fmt::join(boot_values(config, field), ", "))});
    }
    table.add_row({"  initiator_name", initiator_name(config)});
}

void add_identity(Table& table, const AdapterInfoRecord& adapter) {
    table.add_row({"Product", product_text(adapter.product_name)});
    table.add_row({"Chip", chip_text(adapter)});
    table.add_row(
        {"PCI location",
         fmt::format("{:04x}:{}", std::uint32_t{adapter.domain}, location_of(adapter))});
    table.add_row(
        {"PCI ids",
         fmt::format(
             "{:04x}:{:04x}", std::uint32_t{adapter.vendor_id}, std::uint32_t{adapter.device_id})});
    table.add_row({"Part number", product_text(adapter.part_number)});
    table.add_row({"Serial number", product_text(adapter.serial_number)});
    table.add_row({"MAC", mac_text(adapter)});
}

void add_ports(Table& table, const AdapterInfoRecord& adapter, const Json& ports) {
    table.add_row({"Ports", count_text(count_ports(adapter, ports))});
    table.add_row({"Interfaces", interfaces_text(ports)});
    table.add_row({"Their MACs", macs_text(ports)});
}

void add_boot(Table& table, const AdapterInfoRecord& adapter) {
    if (!was_read(adapter)) {
        table.add_row(
            {"Not read", "The vital product data, on which the rest depends, are not there"});
        return;
    }
    if (!flash_was_read(adapter)) {
        table.add_row({"Not read", "The flash, because the register window was not opened"});
        return;
    }
    table.add_row({"Option ROM", presence(has_option_rom(adapter))});
    table.add_row({"BIOS version", bios_version(adapter)});
    if (adapter.chip_class == KX_CLASS_Q3) {
        table.add_row({"Settings", presence(has_settings(adapter))});
        return;
    }
    const Q4BootConfig* const config = boot_config(adapter);
    table.add_row({"Default configuration", fmt::format("{}", adapter.default_config_version)});
    table.add_row({"Boot configuration", presence(config != nullptr)});
    if (config != nullptr) {
        add_boot_config(table, *config);
    }
}

std::vector<Column> list_columns() {
    return {{"LOCATION"},      {"CHIP"},      {"PRODUCT"},
            {"SERIAL NUMBER"}, {"MAC"},       {"PORTS", Align::kRight},
            {"BIOS"},          {"INTERFACES"}};
}

ExitCode list(const Arguments& arguments, Output& output) {
    List list(arguments, output, list_columns());
    const std::vector<AdapterInfoRecord> adapters = none_without_adapter(query_adapter_infos);
    const PortsOfAdapters ports_of_adapters(output.incomplete());
    for (const AdapterInfoRecord& adapter : adapters) {
        add_unread(output.incomplete(), adapter);
        const Json ports = ports_of_adapters.at(location_of(adapter));
        list.add(
            {location_of(adapter), chip_text(adapter), product_text(adapter.product_name),
             product_text(adapter.serial_number), mac_text(adapter),
             count_text(count_ports(adapter, ports)), bios_version(adapter),
             interfaces_text(ports)},
            identity_json(adapter, ports));
    }
    if (output.wants_json()) {
        output.json(Json{{"adapters", list.json()}});
    } else {
        list.print(output, no_adapter_text());
    }
    return ExitCode::kDone;
}

ExitCode show(const Arguments& arguments, Output& output) {
    const std::string location = card_location(arguments);
    AdapterInfoRecord adapter = query_adapter_info(location);
    if (!window_was_refused(adapter.adapter)) {
        complete(adapter);
    }
    if (window_was_refused(adapter.adapter)) {
        output.incomplete().add(refused_reason(adapter));
    }
    const Json ports = PortsOfAdapters(output.incomplete()).at(location);
    if (output.wants_json()) {
        Json all = identity_json(adapter, ports);
        const bool is_q3 = adapter.chip_class == KX_CLASS_Q3;
        all.update(Json{
            {"part_number", text_or_null(product_text(adapter.part_number))},
            {"v0", text_or_null(product_text(adapter.v0))},
            {"v5", text_or_null(product_text(adapter.v5))},
            {"default_config_version",
             when_read(adapter, is_q3 ? Json() : Json(adapter.default_config_version))},
            {"boot_configuration", boot_json(boot_config(adapter))},
            {"settings", when_read(adapter, is_q3 ? Json(has_settings(adapter)) : Json())},
        });
        output.json(all);
        return ExitCode::kDone;
    }
    Table table({{}, {}});
    add_identity(table, adapter);
    add_ports(table, adapter, ports);
    table.add_row({"V0", product_text(adapter.v0)});
    table.add_row({adapter.chip_class == KX_CLASS_Q3 ? "V7" : "V5", product_text(adapter.v5)});
    add_boot(table, adapter);
    output.table(table);
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "adapter",
            .verb = "list",
            .help = "Show the adapters with data from their EEPROM and flash",
            .about = "One line for each adapter: chip, product, serial number, MAC address of "
                     "its first port, number of ports, version of the boot option ROM, and, with a "
                     "driver, its interfaces. Reads the "
                     "adapters themselves, so it needs no driver; takes about half a second for "
                     "each adapter.",
            .arguments = {},
            .examples = {"kxctl adapter list", "kxctl --sim adapter list --json"},
            .run = list,
            .columns = list_columns,
        },
        {
            .noun = "adapter",
            .verb = "show",
            .help = "Show the data sheet of an adapter",
            .about = "Product, part and serial number, MAC address, ports, the versions V0 and "
                     "V5 (V7 of a Q3) of its product data, boot option ROM and boot "
                     "configuration. Configuration fields that only the option ROM understands "
                     "are named by their offset.",
            .arguments = {kAdapter},
            .examples = {"kxctl adapter show 04:00.4", "kxctl --sim adapter show 04:00.4 --json"},
            .run = show,
        },
    };
}

const TablePart kRows(600, rows);

}  // namespace
}  // namespace kx::ctl::adapter
