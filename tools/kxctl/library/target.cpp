#include "library/target.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include "cli/numbers.hpp"
#include "cli/suggestion.hpp"
#include "failure/failure.hpp"
#include "library/adapter_fields.hpp"
#include "library/adapter_query.hpp"
#include "library/offload_devices.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

namespace fs = std::filesystem;

// "eth2 (0000:03:00.4, MAC 00:07:43:05:00:01)"
std::string described(const HostInterface& interface) {
    return fmt::format(
        "{} ({}, MAC {})", interface.name,
        interface.location ? interface.location->full_text() : "no PCI function",
        interface.mac.empty() ? "unknown" : interface.mac);
}

std::string joined_names(const std::vector<std::string>& names) {
    return names.empty() ? "no interface" : fmt::format("{}", fmt::join(names, ", "));
}

// What users may have meant when they name an interface that is not there.
std::vector<std::string> adapter_interfaces() {
    std::vector<std::string> names;
    for (const HostInterface& each : host_interfaces()) {
        if (each.location && !is_stacked(each.name)) {
            names.push_back(each.name);
        }
    }
    return names;
}

[[noreturn]] void refuse_ambiguous(const std::string& word, const std::vector<std::string>& all) {
    throw Failure(ExitCode::kNotFound, fmt::format("{} may be {}", word, fmt::join(all, " or ")));
}

bool is_kestrix(const fs::path& function) {
    unsigned vendor = 0;
    std::ifstream file(function / "vendor");
    file >> std::hex >> vendor;
    return vendor == KXLINHW_PCI_VENDOR_ID;
}

// The functions of the maker in the kernel's list of PCI functions, in every domain.
std::vector<PciLocation> functions_in_all_domains(const PciLocation& wanted) {
    const HostWatch watch;
    std::vector<PciLocation> found;
    std::error_code error;
    fs::directory_iterator entry("/sys/bus/pci/devices", error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const auto location = PciLocation::parse(entry->path().filename().native());
        if (location && location->text() == wanted.text() && is_kestrix(entry->path())) {
            found.push_back(*location);
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        throw Failure(
            ExitCode::kPartly,
            "The PCI functions of this host cannot be listed: " + error.message());
    }
    std::ranges::sort(found, {}, &PciLocation::full_text);
    return found;
}

std::vector<std::string> full_texts(const std::vector<PciLocation>& locations) {
    std::vector<std::string> texts(locations.size());
    std::ranges::transform(locations, texts.begin(), &PciLocation::full_text);
    return texts;
}

// The library's records have no domain: it takes the first card with that bus, device and function.
std::string location_in_library(const std::string& word, const PciLocation& wanted) {
    const std::vector<PciLocation> found = functions_in_all_domains(wanted);
    const auto fits = [&](const PciLocation& each) { return wanted.matches(each); };
    if (!found.empty() && std::ranges::none_of(found, fits)) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format(
                "There is no adapter at {}, but at {}", word, fmt::join(full_texts(found), ", ")));
    }
    if (found.size() > 1) {
        if (!wanted.domain) {
            refuse_ambiguous(word, full_texts(found));
        }
        throw Failure(
            ExitCode::kNotSupported,
            fmt::format(
                "The library cannot distinguish {}: only their interfaces name them",
                fmt::join(full_texts(found), " and ")));
    }
    return wanted.text();
}

std::vector<PciLocation> with_serial_number(const std::string& serial_number) {
    std::vector<PciLocation> found;
    for (const AdapterInfoRecord& each : query_adapter_infos()) {
        if (product_text(each.serial_number) == serial_number) {
            found.push_back({each.domain, each.bus, each.device, each.function});
        }
    }
    return found;
}

PciLocation find_serial_number(const std::string& word) {
    std::string unread;
    std::vector<PciLocation> found;
    try {
        if (!word.empty()) {  // which the serial number of an unread adapter is
            found = with_serial_number(word);
        }
    } catch (const Failure& failure) {
        unread = fmt::format(" (serial numbers cannot be read: {})", failure.what());
    }
    if (found.empty()) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format(
                "\"{}\" is not a location, an interface or a serial number of an adapter{}{}", word,
                did_you_mean(word, adapter_interfaces()), unread));
    }
    if (found.size() > 1) {
        refuse_ambiguous(word, full_texts(found));
    }
    return found.front();
}

