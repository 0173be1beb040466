#include "library/card_ports.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <kxlinhw/status.h>

#include <algorithm>

#include "failure/failure.hpp"
#include "library/host_interfaces.hpp"
#include "library/host_watch.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

std::string joined_names(const std::vector<std::string>& names) {
    return names.empty() ? "no interface" : fmt::format("{}", fmt::join(names, ", "));
}

std::string joined(const Json& ports, const char* key) {
    std::vector<std::string> texts;
    for (const Json& port : ports) {
        texts.push_back(port.at(key).is_null() ? "unknown" : port.at(key).get<std::string>());
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

// "eth2 MAC 00:07:43:05:00:01, eth3 MAC 00:07:43:05:00:02"
std::string ports_text(const Json& ports) {
    if (ports.is_null()) {
        return "interfaces unknown";
    }
    std::vector<std::string> texts;
    for (const Json& port : ports) {
        texts.push_back(fmt::format(
            "{} MAC {}", port.at("interface").get<std::string>(),
            port.at("mac").is_null() ? "unknown" : port.at("mac").get<std::string>()));
    }
    return texts.empty() ? "no interface" : fmt::format("{}", fmt::join(texts, ", "));
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

Json ports_json(const std::vector<PortInfo>& ports) {
    if (is_unread_interface()) {
        return {};
    }
    Json all = Json::array();
    for (const PortInfo& port : ports) {
        all.push_back(
            {{"instance", port.instance},
             {"interface", field_text(port.interface_name)},
             {"mac", text_or_null(field_text(port.mac))}});
    }
    return all;
}

std::string interfaces_text(const Json& ports) { return joined(ports, "interface"); }

std::string macs_text(const Json& ports) { return joined(ports, "mac"); }

PortsOfAdapters::PortsOfAdapters(Incomplete& incomplete) : by_location_(Json::object()) {
    try {
        for (const CardWithPorts& card : query_cards_with_ports()) {
            by_location_[field_text(card.pci_bus_location)] = ports_json(card.port_records);
        }
    } catch (const Failure& failure) {
        if (failure.status() != KX_DRIVER_NOT_LOADED && failure.status() != KX_NO_CARDS) {
            incomplete.add(failure.what());
            by_location_ = Json();
        }
    }
}

Json PortsOfAdapters::at(const std::string& location) const {
    return by_location_.is_null() ? Json() : by_location_.value(location, Json::array());
}

Json adapter_json(const std::string& location, Incomplete& incomplete) {
    return {{"location", location}, {"ports", PortsOfAdapters(incomplete).at(location)}};
}

Json card_json(const std::string& location) { return card_json(location, ports_at(location)); }

Json card_json(const std::string& location, const std::vector<Port>& ports) {
    return {{"location", location}, {"ports", ports_json({ports.begin(), ports.end()})}};
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
    if (subject.contains("module")) {
        return fmt::format("Module {}\n", text("module"));
    }
    if (!subject.contains("ports")) {
        return "";
    }
    return fmt::format("Card {} ({})\n", text("location"), ports_text(subject.at("ports")));
}

}  // namespace kx::ctl
