#include "scenario/hardware_keys.hpp"

#include <limits>
#include <stdexcept>

#include "scenario/path_keys.hpp"

namespace kxsim {
namespace {

constexpr unsigned kMost8 = 0xFF;
constexpr unsigned kMostAddress = std::numeric_limits<std::uint32_t>::max();

// Paths of files are relative to the scenario's directory.
void read_file_name(TableReader& table, std::string& file) {
    std::string name;
    table.text("file", name, [&](const std::string& given) {
        file = given.empty() ? "" : file_beside(table.file(), given);
    });
}

// Bytes at an address: as a text, or as numbers.
void read_pieces(TableReader& table, Content& content) {
    table.allow("piece");
    table.tables("piece", [&](TableReader& piece) {
        unsigned address = 0;
        std::string text;
        std::vector<unsigned> bytes;
        piece.required("address")
            .number("address", address, kMostAddress)
            .text("text", text)
            .numbers("bytes", bytes, kMost8);
        piece.finish();
        for (const unsigned byte : bytes) {
            text.push_back(static_cast<char>(byte));
        }
        content.emplace_back(address, text);
    });
}

struct DamageName {
    std::string_view name;
    Damage damage;
};

constexpr DamageName kDamages[] = {
    {"erased", Damage::kErased},     {"no-end-tag", Damage::kNoEndTag},
    {"lengths", Damage::kLengths},   {"keywords", Damage::kKeywords},
    {"checksum", Damage::kChecksum},
};

void read_damage(TableReader& table, std::vector<Damage>& damage) {
    std::vector<std::string> names;
    table.texts("damage", names, [&damage](const std::string& name) {
        for (const DamageName& row : kDamages) {
            if (row.name == name) {
                damage.push_back(row.damage);
                return;
            }
        }
        throw std::invalid_argument(
            "damage \"" + name + "\" is none of erased, no-end-tag, lengths, keywords, checksum");
    });
}

void read_product_data(TableReader& table, std::optional<ProductData>& data) {
    data.emplace();
    table.text("product", data->product)
        .text("part_number", data->part_number)
        .text("serial", data->serial)
        .text("mac", data->mac)
        .text("v0", data->v0)
        .text("v5", data->v5);
    table.finish();
}

}  // namespace

void read_flash(TableReader& table, Adapter& adapter) {
    Flash& flash = adapter.flash;
    HardwareFaults& faults = adapter.faults;
    unsigned capacity_code = 0;
    table.number("manufacturer", flash.manufacturer, kMost8)
        .number("type", flash.type, kMost8)
        .number("capacity_code", capacity_code, kMost8)
        .number("busy_polls", flash.busy_polls)
        .number("program_polls", flash.program_polls)
        .number("erase_polls", flash.erase_polls)
        .number("stuck_busy_at", faults.stuck_busy_at)
        .number("endless_write_at", faults.endless_write_at)
        .number("flipped_bit_at", faults.flipped_bit_at)
        .number("power_cut_at", faults.power_cut_at)
        .number("misread_at", faults.misread_at)
        .number("stuck_sector", faults.stuck_sector);
    if (table.has("capacity_code")) {
        flash.capacity_code = capacity_code;
    }
    read_file_name(table, flash.file);
    read_pieces(table, flash.content);
    table.finish();
}

void read_eeprom(TableReader& table, Eeprom& eeprom) {
    table.flag("capability", eeprom.capability)
        .number("polls", eeprom.polls)
        .flag("silent", eeprom.silent)
        .flag("loses_writes", eeprom.loses_writes);
    read_damage(table, eeprom.damage);
    table.table(
        "product_data", [&](TableReader& data) { read_product_data(data, eeprom.product_data); });
    if (!eeprom.damage.empty() && !eeprom.product_data) {
        table.complain("damage", "is given, but there are no product_data");
    }
    read_file_name(table, eeprom.file);
    read_pieces(table, eeprom.content);
    table.finish();
}

}  // namespace kxsim
