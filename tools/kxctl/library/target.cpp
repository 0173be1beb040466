#include "library/target.hpp"

#include <fmt/core.h>
#include <kxlinhw/status.h>

#include <algorithm>

#include "cli/numbers.hpp"
#include "cli/suggestion.hpp"
#include "failure/failure.hpp"
#include "library/card_ports.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

const Port* find_record(const std::vector<Port>& ports, const std::string& interface) {
    const auto found = std::ranges::find_if(
        ports, [&](const Port& port) { return field_text(port.interface_name) == interface; });
    return found == ports.end() ? nullptr : &*found;
}

}  // namespace

PortTarget::PortTarget(const Arguments& arguments) {
    const std::string word = arguments.get("LOCATION");
    const std::size_t slash = word.find('/');
    if (arguments.has("PORT")) {
        const std::string number = arguments.get("PORT");
        if (slash != word.npos || (host_interface(word) && !PciLocation::parse(word))) {
            refuse_usage(fmt::format("{} names a port, which takes no PORT {}", word, number));
        }
        find(word, port_number(number));
    } else if (slash != word.npos) {
        find(word.substr(0, slash), port_number(word.substr(slash + 1)));
    } else {
        find(word);
    }
}

void PortTarget::find(const std::string& word) {
    const std::optional<HostInterface> interface = host_interface(word);
    if (const auto card = PciLocation::parse(word)) {
        if (interface) {
            refuse_ambiguous(word, {"the card at " + card->full_text(), described(*interface)});
        }
        refuse_usage(word + " is a card, of which PORT names a port");
    }
    if (!interface) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format(
                "There is no interface {}{}", word, did_you_mean(word, adapter_interfaces())));
    }
    if (!interface->location || is_stacked(word)) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format("{} is not a port of an adapter", described(*interface)));
    }
    location_ = interface->location->text();
    const std::vector<Port> ports = ports_at(location_);
    const Port* const record = find_record(ports, word);
    if (record == nullptr) {
        throw Failure(
            ExitCode::kPartly,
            fmt::format("The driver of {} does not answer", described(*interface)));
    }
    identify(*record);
}

void PortTarget::find(const std::string& card, std::uint32_t instance) {
    location_ = find_card(card);
    const std::vector<Port> ports = ports_at(location_);
    check_numbers(location_, ports);
    const auto found = std::ranges::find_if(
        ports, [instance](const Port& port) { return port.instance == instance; });
    if (found == ports.end()) {
        check(ports.empty() ? KX_NO_PORT : KX_INVALID_PORT);
    }
    identify(*found);
}

// What the kernel says about the port that the library has found.
void PortTarget::identify(const Port& record) {
    record_ = record;
    const std::string name = field_text(record_.interface_name);
    const std::string mac = field_text(record_.mac);
    identity_ = {name, mac, PciLocation::parse(location_)};
    const std::optional<HostInterface> now = host_interface(name);
    if (!is_same(identity_, now)) {
        throw Failure(ExitCode::kBusy, movement(identity_, now));
    }
    identity_ = *now;
}

Json PortTarget::json() const {
    return {
        {"location", location_},
        {"instance", instance()},
        {"interface", interface()},
        {"mac", text_or_null(identity_.mac)},
    };
}

void PortTarget::check_unmoved() const {
    if (const auto now = host_interface(interface()); now != identity_) {
        throw Failure(ExitCode::kBusy, movement(identity_, now));
    }
}

void PortTarget::check_before_change() const {
    const std::optional<HostInterface> now = host_interface(interface());
    if (now && now->mac.empty()) {
        throw Failure(
            ExitCode::kPartly,
            fmt::format("{} may be another port; nothing was changed", described(*now)));
    }
    if (now != identity_) {
        throw Failure(ExitCode::kBusy, movement(identity_, now) + "; nothing was changed");
    }
}

std::vector<StatEntry> PortTarget::read_counters() const {
    std::vector<StatEntry> counters = query_port_counters(interface());
    check_unmoved();
    return counters;
}

Port PortTarget::read_again() const {
    const std::vector<Port> ports = ports_at(location_);
    const Port* const record = find_record(ports, interface());
    const std::optional<HostInterface> now = host_interface(interface());
    if (now != identity_) {
        throw Failure(
            ExitCode::kPartly,
            movement(identity_, now) + ": it is not certain which port was changed");
    }
    if (record == nullptr) {
        throw Failure(
            ExitCode::kPartly,
            fmt::format(
                "The driver of {} does not answer: what was set cannot be read back",
                described(identity_)));
    }
    return *record;
}

}  // namespace kx::ctl
