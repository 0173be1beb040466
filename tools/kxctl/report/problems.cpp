#include "report/problems.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "output/counted.hpp"
#include "report/html.hpp"

namespace kx::ctl::page {
namespace {

// The items of the list.
class Problems {
public:
    void add(const std::string& place, const std::string& text) {
        items_ +=
            fmt::format("<li><a href=\"#{}\">{}</a></li>\n", html_text(place), html_text(text));
        ++count_;
    }

    // Something that is missing from the page.
    void add_missing(const std::string& reason) {
        items_ += fmt::format("<li>Not read: {}</li>\n", html_text(reason));
        ++count_;
    }

    // name: of what the answer is about.
    void add_failure(const std::string& place, const std::string& name, const Json& answer) {
        if (failed(answer)) {
            add(place, fmt::format("{}: {}", name, text_of(answer, "failure")));
        }
    }

    [[nodiscard]] std::string html() const {
        return count_ == 0 ? "<section>\n<h2>No problems found</h2>\n</section>\n"
                           : fmt::format(
                                 "<section>\n<h2>{}</h2>\n<ul class=\"problems\">\n{}</ul>\n"
                                 "</section>\n",
                                 counted(count_, "problem"), items_);
    }

private:
    std::string items_;
    std::size_t count_ = 0;
};

// Whether a driver's counter counts errors, by its name.
bool counts_errors(std::string name) {
    std::ranges::transform(name, name.begin(), [](unsigned char letter) {
        return static_cast<char>(std::tolower(letter));
    });
    constexpr std::array<std::string_view, 2> kParts = {"err", "crc"};
    return std::ranges::any_of(
        kParts, [&name](std::string_view part) { return name.find(part) != name.npos; });
}

void add_errors(
    Problems& problems, const std::string& place, const std::string& name, const Json& answer) {
    for (const Json& counter : list_in(answer, "counters")) {
        if (number_of(counter, "value") != 0 && counts_errors(text_of(counter, "name"))) {
            problems.add(
                place,
                fmt::format(
                    "{}: {} is {}", name, text_of(counter, "name"), text_of(counter, "value")));
        }
    }
}

void add_ports(Problems& problems, const Json& entry, std::size_t card, const std::string& name) {
    std::size_t number = 0;
    for (const Json& port : entry.at("ports")) {
        problems.add_failure(place_id("card", card), name, port);
        if (failed(port)) {
            continue;
        }
        const std::string interface = text_of(port, "interface");
        if (port.value("link_detected", Json()) == false) {
            problems.add(place_id("ports", card), fmt::format("{}: the link is down", interface));
        }
        add_errors(
            problems, place_id("counters", card, ++number), interface,
            port.value("counters", Json::object()));
    }
}

void add_flash(Problems& problems, const Json& entry, std::size_t card, const std::string& name) {
    const Json& answer = entry.at("flash");
    problems.add_failure(place_id("flash", card), name, answer);
    for (const Json& region : list_in(answer, "regions")) {
        if (region.contains("valid") && region.at("valid") == false) {
            problems.add(
                place_id("flash", card),
                fmt::format(
                    "{}: nothing valid in region {} of the flash", name, text_of(region, "name")));
        }
    }
}

void add_product_data(
    Problems& problems, const Json& entry, std::size_t card, const std::string& name) {
    const Json& answer = entry.at("vpd");
    problems.add_failure(place_id("vpd", card), name, answer);
    if (text_of(answer, "checksum") == "bad") {
        problems.add(
            place_id("vpd", card),
            fmt::format("{}: the checksum of the vital product data is wrong", name));
    }
    for (const Json& problem : list_in(answer, "problems")) {
        problems.add(place_id("vpd", card), fmt::format("{}: {}", name, value_text(problem)));
    }
}

void add_card(Problems& problems, const Json& entry, std::size_t card) {
    const std::string name = text_of(entry, "location");
    problems.add_failure(place_id("card", card), name, entry.at("card"));
    problems.add_failure(place_id("card", card), name, entry.at("adapter"));
    add_ports(problems, entry, card, name);
    add_errors(problems, place_id("counters", card), name, entry.at("counters"));
    add_flash(problems, entry, card, name);
    add_product_data(problems, entry, card, name);
}

}  // namespace

std::string place_id(std::string_view part, std::size_t card) {
    return fmt::format("{}-{}", part, card);
}

std::string place_id(std::string_view part, std::size_t card, std::size_t port) {
    return fmt::format("{}-{}-{}", part, card, port);
}

std::string problems_section(const Json& host) {
    Problems problems;
    problems.add_failure("cards", "Cards", host.at("cards"));
    if (!failed(host.at("cards"))) {
        std::size_t number = 0;
        for (const Json& entry : host.at("cards")) {
            add_card(problems, entry, ++number);
        }
    }
    problems.add_failure("modules", "Driver modules", host.at("modules"));
    problems.add_failure("machines", "Virtual machines", host.at("vms"));
    for (const Json& reason : list_in(host, "incomplete")) {
        problems.add_missing(reason.get<std::string>());
    }
    return problems.html();
}

}  // namespace kx::ctl::page