// The function that a word names; without a domain when the word has none.
PciLocation find_function(const std::string& word) {
    const std::optional<PciLocation> location = PciLocation::parse(word);
    const std::optional<HostInterface> interface = host_interface(word);
    if (interface && location &&
        (!interface->location || !location->matches(*interface->location))) {
        refuse_ambiguous(word, {"the card at " + location->full_text(), described(*interface)});
    }
    if (interface && !interface->location) {
        throw Failure(
            ExitCode::kNotFound, fmt::format("{} belongs to no adapter", described(*interface)));
    }
    return interface ? *interface->location : location ? *location : find_serial_number(word);
}

// The card that a word names.
std::string find_card(const std::string& word) {
    return location_in_library(word, find_function(word));
}

// The ports at a location; none for a card without a port.
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

Json identity_json(const Port& port) {
    return {
        {"instance", port.instance},
        {"interface", field_text(port.interface_name)},
        {"mac", text_or_null(field_text(port.mac))},
    };
}

// Whether an interface is what the library's records say about it: without a MAC or a domain when
// those are unknown.
bool is_same(const HostInterface& expected, const std::optional<HostInterface>& now) {
    return now && now->location && expected.location->matches(*now->location) &&
           (expected.mac.empty() || expected.mac == now->mac);
}

std::string movement(const HostInterface& expected, const std::optional<HostInterface>& now) {
    return fmt::format(
        "The interface was {} and is {} now", described(expected),
        now ? described(*now) : "not there");
}

// Throws Failure unless the library's ports are the kernel's.
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

const Port* find_record(const std::vector<Port>& ports, const std::string& interface) {
    const auto found = std::ranges::find_if(
        ports, [&](const Port& port) { return field_text(port.interface_name) == interface; });
    return found == ports.end() ? nullptr : &*found;
}

}  // namespace

std::string card_location(const Arguments& arguments) {
    return find_card(arguments.get("LOCATION"));
}

std::string adapter_location(const Arguments& arguments) {
    const std::string word = arguments.get("LOCATION");
    const PciLocation wanted = find_function(word);
    const std::vector<PciLocation> found = functions_in_all_domains(wanted);
    if (found.size() < 2) {
        return location_in_library(word, wanted);
    }
    if (!wanted.domain) {
        refuse_ambiguous(word, full_texts(found));
    }
    return wanted.full_text();
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

Json card_json(const std::string& location) {
    return {{"location", location}, {"ports", json_array(ports_at(location), identity_json)}};
}

EngineTarget::EngineTarget(const Arguments& arguments) : location_(card_location(arguments)) {
    static_cast<void>(query_card(location_));  // before its ports: there may be no such card
    ports_ = ports_at(location_);
    check_numbers(location_, ports_);
    record_ = read_card();
    check_engine();
}

// The library read the card's parameters from the engine of the first port that answered.
CardInfo EngineTarget::read_card() const {
    const CardInfo card = query_card(location_);
    if (card.port_count != ports_.size()) {
        throw Failure(
            ExitCode::kPartly, fmt::format(
                                   "{} has {} ports, of which {} answered", location_,
                                   ports_.size(), std::uint16_t{card.port_count}));
    }
    return card;
}

void EngineTarget::check_engine() const {
    check_offload_lines(names_of(ports_), field_text(record_.chip_type) == "Q3");
}

Json EngineTarget::json() const {
    return {{"location", location_}, {"ports", json_array(ports_, identity_json)}};
}

void EngineTarget::check_before_change() const {
    for (const Port& port : ports_) {
        const std::string name = field_text(port.interface_name);
        const std::optional<HostInterface> now = host_interface(name);
        const HostInterface expected{name, field_text(port.mac), PciLocation::parse(location_)};
        if (!is_same(expected, now)) {
            throw Failure(ExitCode::kBusy, movement(expected, now) + "; nothing was changed");
        }
    }
    check_engine();
}

CardInfo EngineTarget::read_again() const { return read_card(); }

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
