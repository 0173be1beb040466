// card: the adapters of the host.
#include <fmt/core.h>

#include <cstring>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "failure/unread.hpp"
#include "library/card_ports.hpp"
#include "library/no_adapter.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"

namespace kx::ctl::card {
namespace {

// The offload device of a card. For cards with an offload engine the text is longer than its field;
// its last two bytes overwrite part of the PCI class, which is lost for these cards.
struct Offload {
    explicit Offload(const CardInfo& card) {
        char text[sizeof card.offload_device + 2];
        const char* const record = reinterpret_cast<const char*>(&card);
        std::memcpy(text, record + offsetof(CardInfo, offload_device), sizeof text);
        covers_class = field_text(text) == "OffloadCard";
        device = covers_class ? field_text(text) : field_text(card.offload_device);
    }

    [[nodiscard]] std::string for_people() const {
        return covers_class ? "yes" : device == "nic_dev" ? "no" : device;
    }

    std::string device;
    bool covers_class;
};

// A file of the card's function on the PCI bus.
bool has_unread(const CardInfo& card, const char* file) {
    return is_unread(fmt::format("{}/{}", field_text(card.pci_bus_location), file));
}

// An interface that did not answer may be one more port.
bool knows_ports() { return !is_unread_interface(); }

std::string port_count_text(const CardInfo& card) {
    return knows_ports() ? fmt::format("{}", std::uint16_t{card.port_count}) : "";
}

Json to_json(const CardWithPorts& card) {
    const Offload offload(card);
    const bool class_is_known = !offload.covers_class && !has_unread(card, "class");
    return {
        {"location", field_text(card.pci_bus_location)},
        {"chip_type", field_text(card.chip_type)},
        {"model", text_or_null(field_text(card.model))},
        {"vendor_id", std::uint32_t{card.vendor_id}},
        {"device_id", std::uint32_t{card.device_id}},
        {"pci_class", class_is_known ? Json(std::uint32_t{card.pci_class}) : Json()},
        {"irq", has_unread(card, "irq") ? Json() : Json(std::uint32_t{card.irq})},
        {"port_count", knows_ports() ? Json(std::uint16_t{card.port_count}) : Json()},
        {"firmware", text_or_null(field_text(card.firmware))},
        {"offload_device", text_or_null(offload.device)},
        {"ports", ports_json(card.port_records)},
    };
}

std::vector<Column> list_columns() {
    return {{"LOCATION"}, {"CHIP"},    {"MODEL"},      {"DEVICE"}, {"PORTS", Align::kRight},
            {"FIRMWARE"}, {"OFFLOAD"}, {"INTERFACES"}, {"MACS"}};
}

ExitCode list(const Arguments& arguments, Output& output) {
    List cards(arguments, output, list_columns());
    for (const CardWithPorts& card : none_without_adapter(query_cards_with_ports)) {
        const Json ports = ports_json(card.port_records);
        cards.add(
            {field_text(card.pci_bus_location), field_text(card.chip_type), field_text(card.model),
             fmt::format("{:04x}", std::uint32_t{card.device_id}), port_count_text(card),
             field_text(card.firmware), Offload(card).for_people(), interfaces_text(ports),
             macs_text(ports)},
            to_json(card));
    }
    if (output.wants_json()) {
        output.json(Json{{"cards", cards.json()}});
    } else {
        cards.print(output, no_adapter_text());
    }
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "card",
            .verb = "list",
            .help = "Show the adapters of this host",
            .about =
                "One line for each card: its PCI bus location (the name of the card in all other "
                "commands), chip, model, PCI device id, number of ports, firmware, its "
                "offload engine (\"yes\", \"no\", or the name of the offload device), and the "
                "interfaces of its ports with their MAC addresses.",
            .arguments = {},
            .examples = {"kxctl card list", "kxctl card list --json"},
            .run = list,
            .columns = list_columns,
        },
    };
}

const TablePart kRows(100, rows);

}  // namespace
}  // namespace kx::ctl::card
