#include "report/card.hpp"

#include <fmt/core.h>

#include <algorithm>

#include "report/drawing.hpp"
#include "report/html.hpp"

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

std::string duplex_text(std::uint64_t duplex) {
    return duplex == 1 ? "full" : duplex == 0 ? "half" : "";
}

std::string speed_text(const std::string& speed) {
    return speed.empty() || speed == "0" || speed == "65535" ? "" : speed + " Mb/s";
}

std::string ports_of(const Json& entry) {
    const std::string heading = "<h3>Ports</h3>\n";
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
        const bool up = number_of(port, "link_detected") != 0;
        table.add_row(
            {text_of(port, "instance"), text_of(port, "interface"),
             PageCell(up ? "up" : "down", up ? "good" : "bad"), speed_text(text_of(port, "speed")),
             duplex_text(number_of(port, "duplex")), text_of(port, "mtu"), text_of(port, "mac"),
             first_of(text_of(port, "ipv4_address"), text_of(port, "ipv6_address"))});
    }
    return table.empty() ? "" : heading + table.html();
}

std::string counter_table(const Json& counters) {
    std::uint64_t most = 0;
    for (const Json& counter : counters) {
        most = std::max(most, number_of(counter, "value"));
    }
    PageTable table(
        {{"Counter"}, {"Value", "n"}, {"Logarithmic scale", "bar"}}, PageTable::Width::kNarrow);
    for (const Json& counter : counters) {
        table.add_row(
            {text_of(counter, "name"), text_of(counter, "value"),
             PageCell::of_markup(counter_bar(number_of(counter, "value"), most))});
    }
    return table.html();
}

// Nothing for a card without such counters.
std::string counters_titled(const std::string& title, const Json& answer) {
    const Json& counters = list_in(answer, "counters");
    if (!failed(answer) && counters.empty()) {
        return "";
    }
    return fmt::format(
        "<details open=\"open\"><summary>{}</summary>\n{}</details>\n", html_text(title),
        failed(answer) ? failure_line(answer) : counter_table(counters));
}

std::string counters_of(const Json& entry) {
    std::string text;
    for (const Json& port : entry.at("ports")) {
        if (!failed(port)) {
            text += counters_titled(
                "Counters of port " + text_of(port, "instance") + ", " + text_of(port, "interface"),
                port.value("counters", Json::object()));
        }
    }
    text += counters_titled("Counters of the offload engine", entry.at("counters"));
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

std::string flash_of(const Json& entry) {
    const Json& answer = entry.at("flash");
    if (failed(answer)) {
        return "<h3>Flash</h3>\n" + failure_line(answer);
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
    return fmt::format("<h3>Flash, {}</h3>\n", size_text_of(size)) +
           flash_drawing(list_in(answer, "regions"), size) + table.html();
}

std::string product_data_of(const Json& entry) {
    const Json& answer = entry.at("vpd");
    const std::string heading = "<details><summary>Vital product data</summary>\n";
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

std::string card_section(const Json& entry) {
    const std::string chip =
        first_of(text_of(entry.at("card"), "chip_type"), text_of(entry.at("adapter"), "chip_type"));
    return fmt::format(
               "<section>\n<h2>{} {}</h2>\n", html_text(chip),
               html_text(text_of(entry, "location"))) +
           facts_of(entry) + ports_of(entry) + counters_of(entry) + flash_of(entry) +
           product_data_of(entry) + "</section>\n";
}

}  // namespace kx::ctl::page
