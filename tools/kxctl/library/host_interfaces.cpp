#include "library/host_interfaces.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "failure/failure.hpp"
#include "library/host_watch.hpp"

namespace kx::ctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kInterfaces = "/sys/class/net";

[[noreturn]] void fail_to_list(const fs::path& path, const std::error_code& error) {
    throw Failure(
        ExitCode::kPartly, fmt::format(
                               "The interfaces of this host cannot be listed: {}: {}",
                               path.string(), error.message()));
}

std::string mac_in(const fs::path& interface) {
    std::string line;
    std::ifstream file(interface / "address");
    std::getline(file, line);
    return line;
}

// The path of its device ends in the PCI function, or, as for virtio, continues behind it.
std::optional<PciLocation> pci_function_of(const fs::path& interface) {
    std::error_code error;
    const fs::path device = fs::canonical(interface / "device", error);
    if (error == std::errc::no_such_file_or_directory) {
        return std::nullopt;  // a virtual interface
    }
    if (error) {
        fail_to_list(interface / "device", error);
    }
    std::optional<PciLocation> last;
    for (const fs::path& part : device) {
        if (const auto location = PciLocation::parse(part.native())) {
            last = location;
        }
    }
    return last;
}

HostInterface read_interface(const fs::path& interface) {
    return {interface.filename(), mac_in(interface), pci_function_of(interface)};
}

bool is_plain_name(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos &&
           name.find('\0') == name.npos;
}

}  // namespace

std::vector<HostInterface> host_interfaces() {
    const HostWatch watch;
    std::vector<HostInterface> all;
    std::error_code error;
    fs::directory_iterator entry(kInterfaces, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        all.push_back(read_interface(entry->path()));
    }
    if (error) {
        fail_to_list(kInterfaces, error);
    }
    std::ranges::sort(all, {}, &HostInterface::name);
    return all;
}

std::optional<HostInterface> host_interface(const std::string& name) {
    if (!is_plain_name(name)) {
        return std::nullopt;
    }
    const HostWatch watch;
    std::error_code error;
    const fs::path path = fs::path(kInterfaces) / name;
    // bonding_masters is a file beside the interfaces.
    const bool exists = fs::is_directory(path, error);
    if (error && error != std::errc::no_such_file_or_directory) {
        fail_to_list(path, error);
    }
    return exists ? std::optional(read_interface(path)) : std::nullopt;
}

bool is_stacked(const std::string& name) {
    return name.find('.') != name.npos || name.find("vlan") != name.npos ||
           name.find("bond") != name.npos;
}

std::string described(const HostInterface& interface) {
    return fmt::format(
        "{} ({}, MAC {})", interface.name,
        interface.location ? interface.location->full_text() : "no PCI function",
        interface.mac.empty() ? "unknown" : interface.mac);
}

bool is_same(const HostInterface& expected, const std::optional<HostInterface>& now) {
    return now && now->location && expected.location->matches(*now->location) &&
           (expected.mac.empty() || expected.mac == now->mac);
}

std::string movement(const HostInterface& expected, const std::optional<HostInterface>& now) {
    return fmt::format(
        "The interface was {} and is {} now", described(expected),
        now ? described(*now) : "not there");
}

std::vector<std::string> interfaces_at(const PciLocation& location) {
    std::vector<std::string> names;
    for (const HostInterface& each : host_interfaces()) {
        if (each.location && location.matches(*each.location) && !is_stacked(each.name)) {
            names.push_back(each.name);
        }
    }
    return names;
}

}  // namespace kx::ctl
