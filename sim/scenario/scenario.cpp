// Turns the tables of a scenario into calls of the builder. Each table is one function here, and
// each key one line of it.
#include <kxsim/scenario.hpp>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>

#include "host/interface_text.hpp"
#include "host/machine_text.hpp"
#include "host/pci_function.hpp"
#include "scenario/hardware_keys.hpp"
#include "scenario/nic_keys.hpp"
#include "scenario/path_keys.hpp"
#include "scenario/table_reader.hpp"

namespace kxsim {
namespace {

constexpr unsigned kMost16 = 0xFFFF;
constexpr unsigned kMost24 = 0xFFFFFF;

void check_location(const std::string& text) { static_cast<void>(Location::parse(text)); }

TableReader::Check file_name(const char* key) {
    return [key](const std::string& text) { check_file_name(key, text); };
}

TableReader::Check relative_path(const char* key) {
    return [key](const std::string& text) { check_relative_path(key, text); };
}

void read_common_keys(TableReader& table, Interface& interface) {
    table.required("name")
        .text("name", interface.name, check_interface_name)
        .text("mac", interface.mac, check_mac)
        .texts("ipv4", interface.ipv4, check_ipv4)
        .texts("ipv6", interface.ipv6, check_ipv6)
        .number("mtu", interface.mtu, kMost16)
        .text("firmware", interface.firmware)
        .text("driver_version", interface.driver_version)
        .flag("up", interface.up)
        .table("nic", [&](TableReader& nic) { read_nic(nic, interface.nic); });
}

void read_adapter(TableReader& table, Host& host) {
    Adapter adapter;
    table.required("chip")
        .required("location")
        .text("chip", adapter.chip)
        .text("location", adapter.location, check_location)
        .number("device_id", adapter.device_id, kMost16)
        .numbers("siblings", adapter.siblings, 7)
        .number("virtual_functions", adapter.virtual_functions, 240)
        .number("irq", adapter.irq, 255)
        .number("bar0", adapter.bar0, INT64_MAX)
        .text("driver", adapter.driver, file_name("driver"))
        .table("flash", [&](TableReader& flash) { read_flash(flash, adapter); })
        .table("eeprom", [&](TableReader& eeprom) { read_eeprom(eeprom, adapter.eeprom); });
    table.allow("port").build([&] { host.adapter(adapter); });
    table.tables("port", [&](TableReader& port) {
        Interface interface;
        read_common_keys(port, interface);
        port.build([&] { host.port(adapter.location, interface); });
    });
}

void read_interface(TableReader& table, Host& host) {
    Interface interface;
    read_common_keys(table, interface);
    table.text("driver", interface.driver, file_name("driver"))
        .text("bus_info", interface.bus_info)
        .flag("loopback", interface.loopback);
    table.build([&] { host.interface(interface); });
}

void read_pci_device(TableReader& table, Host& host) {
    PciDevice device;
    unsigned config_size = static_cast<unsigned>(device.config_size);
    table.required("location")
        .required("vendor_id")
        .required("device_id")
        .text("location", device.location, check_location)
        .number("vendor_id", device.vendor_id, kMost16)
        .number("device_id", device.device_id, kMost16)
        .number("class", device.pci_class, kMost24)
        .number("subsystem_vendor_id", device.subsystem_vendor_id, kMost16)
        .number("subsystem_id", device.subsystem_id, kMost16)
        .number("revision", device.revision, 255)
        .number("irq", device.irq, 255)
        .number("bar0", device.bar0, INT64_MAX)
        .number("bar0_size", device.bar0_size, INT64_MAX)
        .text("driver", device.driver, file_name("driver"))
        .number("config_size", config_size);
    device.config_size = config_size;
    table.build([&] { host.pci_device(device); });
}

void read_module(TableReader& table, Host& host) {
    Module module;
    table.required("name")
        .text("name", module.name, file_name("name"))
        .text("version", module.version)
        .text("description", module.description)
        .flag("loaded", module.loaded)
        .text("where", module.where, relative_path("where"))
        .text("file", module.file, file_name("file"))
        .texts("info", module.info)
        .number("elf_class", module.elf_class)
        .flag("big_endian", module.big_endian)
        .values("parameters", module.parameters)
        .text("used_by", module.used_by, file_name("used_by"));
    table.build([&] { host.module(module); });
}

void read_toe_device(TableReader& table, Host& host) {
    ToeDevice device;
    table.required("index")
        .number("index", device.index, 255)
        .texts("interfaces", device.interfaces, check_interface_name)
        .values("parameters", device.parameters)
        .flag("control_files", device.control_files)
        .flag("of_zfab3", device.of_zfab3);
    table.build([&] { host.toe_device(device); });
}

void read_machine(TableReader& table, Host& host) {
    VirtualMachine machine;
    table.required("name")
        .text("name", machine.name)
        .text("uuid", machine.uuid, check_uuid)
        .text("state", machine.state)
        .texts("vfs", machine.vfs, check_location)
        .texts("bridges", machine.bridges, check_interface_name);
    table.build([&] { host.machine(machine); });
}

void read_file(TableReader& table, Host& host) {
    std::string path;
    std::string content;
    std::vector<unsigned> bytes;
    mode_t mode = 0644;
    table.required("path")
        .text("path", path, check_path)
        .text("content", content)
        .numbers("bytes", bytes, 255)
        .mode("mode", mode);
    if (table.has("content") && table.has("bytes")) {
        table.complain("bytes", "stands beside content, expected one of them");
    }
    for (const unsigned byte : bytes) {
        content.push_back(static_cast<char>(byte));
    }
    table.build([&] { host.file(path, content, mode); });
}

void read_directory(TableReader& table, Host& host) {
    std::string path;
    std::vector<std::string> order;
    table.required("path").text("path", path, check_path).texts("order", order, file_name("order"));
    table.build([&] {
        host.directory(path);
        if (!order.empty()) {
            host.order(path, order);
        }
    });
}

void read_link(TableReader& table, Host& host) {
    std::string path;
    std::string target;
    table.required("path").required("target").text("path", path, check_path).text("target", target);
    table.build([&] { host.link(path, target); });
}

void read_missing(TableReader& table, Host& host) {
    std::string path;
    table.required("path").text("path", path, check_path);
    table.build([&] { host.remove(path); });
}

void read_refusal(TableReader& table, Host& host) {
    std::string interface;
    std::uint32_t request = 0;
    int error = EOPNOTSUPP;
    table.required("interface")
        .required("request")
        .text("interface", interface)
        .request("request", request)
        .error("error", error);
    table.build([&] { host.refuse(interface, request, error); });
}

void read_ignored(TableReader& table, Host& host) {
    std::string interface;
    std::uint32_t request = 0;
    table.required("interface")
        .required("request")
        .text("interface", interface)
        .request("request", request);
    table.build([&] { host.ignore(interface, request); });
}

void read_fault(TableReader& table, Host& host) {
    Fault fault;
    fault.error = 0;
    table.required("call")
        .text("call", fault.call)
        .number("nth", fault.nth)
        .number("times", fault.times)
        .error("error", fault.error)
        .number("most", fault.most)
        .text("object", fault.object)
        .request("request", fault.command);
    if (fault.error == 0 && fault.most == 0) {
        fault.error = EIO;
    }
    table.build([&] {
        if (fault.call == "malloc" || fault.call == "calloc" || fault.call == "realloc") {
            throw std::invalid_argument(
                "call is \"" + fault.call + "\", expected one that fails outside of tests too");
        }
        host.fail(fault);
    });
}

void read_scenario(TableReader& scenario, Host& host) {
    std::string title;
    bool hide_entry_types = false;
    const auto each = [&](const char* key, void (*read)(TableReader&, Host&)) {
        scenario.tables(key, [&](TableReader& table) { read(table, host); });
    };
    scenario.text("title", title).flag("hide_entry_types", hide_entry_types);
    host.hide_entry_types(hide_entry_types);
    each("pci_device", read_pci_device);
    each("adapter", read_adapter);
    each("interface", read_interface);
    each("module", read_module);
    each("toe_device", read_toe_device);
    each("vm", read_machine);
    each("file", read_file);
    each("directory", read_directory);
    each("link", read_link);
    each("missing", read_missing);
    each("refusal", read_refusal);
    each("ignored", read_ignored);
    each("fault", read_fault);
    scenario.finish();
}

}  // namespace

void load_scenario_text(Host& host, std::string_view text, const std::string& name) {
    try {
        const toml::table root = toml::parse(text, name);
        TableReader scenario(name, root, "the scenario");
        read_scenario(scenario, host);
    } catch (const toml::parse_error& mistake) {
        complain_at(
            name, mistake.source().begin,
            std::string(mistake.description()) + ", expected a TOML document");
    }
}

void load_scenario(Host& host, const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (!in) {
        complain_at(file.string(), {.line = 1, .column = 1}, "cannot be read, expected a scenario");
    }
    load_scenario_text(host, text, file.string());
}

}  // namespace kxsim
