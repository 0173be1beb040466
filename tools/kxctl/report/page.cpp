#include "report/page.hpp"

#include <fmt/core.h>

#include "report/card.hpp"
#include "report/html.hpp"
#include "report/problems.hpp"
#include "report/style.hpp"

namespace kx::ctl::page {
namespace {

std::string section_titled(const char* id, const char* title, const std::string& content) {
    return fmt::format("<section id=\"{}\">\n<h2>{}</h2>\n{}</section>\n", id, title, content);
}

// The table, or why there is none.
std::string table_or_failure(const PageTable& table, const Json& answer) {
    return failed(answer)  ? failure_line(answer)
           : table.empty() ? std::string("<p class=\"note\">None.</p>\n")
                           : table.html();
}

std::string modules_section(const Json& answer) {
    PageTable table({{"Module"}, {"State"}, {"Version"}, {"Description"}});
    for (const Json& module : list_in(answer, "modules")) {
        const bool loaded = module.value("loaded", Json()) == true;
        table.add_row(
            {text_of(module, "module"),
             PageCell(loaded ? "loaded" : "not loaded", loaded ? "good" : ""),
             text_of(module, "version"), text_of(module, "description")});
    }
    return section_titled("modules", "Driver modules", table_or_failure(table, answer));
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
    PageTable table({{"Machine"}, {"State"}, {"Virtual functions"}});
    for (const Json& machine : list_in(answer, "vms")) {
        const std::string state = text_of(machine, "state");
        table.add_row(
            {text_of(machine, "name"), PageCell(state, state == "running" ? "good" : ""),
             functions_text(machine)});
    }
    return section_titled("machines", "Virtual machines", table_or_failure(table, answer));
}

}  // namespace

std::string report_page(const Json& host) {
    const std::string name = html_text(text_of(host, "name"));
    std::string page(kReportHead);
    page += fmt::format("<title>{}</title>\n", name);
    page += kReportStyle;
    page += fmt::format(
        "</head>\n<body>\n<header>\n<h1>{}</h1>\n<p>{} &#183; kxctl {}</p>\n</header>\n<main>\n",
        name, html_text(text_of(host, "time")),
        html_text(text_of(
            host.value("version", Json::object()).value("kxctl", Json::object()), "version")));
    page += problems_section(host);
    if (failed(host.at("cards"))) {
        page += section_titled("cards", "Cards", failure_line(host.at("cards")));
    } else {
        std::size_t number = 0;
        for (const Json& entry : host.at("cards")) {
            page += card_section(entry, ++number);
        }
    }
    page += modules_section(host.at("modules")) + machines_section(host.at("vms"));
    return page + "</main>\n</body>\n</html>\n";
}

}  // namespace kx::ctl::page
