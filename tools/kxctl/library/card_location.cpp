#include "library/card_location.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "cli/suggestion.hpp"
#include "failure/failure.hpp"
#include "library/adapter_fields.hpp"
#include "library/adapter_query.hpp"
#include "library/host_interfaces.hpp"
#include "library/host_watch.hpp"

namespace kx::ctl {
namespace {

namespace fs = std::filesystem;

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

// Throws Failure for what is no adapter when the user may have meant another one. Of other words
// the library says what is wrong.
void suggest_adapter(const std::string& word, const PciLocation& wanted) {
    const std::string name = wanted.text();
    const std::vector<std::string> adapters = query_adapter_locations();
    if (std::ranges::find(adapters, name) == adapters.end() && !closest(name, adapters).empty()) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format("There is no adapter at {}{}", word, did_you_mean(name, adapters)));
    }
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
    constexpr unsigned kFunctionOfAdapters = 4;  // except of a Q3; their others serve storage
    if (found.empty() || wanted.function != kFunctionOfAdapters) {
        suggest_adapter(word, wanted);
    }
    return wanted.text();
}

PciLocation find_serial_number(const std::string& word) {
    std::string unread;
    std::vector<PciLocation> found;
    std::vector<std::string> names = adapter_interfaces();
    try {
        for (const AdapterInfoRecord& each : query_adapter_infos()) {
            const std::string serial_number = product_text(each.serial_number);
            names.push_back(serial_number);
            // An adapter that was not read has none.
            if (!word.empty() && serial_number == word) {
                const std::uint16_t domain = each.domain;  // of a packed record, so not aligned
                found.push_back({domain, each.bus, each.device, each.function});
            }
        }
    } catch (const Failure& failure) {
        unread = fmt::format(" (serial numbers cannot be read: {})", failure.what());
    }
    if (found.empty()) {
        throw Failure(
            ExitCode::kNotFound,
            fmt::format(
                "\"{}\" is not a location, an interface or a serial number of an adapter{}{}", word,
                did_you_mean(word, names), unread));
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

}  // namespace

std::vector<std::string> adapter_interfaces() {
    std::vector<std::string> names;
    for (const HostInterface& each : host_interfaces()) {
        if (each.location && !is_stacked(each.name)) {
            names.push_back(each.name);
        }
    }
    return names;
}

void refuse_ambiguous(const std::string& word, const std::vector<std::string>& all) {
    throw Failure(ExitCode::kNotFound, fmt::format("{} may be {}", word, fmt::join(all, " or ")));
}

std::string find_card(const std::string& word) {
    return location_in_library(word, find_function(word));
}

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

}  // namespace kx::ctl
