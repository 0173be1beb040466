#include "report_page.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "printable.hpp"

namespace kx::ctl {
namespace {

constexpr std::string_view kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8"/>
<meta name="viewport" content="width=device-width, initial-scale=1"/>
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'"/>
<meta name="color-scheme" content="light dark"/>
)";

constexpr std::string_view kStyle = R"(<style>
:root { --ink: #1d2733; --dim: #5b6b7c; --paper: #f4f6f8; --sheet: #ffffff; --line: #d5dde5;
  --accent: #1f6feb; --good: #1a7f4b; --bad: #c0362c; --boot: #4c78a8; --config: #e39a2d;
  --firmware: #59a06a; }
@media (prefers-color-scheme: dark) { :root { --ink: #e4eaf0; --dim: #9aa8b6; --paper: #12171d;
  --sheet: #1b222a; --line: #333e4a; --accent: #6aa6ff; --good: #4cc38a; --bad: #ff7b72;
  --boot: #7aa6d6; --config: #f0b455; --firmware: #7cc48c; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--paper); color: var(--ink);
  font: 16px/1.45 system-ui, sans-serif; }
main, header { max-width: 72rem; margin: 0 auto; padding: 1rem; }
h1 { margin: 0; font-size: 1.6rem; overflow-wrap: anywhere; }
h2 { margin: 0 0 .75rem; font-size: 1.25rem; overflow-wrap: anywhere; }
h3 { margin: 1.5rem 0 .5rem; font-size: 1rem; color: var(--dim); }
header p, .note { color: var(--dim); margin: .25rem 0; }
section { background: var(--sheet); border: 1px solid var(--line); border-radius: .6rem;
  padding: 1rem; margin-bottom: 1rem; }
.wide { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th, td { text-align: left; padding: .3rem .75rem .3rem 0; border-bottom: 1px solid var(--line);
  vertical-align: baseline; }
th { color: var(--dim); font-weight: 600; font-size: .85rem; white-space: nowrap; }
td.n, th.n { text-align: right; }
td.bar { width: 40%; min-width: 5rem; }
svg { display: block; width: 100%; }
.bar svg { height: .7rem; } .bar rect { fill: var(--accent); }
.flash svg { height: 2.6rem; border: 1px solid var(--line); }
.boot { fill: var(--boot); background: var(--boot); }
.config { fill: var(--config); background: var(--config); }
.firmware { fill: var(--firmware); background: var(--firmware); }
.chip { display: inline-block; width: .8rem; height: .8rem; border-radius: .2rem; }
.good { color: var(--good); font-weight: 600; } .bad { color: var(--bad); font-weight: 600; }
.failure { color: var(--bad); }
dl { display: grid; grid-template-columns: repeat(auto-fill, minmax(11rem, 1fr)); gap: .75rem;
  margin: 0; }
dt { color: var(--dim); font-size: .85rem; } dd { margin: 0; overflow-wrap: anywhere; }
summary { cursor: pointer; color: var(--dim); font-weight: 600; margin-top: 1rem; }
@media print { :root { --ink: #000; --dim: #444; --paper: #fff; --sheet: #fff; --line: #bbb;
  --accent: #1f6feb; --good: #1a7f4b; --bad: #c0362c; --boot: #4c78a8; --config: #e39a2d;
  --firmware: #59a06a; }
  body { font-size: 10pt; } section, tr, .flash { break-inside: avoid; } .wide { overflow: visible; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; } }
</style>
)";

// A value of an answer as people read it.
std::string value_text(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    return value.is_null() ? "" : value.dump();
}

std::string text_of(const Json& object, const char* key) {
    return object.is_object() && object.contains(key) ? value_text(object.at(key)) : "";
}

std::uint64_t number_of(const Json& object, const char* key) {
    const bool has = object.is_object() && object.contains(key);
    return has && object.at(key).is_number_unsigned() ? object.at(key).get<std::uint64_t>()
           : has && object.at(key).is_number_integer()
               ? static_cast<std::uint64_t>(
                     std::max<std::int64_t>(0, object.at(key).get<std::int64_t>()))
               : 0;
}

bool failed(const Json& answer) { return answer.is_object() && answer.contains("failure"); }

const Json& list_in(const Json& answer, const char* key) {
    static const Json none = Json::array();
    const bool has = answer.is_object() && answer.contains(key) && answer.at(key).is_array();
    return has ? answer.at(key) : none;
}

std::string failure_line(const Json& answer) {
    return fmt::format("<p class=\"failure\">{}</p>\n", html_text(text_of(answer, "failure")));
}

std::string cell(std::string_view text, const char* style = "") {
    return fmt::format(
        "<td{}>{}</td>", *style == '\0' ? "" : fmt::format(" class=\"{}\"", style),
        text.empty() ? "&#8211;" : html_text(text));
}

std::string head_row(std::initializer_list<const char*> titles) {
    std::string row = "<tr>";
    for (const char* title : titles) {
        row += fmt::format("<th>{}</th>", title);
    }
    return row + "</tr>\n";
}

std::string wide_table(const std::string& rows) {
    return "<div class=\"wide\"><table>\n" + rows + "</table></div>\n";
}

std::string fact(const char* title, const std::string& text) {
    return fmt::format(
        "<div><dt>{}</dt><dd>{}</dd></div>\n", title, text.empty() ? "&#8211;" : html_text(text));
}

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

std::string port_row(const Json& port) {
    const bool up = number_of(port, "link_detected") != 0;
    const std::uint64_t duplex = number_of(port, "duplex");
    const std::string speed = text_of(port, "speed_mbps");
    return "<tr>" + cell(text_of(port, "instance"), "n") + cell(text_of(port, "interface")) +
           cell(up ? "up" : "down", up ? "good" : "bad") +
           cell(speed.empty() || speed == "0" || speed == "65535" ? "" : speed + " Mb/s") +
           cell(
               duplex == 1   ? "full"
               : duplex == 0 ? "half"
                             : "") +
           cell(text_of(port, "mtu_bytes"), "n") + cell(text_of(port, "mac")) +
           cell(first_of(text_of(port, "ipv4_address"), text_of(port, "ipv6_address"))) + "</tr>\n";
}

std::string ports_of(const Json& entry) {
    std::string rows;
    for (const Json& port : entry.at("ports")) {
        if (failed(port)) {
            return "<h3>Ports</h3>\n" + failure_line(port);
        }
        rows += port_row(port);
    }
    return rows.empty() ? ""
                        : "<h3>Ports</h3>\n" + wide_table(
                                                   head_row(
                                                       {"Port", "Interface", "Link", "Speed",
                                                        "Duplex", "MTU", "MAC", "Address"}) +
                                                   rows);
}

// Counters differ by many powers of ten; their bars grow with the logarithm.
double bar_width(std::uint64_t value, std::uint64_t most) {
    return most == 0 ? 0
                     : 100 * std::log1p(static_cast<double>(value)) /
                           std::log1p(static_cast<double>(most));
}

std::string counter_rows(const Json& counters) {
    std::uint64_t most = 0;
    for (const Json& counter : counters) {
        most = std::max(most, number_of(counter, "value"));
    }
    std::string rows;
    for (const Json& counter : counters) {
        rows += fmt::format(
            "<tr>{}{}<td class=\"bar\"><svg viewBox=\"0 0 100 10\" preserveAspectRatio=\"none\" "
            "role=\"img\"><rect width=\"{:.1f}\" height=\"10\"/></svg></td></tr>\n",
            cell(text_of(counter, "name")), cell(text_of(counter, "value"), "n"),
            bar_width(number_of(counter, "value"), most));
    }
    return rows;
}

std::string counters_titled(const std::string& title, const Json& answer) {
    const std::string heading =
        fmt::format("<details open=\"open\"><summary>{}</summary>\n", html_text(title));
    if (failed(answer)) {
        return heading + failure_line(answer) + "</details>\n";
    }
    const Json& counters = list_in(answer, "counters");
    return counters.empty()
               ? ""
               : heading +
                     wide_table(
                         head_row({"Counter", "Value", "Logarithmic"}) + counter_rows(counters)) +
                     "</details>\n";
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
    return text + counters_titled("Counters of the offload engine", entry.at("counters"));
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

// One unit of the drawing is a thousandth of the flash; a region that is smaller is still seen.
std::string region_drawing(const Json& region, double size) {
    const double begin = 1000 * static_cast<double>(number_of(region, "address")) / size;
    const double width = 1000 * static_cast<double>(number_of(region, "size_bytes")) / size;
    return fmt::format(
        "<rect class=\"{}\" x=\"{:.2f}\" width=\"{:.2f}\" height=\"10\"><title>{}</title></rect>\n",
        html_text(text_of(region, "name")), begin, std::max(width, 1.0),
        html_text(text_of(region, "name")));
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
    std::string drawing;
    std::string rows;
    for (const Json& region : list_in(answer, "regions")) {
        drawing += region_drawing(region, static_cast<double>(size));
        rows += fmt::format(
            "<tr><td><span class=\"chip {0}\"></span> {0}</td>{1}{2}{3}</tr>\n",
            html_text(text_of(region, "name")),
            cell(fmt::format("{:#x}", number_of(region, "address")), "n"),
            cell(size_text_of(number_of(region, "size_bytes")), "n"), cell(region_state(region)));
    }
    return fmt::format(
               "<h3>Flash, {}</h3>\n<div class=\"flash\"><svg viewBox=\"0 0 1000 10\" "
               "preserveAspectRatio=\"none\" role=\"img\">\n{}</svg></div>\n",
               size_text_of(size), drawing) +
           wide_table(head_row({"Region", "Address", "Size", "Holds"}) + rows);
}

std::string product_data_of(const Json& entry) {
    const Json& answer = entry.at("vpd");
    const std::string heading = "<details><summary>Vital product data</summary>\n";
    if (failed(answer)) {
        return heading + failure_line(answer) + "</details>\n";
    }
    std::string rows;
    for (const Json& field : list_in(answer, "fields")) {
        const std::string text = text_of(field, "text");
        rows += "<tr>" + cell(text_of(field, "keyword")) + cell(text_of(field, "meaning")) +
                cell(text.empty() ? "" : text) + "</tr>\n";
    }
    const std::string checksum = text_of(answer, "checksum");
    return heading +
           fmt::format(
               "<p>Checksum: <span class=\"{}\">{}</span></p>\n",
               checksum == "bad" ? "bad" : "good", html_text(first_of(checksum, "none"))) +
           wide_table(head_row({"Keyword", "Meaning", "Value"}) + rows) + "</details>\n";
}

std::string card_section(const Json& entry) {
    const std::string chip =
        first_of(text_of(entry.at("card"), "chip_type"), text_of(entry.at("adapter"), "chip_type"));
    return fmt::format(
               "<section>\n<h2>{} {}</h2>\n", html_text(chip),
               html_text(text_of(entry, "location"))) +
           facts_of(entry) + ports_of(entry) + counters_of(entry) + flash_of(entry) +
           product_data_of(entry) + "</section>\n";
}

std::string modules_section(const Json& answer) {
    std::string rows;
    for (const Json& module : list_in(answer, "modules")) {
        const bool loaded = number_of(module, "loaded") == 1;
        rows += "<tr>" + cell(text_of(module, "module")) +
                cell(loaded ? "loaded" : "not loaded", loaded ? "good" : "") +
                cell(text_of(module, "version")) + cell(text_of(module, "description")) + "</tr>\n";
    }
    return "<section>\n<h2>Driver modules</h2>\n" +
           (failed(answer)
                ? failure_line(answer)
                : wide_table(head_row({"Module", "State", "Version", "Description"}) + rows)) +
           "</section>\n";
}

std::string functions_text(const Json& machine) {
    const Json answer = machine.value("functions", Json::object());
    if (failed(answer)) {
        return text_of(answer, "failure");
    }
    std::string text;
    for (const Json& function : list_in(answer, "vfs")) {
        text += (text.empty() ? "" : ", ") + value_text(function);
    }
    return text;
}

std::string machines_section(const Json& answer) {
    std::string rows;
    for (const Json& machine : list_in(answer, "vms")) {
        rows +=
            "<tr>" + cell(text_of(machine, "name")) +
            cell(text_of(machine, "state"), text_of(machine, "state") == "running" ? "good" : "") +
            cell(functions_text(machine)) + "</tr>\n";
    }
    return "<section>\n<h2>Virtual machines</h2>\n" +
           (failed(answer) ? failure_line(answer)
            : rows.empty()
                ? std::string("<p class=\"note\">None.</p>\n")
                : wide_table(head_row({"Machine", "State", "Virtual functions"}) + rows)) +
           "</section>\n";
}

}  // namespace

std::string html_text(std::string_view text) {
    std::string result;
    for (const char byte : printable(text)) {
        switch (byte) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += byte;
        }
    }
    return result;
}

std::string report_page(const Json& host) {
    const std::string name = html_text(text_of(host, "name"));
    std::string page(kHead);
    page += fmt::format("<title>{}</title>\n", name);
    page += kStyle;
    page += fmt::format(
        "</head>\n<body>\n<header>\n<h1>{}</h1>\n<p>{} &#183; kxctl {}</p>\n</header>\n<main>\n",
        name, html_text(text_of(host, "time")),
        html_text(text_of(
            host.value("version", Json::object()).value("kxctl", Json::object()), "version")));
    if (failed(host.at("cards"))) {
        page += "<section>\n<h2>Cards</h2>\n" + failure_line(host.at("cards")) + "</section>\n";
    } else {
        for (const Json& entry : host.at("cards")) {
            page += card_section(entry);
        }
    }
    page += modules_section(host.at("modules")) + machines_section(host.at("vms"));
    return page + "</main>\n</body>\n</html>\n";
}

}  // namespace kx::ctl
