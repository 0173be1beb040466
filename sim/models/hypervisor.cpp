#include "models/hypervisor.hpp"

#include <algorithm>
#include <cstdio>
#include <span>

#include "state/hypervisor.hpp"

namespace kxsim::models {
namespace {

using process::libvirt;
using process::LibvirtDomain;
using process::LibvirtText;
using process::TextBuffer;

// This process's driver, and the state of the host's files that it represents.
struct Driver {
    virConnectPtr connection;
    std::uint32_t changes;
};

constinit Driver driver{};

int close(virConnectPtr connection) {
    return libvirt<"virConnectClose", decltype(::virConnectClose)>()(connection);
}

void replace_driver(const process::Host& host, virConnectPtr connection) {
    if (driver.connection != nullptr) {
        close(driver.connection);
    }
    driver = {connection, host.session->machine_changes};
}

char* uri_of(virConnectPtr connection) {
    return libvirt<"virConnectGetURI", decltype(::virConnectGetURI)>()(connection);
}

int id_of(virDomainPtr domain) {
    return static_cast<int>(libvirt<"virDomainGetID", decltype(::virDomainGetID)>()(domain));
}

virDomainPtr find(virConnectPtr connection, const char* uuid) {
    return libvirt<"virDomainLookupByUUIDString", decltype(::virDomainLookupByUUIDString)>()(
        connection, uuid);
}

virDomainPtr define(virConnectPtr connection, const char* description) {
    return libvirt<"virDomainDefineXML", decltype(::virDomainDefineXML)>()(connection, description);
}

// The driver counts ids from 1. The ids before those of the host's machines are skipped.
bool start_with_id(virDomainPtr domain, int id) {
    const auto create = libvirt<"virDomainCreate", decltype(::virDomainCreate)>();
    const auto destroy = libvirt<"virDomainDestroy", decltype(::virDomainDestroy)>();
    while (create(domain) == 0) {
        if (id_of(domain) >= id) {
            return true;
        }
        if (destroy(domain) != 0) {
            break;
        }
    }
    return false;
}

struct ActiveMachine {
    int id;
    int state;
    char uuid[VIR_UUID_STRING_BUFLEN];
};

// Start a machine with its current description; its definition in the node does not change.
bool start(const process::Host& host, virConnectPtr connection, const ActiveMachine& machine) {
    process::PathText path;
    live_path(machine.uuid, path);
    TextBuffer live;
    if (!read_host_file(host, path.view(), live)) {
        return false;
    }
    const LibvirtDomain defined(find(connection, machine.uuid));
    const LibvirtText definition(
        defined ? description_of(defined.get(), VIR_DOMAIN_XML_INACTIVE | VIR_DOMAIN_XML_SECURE)
                : nullptr);
    const LibvirtDomain domain(define(connection, live.c_str()));
    if (!domain || !start_with_id(domain.get(), machine.id)) {
        return false;
    }
    if (machine.state == VIR_DOMAIN_PAUSED) {
        libvirt<"virDomainSuspend", decltype(::virDomainSuspend)>()(domain.get());
    }
    if (definition) {
        return static_cast<bool>(LibvirtDomain(define(connection, definition.c_str())));
    }
    return libvirt<"virDomainUndefine", decltype(::virDomainUndefine)>()(domain.get()) == 0;
}

// Make the driver continue with the number after an id that is no longer in use.
bool use_up_ids(virConnectPtr connection, int last) {
    const LibvirtDomain domain(define(
        connection,
        "<domain type='test'><name>ids of kxsim</name><memory>1024</memory>"
        "<os><type>hvm</type></os></domain>"));
    return domain && start_with_id(domain.get(), last) &&
           libvirt<"virDomainDestroy", decltype(::virDomainDestroy)>()(domain.get()) == 0 &&
           libvirt<"virDomainUndefine", decltype(::virDomainUndefine)>()(domain.get()) == 0;
}

bool start_all(const process::Host& host, virConnectPtr connection) {
    TextBuffer active;
    if (!read_host_file(host, state::kActiveFile, active)) {
        return false;
    }
    ActiveMachine machine{};
    int length = 0;
    for (const char* line = active.c_str();
         std::sscanf(line, "%d %d %36s %n", &machine.id, &machine.state, machine.uuid, &length) ==
         3;
         line += length) {
        if (!start(host, connection, machine)) {
            return false;
        }
    }
    const int last = host.session->last_machine_id;
    return machine.id >= last || use_up_ids(connection, last);
}

// A driver with the host's machines, or null.
virConnectPtr open_driver(const process::Host& host) {
    TextBuffer uri;
    node_uri(host, uri);
    virConnectPtr connection = libvirt<"virConnectOpen", decltype(::virConnectOpen)>()(uri.c_str());
    if (connection != nullptr && !start_all(host, connection)) {
        close(connection);
        return nullptr;
    }
    return connection;
}

bool is_current(const process::Host& host) {
    if (driver.connection == nullptr || driver.changes != host.session->machine_changes) {
        return false;
    }
    TextBuffer uri;
    node_uri(host, uri);
    return uri.view() == LibvirtText(uri_of(driver.connection)).c_str();
}

// The caller has exclusive access to the files.
bool make_current(const process::Host& host) {
    if (is_current(host)) {
        return true;
    }
    virConnectPtr fresh = open_driver(host);
    if (fresh == nullptr) {
        return false;
    }
    replace_driver(host, fresh);
    return true;
}

// A definition in the form of the node: shut off.
void append_definition(TextBuffer& node, std::string_view text) {
    const std::size_t start_tag = text.find('>');
    const std::size_t end_tag = text.rfind("</domain>");
    if (start_tag < end_tag && end_tag != text.npos) {
        node.append(process::part_of(text, 0, start_tag))
            .append(state::kTestNamespace)
            .append(process::part_of(text, start_tag, end_tag))
            .append(state::kShutOff)
            .append(process::part_of(text, end_tag));
    }
}

bool append_active(const process::Host& host, TextBuffer& active, virDomainPtr domain) {
    ActiveMachine machine{};
    machine.id = id_of(domain);
    int reason = 0;
    libvirt<"virDomainGetState", decltype(::virDomainGetState)>()(
        domain, &machine.state, &reason, 0);
    libvirt<"virDomainGetUUIDString", decltype(::virDomainGetUUIDString)>()(domain, machine.uuid);
    char line[VIR_UUID_STRING_BUFLEN + 32];
    std::snprintf(line, sizeof line, "%d %d %s\n", machine.id, machine.state, machine.uuid);
    active.append(line);
    host.session->last_machine_id = std::max<int>(machine.id, host.session->last_machine_id);
    process::PathText path;
    live_path(machine.uuid, path);
    const LibvirtText live(description_of(domain, VIR_DOMAIN_XML_SECURE));
    return live && write_host_file(host, path.view(), live.c_str());
}

bool write_down(const process::Host& host, std::span<virDomainPtr> domains) {
    std::sort(domains.begin(), domains.end(), [](virDomainPtr left, virDomainPtr right) {
        return id_of(left) < id_of(right);
    });
    TextBuffer node(state::kNodeStart);
    TextBuffer active;
    for (virDomainPtr domain : domains) {
        if (libvirt<"virDomainIsPersistent", decltype(::virDomainIsPersistent)>()(domain) == 1) {
            const LibvirtText definition(
                description_of(domain, VIR_DOMAIN_XML_INACTIVE | VIR_DOMAIN_XML_SECURE));
            append_definition(node, definition.c_str());
        }
        if (id_of(domain) > 0 && !append_active(host, active, domain)) {
            return false;
        }
    }
    node.append(state::kNodeEnd);
    return node.complete() && active.complete() &&
           write_host_file(host, state::kNodeFile, node.view()) &&
           write_host_file(host, state::kActiveFile, active.view());
}

}  // namespace

char* description_of(virDomainPtr domain, unsigned flags) {
    return libvirt<"virDomainGetXMLDesc", decltype(::virDomainGetXMLDesc)>()(domain, flags);
}

bool is_hypervisor_name(const char* name) {
    return name == nullptr || !std::string_view(name).starts_with("test:") || is_node_uri(name);
}

virConnectPtr open_hypervisor(process::Host& host) {
    const process::Pause pause;
    const MachineLock lock(host);
    if (!make_current(host) ||
        libvirt<"virConnectRef", decltype(::virConnectRef)>()(driver.connection) != 0) {
        return nullptr;
    }
    return driver.connection;
}

int close_hypervisor(virConnectPtr connection) {
    const process::Pause pause;
    const int left = close(connection);
    if (left != 1 || connection != driver.connection) {
        return left;
    }
    driver = {};
    return close(connection);
}

MachineVisit::MachineVisit(virConnectPtr connection, Purpose purpose) : host_(process::host()) {
    begin(connection, purpose);
}

MachineVisit::MachineVisit(virDomainPtr domain, Purpose purpose) : host_(process::host()) {
    const auto connection_of = libvirt<"virDomainGetConnect", decltype(::virDomainGetConnect)>();
    virConnectPtr given = host_ == nullptr || domain == nullptr ? nullptr : connection_of(domain);
    begin(given, purpose);
    if (given == connection_) {
        domain_ = domain;
    } else if (connection_ != nullptr) {
        char uuid[VIR_UUID_STRING_BUFLEN] = {};
        libvirt<"virDomainGetUUIDString", decltype(::virDomainGetUUIDString)>()(domain, uuid);
        domain_ = found_.emplace(find(connection_, uuid)).get();
    }
}

void MachineVisit::begin(virConnectPtr given, Purpose purpose) {
    if (host_ == nullptr || given == nullptr || !is_node_uri(LibvirtText(uri_of(given)).c_str())) {
        host_ = nullptr;
        return;
    }
    if (purpose == Purpose::kChange || !is_current(*host_)) {
        lock_.emplace(*host_);
    }
    connection_ = make_current(*host_) ? driver.connection : nullptr;
    if (purpose == Purpose::kAsk) {
        lock_.reset();
    }
}

void MachineVisit::save() {
    virDomainPtr* domains = nullptr;
    const int count = libvirt<"virConnectListAllDomains", decltype(::virConnectListAllDomains)>()(
        connection_, &domains, 0);
    if (count < 0 || !write_down(*host_, {domains, static_cast<std::size_t>(count)})) {
        process::complain("libkxsim: the files of the machines cannot be written\n");
    }
    for (int k = 0; k < count; ++k) {
        const LibvirtDomain released(domains[k]);
    }
    process::free_of_process(domains);
    driver.changes = ++host_->session->machine_changes;
}

bool MachineVisit::replace_live(const char* uuid, std::string_view description) {
    process::PathText path;
    live_path(uuid, path);
    TextBuffer before;
    if (!read_host_file(*host_, path.view(), before) ||
        !write_host_file(*host_, path.view(), description)) {
        return false;
    }
    virConnectPtr fresh = open_driver(*host_);
    if (fresh == nullptr) {
        if (!write_host_file(*host_, path.view(), before.view())) {
            process::complain("libkxsim: the files of the machines cannot be written\n");
        }
        return false;
    }
    replace_driver(*host_, fresh);
    connection_ = fresh;
    save();
    return true;
}

}  // namespace kxsim::models
