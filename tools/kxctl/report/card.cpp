#include "report/card.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <map>

#include "report/drawing.hpp"
#include "report/html.hpp"
#include "report/problems.hpp"

namespace kx::ctl::page {
namespace {

std::string first_of(const std::string& text, const std::string& other) {
    return text.empty() ? other : text;
}

std::string facts_of(const Json& entry) {
    const Json& card = entry.at("card");
    const Json& adapter = entry.at("adapter");
    return "<dl>\n" +
           fact("Product", first_of(text_of(card, "model"), text_of(adapter, "product"))) +
           fact("Serial number", text_of(adapter, "serial_number")) +
           fact("Part number", text_of(adapter, "part_number")) +
           fact("Firmware", text_of(card, "firmware")) +
           fact("Option ROM", text_of(adapter, "bios_version")) +
           fact("First MAC", text_of(adapter, "mac")) + fact("Interrupt", text_of(card, "irq")) +
           "</dl>\n" + (failed(card) ? failure_line(card) : "") +
           (failed(adapter) ? failure_line(adapter) : "");
}

PageCell link_cell(const Json& port) {
    const Json link = port.value("link_detected", Json());
    return link.is_null() ? PageCell("")
           : link == true ? PageCell("up", "good")
                          : PageCell("down", "bad");
}

std::string speed_text(const std::string& speed) { return speed.empty() ? "" : speed + " Mb/s"; }

std::string ports_of(const Json& entry, std::size_t card) {
    const std::string heading = fmt::format("<h3 id=\"{}\">Ports</h3>\n", place_id("ports", card));
    PageTable table(
        {{"Port", "n"},
         {"Interface"},
         {"Link"},
         {"Speed", "n"},
         {"Duplex"},
         {"MTU", "n"},
         {"MAC"},
         {"Address"}});
    for (const Json& port : entry.at("ports")) {
        if (failed(port)) {
            return heading + failure_line(port);
        }
        table.add_row(
            {text_of(port, "instance"), text_of(port, "interface"), link_cell(port),
             speed_text(text_of(port, "speed")), text_of(port, "duplex"), text_of(port, "mtu"),
             text_of(port, "mac"),
             first_of(text_of(port, "ipv4_address"), text_of(port, "ipv6_address"))});
    }
    return table.empty() ? "" : heading + table.html();
}

// Drivers name a counter's unit in its name. Nothing when the name has none.
std::string_view unit_of(std::string name) {
    struct Row {
        std::string_view part;
        std::string_view unit;
    };
    constexpr Row kUnits[] = {{"octet", "bytes"},   {"byte", "bytes"}, {"frame", "frames"},
                              {"packet", "frames"}, {"pkt", "frames"}, {"seg", "segments"}};
    std::ranges::transform(name, name.begin(), [](unsigned char letter) {
        return static_cast<char>(std::tolower(letter));
    });
    for (const Row& row : kUnits) {
        if (name.find(row.part) != name.npos) {
            return row.unit;
        }
    }
    return {};
}

// A bar compares a counter with the others of its unit.
std::string counter_table(const Json& counters) {
    std::map<std::string_view, std::uint64_t> most;
    for (const Json& counter : counters) {
        std::uint64_t& value = most[unit_of(text_of(counter, "name"))];
        value = std::max(value, number_of(counter, "value"));
    }
    PageTable table(
        {{"Counter"}, {"Value", "n"}, {"Logarithmic scale for each unit", "bar"}},
        PageTable::Width::kNarrow);
    for (const Json& counter : counters) {
        const std::string_view unit = unit_of(text_of(counter, "name"));
        table.add_row(
            {text_of(counter, "name"), text_of(counter, "value"),
             unit.empty()
                 ? PageCell::of_markup("&#160;")
                 : PageCell::of_markup(counter_bar(number_of(counter, "value"), most[unit]))});
    }
    return table.html();
}

// Nothing for a card without such counters.
std::string counters_titled(const std::string& id, const std::string& title, const Json& answer) {
    const Json& counters = list_in(answer, "counters");
    if (!failed(answer) && counters.empty()) {
        return "";
    }
    return fmt::format(
        "<details id=\"{}\" open=\"open\"><summary>{}</summary>\n{}</details>\n", id,
        html_text(title), failed(answer) ? failure_line(answer) : counter_table(counters));
}

std::string counters_of(const Json& entry, std::size_t card) {
    std::string text;
    std::size_t number = 0;
    for (const Json& port : entry.at("ports")) {
        if (!failed(port)) {
            text += counters_titled(
                place_id("counters", card, ++number),
                "Counters of port " + text_of(port, "instance") + ", " + text_of(port, "interface"),
                port.value("counters", Json::object()));
        }
    }
    text += counters_titled(
        place_id("counters", card), "Counters of the offload engine", entry.at("counters"));
    return text.empty() ? "" : "<div class=\"counters\">\n" + text + "</div>\n";
}

std::string size_text_of(std::uint64_t bytes) {
    return bytes % 1024 == 0 ? fmt::format("{} KiB", bytes / 1024) : fmt::format("{} bytes", bytes);
}

std::string region_state(const Json& region) {
    if (!region.contains("valid")) {
        return "";
    }
    const std::string version = text_of(region, "version");
    return !region.at("valid").get<bool>() ? "nothing valid"
           : version.empty()               ? "valid"
                                           : "valid, version " + version;
}

std::string flash_of(const Json& entry, std::size_t card) {
    const Json& answer = entry.at("flash");
    const std::string id = place_id("flash", card);
    if (failed(answer)) {
        return fmt::format("<h3 id=\"{}\">Flash</h3>\n{}", id, failure_line(answer));
    }
    const std::uint64_t size = number_of(answer.value("flash", Json::object()), "size_bytes");
    if (size == 0) {
        return "";
    }
    PageTable table({{"Region"}, {"Address", "n"}, {"Size", "n"}, {"Holds"}});
    for (const Json& region : list_in(answer, "regions")) {
        table.add_row(
            {PageCell::of_markup(region_label(region)),
             fmt::format("{:#x}", number_of(region, "address")),
             size_text_of(number_of(region, "size_bytes")), region_state(region)});
    }
    return fmt::format("<h3 id=\"{}\">Flash, {}</h3>\n", id, size_text_of(size)) +
           flash_drawing(list_in(answer, "regions"), size) + table.html();
}

std::string product_data_of(const Json& entry, std::size_t card) {
    const Json& answer = entry.at("vpd");
    const std::string heading = fmt::format(
        "<details id=\"{}\"><summary>Vital product data</summary>\n", place_id("vpd", card));
    if (failed(answer)) {
        return heading + failure_line(answer) + "</details>\n";
    }
    PageTable table({{"Keyword"}, {"Meaning"}, {"Value"}});
    for (const Json& field : list_in(answer, "fields")) {
        table.add_row(
            {text_of(field, "keyword"), text_of(field, "meaning"), text_of(field, "text")});
    }
    const std::string checksum = text_of(answer, "checksum");
    return heading +
           fmt::format(
               "<p>Checksum: <span class=\"{}\">{}</span></p>\n",
               checksum == "bad" ? "bad" : "good", html_text(first_of(checksum, "none"))) +
           table.html() + "</details>\n";
}

}  // namespace

std::string card_section(const Json& entry, std::size_t number) {
    const std::string chip =
        first_of(text_of(entry.at("card"), "chip_type"), text_of(entry.at("adapter"), "chip_type"));
    return fmt::format(
               "<section id=\"{}\">\n<h2>{} {}</h2>\n", place_id("card", number), html_text(chip),
               html_text(text_of(entry, "location"))) +
           facts_of(entry) + ports_of(entry, number) + counters_of(entry, number) +
           flash_of(entry, number) + product_data_of(entry, number) + "</section>\n";
}

}  // namespace kx::ctl::page
