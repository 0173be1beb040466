#include "library/card_ports.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <kxlinhw/status.h>

#include <algorithm>

#include "failure/failure.hpp"
#include "library/host_interfaces.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

std::string joined_names(const std::vector<std::string>& names) {
    return names.empty() ? "no interface" : fmt::format("{}", fmt::join(names, ", "));
}

Json identity_json(const Port& port) {
    return {
        {"instance", port.instance},
        {"interface", field_text(port.interface_name)},
        {"mac", text_or_null(field_text(port.mac))},
    };
}

}  // namespace

std::vector<Port> ports_at(const std::string& location) {
    try {
        return query_ports(location);
    } catch (const Failure& failure) {
        if (failure.status() == KX_NO_PORT) {
            return {};
        }
        throw;
    }
}

std::vector<std::string> names_of(const std::vector<Port>& ports) {
    std::vector<std::string> names(ports.size());
    std::ranges::transform(
        ports, names.begin(), [](const Port& port) { return field_text(port.interface_name); });
    return names;
}

void check_numbers(const std::string& location, const std::vector<Port>& ports) {
    std::vector<std::string> answering = names_of(ports);
    std::ranges::sort(answering);
    const std::vector<std::string> listed = interfaces_at(*PciLocation::parse(location));
    if (answering != listed) {
        throw Failure(
            ExitCode::kPartly,
            fmt::format(
                "The ports of {} cannot be numbered: the kernel lists {}, of which {} answered; "
                "an interface names a port without a number",
                location, joined_names(listed), joined_names(answering)));
    }
}

Json card_json(const std::string& location) { return card_json(location, ports_at(location)); }

Json card_json(const std::string& location, const std::vector<Port>& ports) {
    return {{"location", location}, {"ports", json_array(ports, identity_json)}};
}

std::string subject_text(const Json& subject) {
    const auto text = [&subject](const char* key) {
        const Json& value = subject.at(key);
        return value.is_string() ? value.get<std::string>() : std::string("unknown");
    };
    if (subject.contains("interface")) {
        return fmt::format(
            "Port {} ({} port {}, MAC {})\n", text("interface"), text("location"),
            subject.at("instance").get<unsigned>(), text("mac"));
    }
    if (!subject.contains("ports")) {
        return "";
    }
    std::vector<std::string> ports;
    for (const Json& port : subject.at("ports")) {
        ports.push_back(fmt::format(
            "{} MAC {}", port.at("interface").get<std::string>(),
            port.at("mac").is_null() ? "unknown" : port.at("mac").get<std::string>()));
    }
    return fmt::format(
        "Card {} ({})\n", text("location"),
        ports.empty() ? std::string("no port") : fmt::format("{}", fmt::join(ports, ", ")));
}

}  // namespace kx::ctl
