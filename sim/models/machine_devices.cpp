#include "models/machine_devices.hpp"

#include <cstdio>
#include <cstdlib>

namespace kxsim::models {
namespace {

using process::libvirt;
using process::LibvirtText;
using process::part_of;
using process::TextBuffer;

// The value of an attribute of the first element with a name; empty when there is none.
std::string_view attribute(std::string_view text, std::string_view element, std::string_view name) {
    std::size_t start = text.find(element);
    while (start != text.npos && (start == 0 || text[start - 1] != '<')) {
        start = text.find(element, start + 1);
    }
    if (start == text.npos) {
        return {};
    }
    const std::string_view tag = part_of(text, start, text.find('>', start));
    for (std::size_t at = tag.find(name); at != tag.npos; at = tag.find(name, at + 1)) {
        const std::size_t quote = at + name.size() + 1;
        if (tag[at - 1] == ' ' && quote < tag.size() && tag[quote - 1] == '=') {
            const std::size_t end = tag.find(tag[quote], quote + 1);
            return end == tag.npos ? std::string_view() : part_of(tag, quote + 1, end);
        }
    }
    return {};
}

unsigned address_number(std::string_view device, std::string_view name) {
    const TextBuffer digits(attribute(device, "address", name));
    return static_cast<unsigned>(std::strtoul(digits.c_str(), nullptr, 16));
}

// The text that identifies one device of a machine in libvirt's descriptions.
struct Mark {
    std::string_view element;  // empty for an unknown kind
    char text[96];
};

Mark mark_of(std::string_view device) {
    Mark mark{};
    if (device.starts_with("<hostdev")) {
        mark.element = "hostdev";
        std::snprintf(
            mark.text, sizeof mark.text,
            "<address domain='0x%04x' bus='0x%02x' slot='0x%02x' function='0x%x'/>",
            address_number(device, "domain"), address_number(device, "bus"),
            address_number(device, "slot"), address_number(device, "function"));
    } else if (device.starts_with("<interface")) {
        mark.element = "interface";
        const TextBuffer mac(attribute(device, "mac", "address"));
        std::snprintf(mark.text, sizeof mark.text, "<mac address='%s'/>", mac.c_str());
    }
    return mark;
}

bool is_active(virDomainPtr domain) {
    return libvirt<"virDomainIsActive", decltype(::virDomainIsActive)>()(domain) == 1;
}

// Whether a running machine has the device with that text.
bool is_held(const MachineVisit& visit, const Mark& mark) {
    virDomainPtr* domains = nullptr;
    const int count = libvirt<"virConnectListAllDomains", decltype(::virConnectListAllDomains)>()(
        visit.connection(), &domains, VIR_CONNECT_LIST_DOMAINS_ACTIVE);
    bool held = false;
    for (int k = 0; k < count; ++k) {
        const process::LibvirtDomain domain(domains[k]);
        const LibvirtText description(description_of(domain.get(), 0));
        held =
            held || std::string_view(description.c_str()).find(mark.text) != std::string_view::npos;
    }
    process::free_of_process(domains);
    return held;
}

bool is_on_bus(const process::Host& host, std::string_view device) {
    char path[64];
    std::snprintf(
        path, sizeof path, "/sys/bus/pci/devices/%04x:%02x:%02x.%x",
        address_number(device, "domain"), address_number(device, "bus"),
        address_number(device, "slot"), address_number(device, "function"));
    return is_on_host(host, path);
}

bool has_bridge(const process::Host& host, std::string_view device) {
    const std::string_view bridge = attribute(device, "source", "bridge");
    process::PathText path;
    path.append("/sys/class/net/");
    path.append(bridge);
    return !bridge.empty() && bridge.find('/') == bridge.npos && is_on_host(host, path.view());
}

// Why a device cannot be attached to a machine; null when it can.
const char* refusal(const MachineVisit& visit, std::string_view device, const Mark& mark) {
    if (mark.element.empty()) {
        return "libkxsim: machines are given host devices and interfaces only\n";
    }
    if (mark.element == "interface") {
        return attribute(device, "interface", "type") != "bridge" ||
                       has_bridge(visit.host(), device)
                   ? nullptr
                   : "libkxsim: this host has no such bridge\n";
    }
    if (!is_on_bus(visit.host(), device)) {
        return "libkxsim: this host has no such PCI function\n";
    }
    return is_held(visit, mark) ? "libkxsim: a machine holds this PCI function\n" : nullptr;
}

// Add a device to a description, or remove the device with that text. False when there is none.
bool add(std::string_view description, std::string_view device, TextBuffer& edited) {
    const std::size_t end = description.rfind("</devices>");
    if (end == description.npos) {
        return false;
    }
    edited.append(part_of(description, 0, end)).append(device).append(part_of(description, end));
    return edited.complete();
}

bool cut(std::string_view description, const Mark& mark, TextBuffer& edited) {
    const std::size_t place = description.find(mark.text);
    TextBuffer start_tag("<");
    start_tag.append(mark.element);
    TextBuffer end_tag("</");
    end_tag.append(mark.element).append(">");
    const std::size_t start = description.rfind(start_tag.view(), place);
    const std::size_t end = description.find(end_tag.view(), place);
    if (place == description.npos || start == description.npos || end == description.npos) {
        return false;
    }
    edited.append(part_of(description, 0, start))
        .append(part_of(description, end + end_tag.view().size()));
    return edited.complete();
}

// The descriptions of a machine that the flags select.
struct Wanted {
    Wanted(virDomainPtr domain, unsigned flags)
        : live((flags & VIR_DOMAIN_AFFECT_LIVE) != 0),
          config((flags & VIR_DOMAIN_AFFECT_CONFIG) != 0) {
        if (!live && !config) {
            live = is_active(domain);
            config = !live;
        }
    }
    bool live;
    bool config;
};

// Edit the selected descriptions: the definition first, because a change of the live description
// opens the machines again.
template <class Edit>
int edit_machine(MachineVisit& visit, unsigned flags, const Edit& edit) {
    virDomainPtr domain = visit.domain();
    const Wanted wanted(domain, flags);
    if (wanted.live && !is_active(domain)) {
        process::complain("libkxsim: the machine does not run\n");
        return -1;
    }
    char uuid[VIR_UUID_STRING_BUFLEN] = {};
    libvirt<"virDomainGetUUIDString", decltype(::virDomainGetUUIDString)>()(domain, uuid);
    const LibvirtText live(wanted.live ? description_of(domain, VIR_DOMAIN_XML_SECURE) : nullptr);
    if (wanted.config) {
        const LibvirtText definition(
            description_of(domain, VIR_DOMAIN_XML_SECURE | VIR_DOMAIN_XML_INACTIVE));
        TextBuffer edited;
        if (!edit(definition.c_str(), edited)) {
            return -1;
        }
        const process::LibvirtDomain defined(
            libvirt<"virDomainDefineXML", decltype(::virDomainDefineXML)>()(
                visit.connection(), edited.c_str()));
        if (!defined) {
            return -1;
        }
        visit.save();
    }
    if (!wanted.live) {
        return 0;
    }
    TextBuffer edited;
    return edit(live.c_str(), edited) && visit.replace_live(uuid, edited.view()) ? 0 : -1;
}

}  // namespace

int attach_device(MachineVisit& visit, const char* device, unsigned flags) {
    if (visit.domain() == nullptr || device == nullptr) {
        return -1;
    }
    const Mark mark = mark_of(device);
    if (const char* const reason = refusal(visit, device, mark)) {
        process::complain(reason);
        return -1;
    }
    return edit_machine(visit, flags, [&](std::string_view description, TextBuffer& edited) {
        return add(description, device, edited);
    });
}

int detach_device(MachineVisit& visit, const char* device, unsigned flags) {
    if (visit.domain() == nullptr || device == nullptr) {
        return -1;
    }
    const Mark mark = mark_of(device);
    if (mark.element.empty()) {
        return -1;
    }
    return edit_machine(visit, flags, [&](std::string_view description, TextBuffer& edited) {
        return cut(description, mark, edited);
    });
}

}  // namespace kxsim::models
