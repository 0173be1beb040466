// The frame of VMUtils, the hypervisor connection, the list of domains and their run state.
//
// Listing, lookup, start, reboot and shutdown are libvirt's; state, suspension and resumption are
// virsh's, through the agent's command runner.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "machines/documents.hpp"
#include "support/shell.hpp"
#include "vm/agent_memory.hpp"
#include "vm/agent_services.hpp"
#include "vm/libvirt_call.hpp"
#include "vm/optional_library.hpp"
#include "vm/uuid_text.hpp"
#include "vm/virsh_name.hpp"

static_assert(std::is_standard_layout_v<VMUtils>, "agents allocate the object themselves");
static_assert(sizeof(VMUtils) == 9 * sizeof(void*));
static_assert(offsetof(VMUtils, domainTag) == 0);
static_assert(offsetof(VMUtils, functionAttr) == 7 * sizeof(void*));
static_assert(offsetof(VMUtils, parser) == 8 * sizeof(void*));
static_assert(sizeof(_KVMInfo) == 408, "agents step through the array by this size");
static_assert(offsetof(_KVMInfo, uuid) == 4);
static_assert(offsetof(_KVMInfo, name) == 20);
static_assert(offsetof(_KVMInfo, osType) == 276);
static_assert(offsetof(_KVMInfo, state) == 404);

using kx::vm::allocate_array;
using kx::vm::kLibvirt;
using kx::vm::log_failure;

namespace {

constexpr int kNoConnection = -128;

// Opened on first use, shared by all objects, never closed.
virConnectPtr shared_connection = nullptr;

// Fill a zeroed field; a text that fills it has no NUL. Libvirt may have no text.
template <std::size_t N>
void copy_up_to_end(char (&field)[N], const char* text) {
    if (text != nullptr) {
        std::memcpy(field, text, strnlen(text, N));
    }
}

// The arrays are never released: agents that watch the allocator see them stay.
struct Listing {
    std::span<char*> names;  // of the defined domains that are not running
    std::span<int> ids;      // of the running domains
};

// The names that libvirt gives, which may be fewer than it announced.
bool list_defined(virConnectPtr connection, std::span<char*>& names) {
    const int announced = kLibvirt.virConnectNumOfDefinedDomains(connection);
    if (announced < 0) {
        log_failure("ListVMs: Failed to get number of inactive domains");
        return false;
    }
    char** const array = allocate_array<char*>(static_cast<std::size_t>(announced));
    if (array == nullptr) {
        log_failure("ListVMs: Memory Allocation Problem ");  // the blank tells the names' array
        return false;
    }
    const int came = kLibvirt.virConnectListDefinedDomains(connection, array, announced);
    if (came < 0) {
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): even now the array stays
        log_failure("ListVMs: Could not get list of defined domains from hypervisor");
        return false;
    }
    names = {array, static_cast<std::size_t>(std::min(came, announced))};
    for (const char* name : names) {
        if (name != nullptr) {
            std::printf("  %s\n", name);
        }
    }
    return true;
}

// An id that libvirt announced and did not give stays 0, which no running domain has.
bool list_domains(virConnectPtr connection, Listing& listing) {
    const int running = kLibvirt.virConnectNumOfDomains(connection);
    if (running < 0) {
        log_failure("ListVMs: Failed to get number of active domains");
        return false;
    }
    if (!list_defined(connection, listing.names)) {
        return false;
    }
    int* const array = allocate_array<int>(static_cast<std::size_t>(running));
    if (array == nullptr) {
        log_failure("ListVMs: Memory Allocation Problem");
        return false;
    }
    kLibvirt.virConnectListDomains(connection, array, running);
    listing.ids = {array, static_cast<std::size_t>(running)};
    return true;
}

bool fill_running(VMUtils& vm, virConnectPtr connection, int id, _KVMInfo& record) {
    virDomain* const domain = kLibvirt.virDomainLookupByID(connection, id);
    if (domain == nullptr) {
        log_failure("ListVMs: Unable to get the domain information");
        return false;
    }
    record.id = id;
    copy_up_to_end(record.osType, kLibvirt.virDomainGetOSType(domain));
    kLibvirt.virDomainGetUUID(domain, record.uuid);
    copy_up_to_end(record.name, kLibvirt.virDomainGetName(domain));
    vm.getDomainState(domain, &record.state);
    return true;
}

// A domain that has gone since it was listed keeps its name alone.
void fill_defined(virConnectPtr connection, const char* name, _KVMInfo& record) {
    record.id = -1;
    if (name == nullptr) {
        return;
    }
    copy_up_to_end(record.name, name);
    if (virDomain* const domain = kLibvirt.virDomainLookupByName(connection, name)) {
        kLibvirt.virDomainGetUUID(domain, record.uuid);
        copy_up_to_end(record.osType, kLibvirt.virDomainGetOSType(domain));
        record.state = KX_VM_SHUT_OFF;
    }
}

// Running domains first. Ends at a running domain that has gone meanwhile.
bool fill(VMUtils& vm, virConnectPtr connection, const Listing& listing, _KVMInfo* record) {
    for (const int id : listing.ids) {
        if (!fill_running(vm, connection, id, *record++)) {
            return false;
        }
    }
    for (const char* name : listing.names) {
        fill_defined(connection, name, *record++);
    }
    return true;
}

// What a virsh command about one domain prints, or nothing when it fails.
std::optional<std::string> run_virsh(std::string_view verb, virDomainPtr domain) {
    const auto name = domain == nullptr ? std::nullopt : kx::vm::virsh_name(domain);
    if (!name) {
        return std::nullopt;
    }
    std::string command = kx::vm::kVirsh;
    command.append(" ").append(verb).append(" ").append(kx::shell_word(*name));
    return kx::vm::run(command);
}

struct StateWord {
    std::string_view word;
    KxRunState state;
};

// Looked for anywhere in the output of "virsh domstate"; the first row that is found counts.
constexpr StateWord kStateWords[] = {
    {"running", KX_VM_RUNNING},
    {"paused", KX_VM_PAUSED},
    {"shut off", KX_VM_SHUT_OFF},
};

bool is_off(int state) { return state == KX_VM_NO_STATE || state == KX_VM_SHUT_OFF; }
bool is_on(int state) { return state == KX_VM_RUNNING || state == KX_VM_BLOCKED; }
bool is_paused(int state) { return state == KX_VM_PAUSED; }
bool is_known(int state) { return state != KX_VM_NO_STATE; }

struct OperationRule {
    int operation;
    bool (*allowed)(int state);
    int (*apply)(VMUtils& vm, virDomainPtr domain, long long time);
};

constexpr auto kResume = [](VMUtils& vm, virDomainPtr domain, long long) {
    return vm.VMResume(domain);
};

// Starting a paused domain resumes it.
constexpr OperationRule kOperationRules[] = {
    {KX_VM_OP_START, is_off,
     [](VMUtils& vm, virDomainPtr domain, long long) { return vm.VMLaunch(domain); }},
    {KX_VM_OP_START, is_paused, kResume},
    {KX_VM_OP_SUSPEND, is_on,
     [](VMUtils& vm, virDomainPtr domain, long long time) { return vm.VMSuspend(domain, time); }},
    {KX_VM_OP_SHUT_DOWN, is_on,
     [](VMUtils& vm, virDomainPtr domain, long long) { return vm.VMShutdown(domain); }},
    {KX_VM_OP_REBOOT, is_known,
     [](VMUtils& vm, virDomainPtr domain, long long) { return vm.VMReboot(domain); }},
    {KX_VM_OP_RESUME, is_paused, kResume},
};

// errno is not cleared first: agents rely on an error of an earlier call refusing the suspension.
bool read_time(const char* text, long long& time) {
    if (text == nullptr) {
        return false;
    }
    time = std::strtoll(text, nullptr, 10);
    return errno != EINVAL && errno != ERANGE;
}

// An operation without a rule does nothing and succeeds.
int apply(VMUtils& vm, virDomainPtr domain, int operation, int state, long long time) {
    bool known = false;
    for (const OperationRule& rule : kOperationRules) {
        if (rule.operation == operation) {
            if (rule.allowed(state)) {
                return rule.apply(vm, domain, time);
            }
            known = true;
        }
    }
    if (known) {
        log_failure("VMStateOperation: Invalid Operation");
    }
    return known ? 1 : 0;
}

}  // namespace

VMUtils* VMUtils::ctrl = nullptr;

VMUtils::VMUtils()
    : domainTag(nullptr),
      hostdevTag(nullptr),
      sourceTag(nullptr),
      addressTag(nullptr),
      domainAttr(nullptr),
      busAttr(nullptr),
      slotAttr(nullptr),
      functionAttr(nullptr),
      parser(nullptr) {
    if (const kx::machines::Documents* documents = kx::vm::documents()) {
        documents->set_up(*this);
    }
}

VMUtils::~VMUtils() {
    if (domainTag != nullptr) {
        kx::vm::documents()->release(*this);  // it is there: it made the names
    }
}

virConnectPtr VMUtils::getConnection() {
    if (shared_connection != nullptr) {
        return shared_connection;
    }
    if (kx::vm::documents() != nullptr) {
        shared_connection =
            kLibvirt.virConnectOpenAuth(nullptr, kx::vm::default_authentication(), 0);
    }
    if (shared_connection == nullptr) {
        std::puts("No connection to hypervisor");
        throw int{kNoConnection};
    }
    const char* const uri = kLibvirt.virConnectGetURI(shared_connection);  // never released
    if (uri == nullptr) {
        std::puts("Failed to get URI for hypervisor connection");
        throw int{kNoConnection};
    }
    return shared_connection;
}

virDomainPtr VMUtils::getDomainPtr(unsigned char* uuid) {
    virConnectPtr connection = nullptr;
    return kx::vm::connect(connection) ? kLibvirt.virDomainLookupByUUID(connection, uuid) : nullptr;
}

int VMUtils::listVMs(_KVMInfo** records, int* count) {
    if (records == nullptr || count == nullptr) {
        return 1;
    }
    std::puts("Attempting to connect to hypervisor");
    virConnectPtr connection = nullptr;
    if (!kx::vm::connect(connection)) {
        log_failure("ListVMs: LibVirt connection failure");
        return 1;
    }
    Listing listing;
    if (!list_domains(connection, listing)) {
        log_failure("ListVMs: Error getting domain details");
        return 1;
    }
    const std::size_t total = listing.ids.size() + listing.names.size();
    *records = allocate_array<_KVMInfo>(total);
    *count = *records == nullptr ? 0 : static_cast<int>(total);
    const bool listed = *records != nullptr && fill(*this, connection, listing, *records);
    return listed ? 0 : 1;
}

int VMUtils::getDomainState(virDomainPtr domain, int* state) {
    const auto output = state == nullptr ? std::nullopt : run_virsh("domstate", domain);
    if (!output) {
        return -1;
    }
    for (const StateWord& row : kStateWords) {
        if (output->find(row.word) != std::string::npos) {
            *state = row.state;
            return 0;
        }
    }
    return -1;
}

int VMUtils::VMStateOperation(char* uuid, int operation, char* time) {
    std::puts(uuid == nullptr ? "" : uuid);
    virDomain* const domain =
        uuid == nullptr ? nullptr : getDomainPtr(kx::vm::uuid_of_text(uuid).data());
    if (domain == nullptr) {
        log_failure("VMStateOperation: Invalid Domain");
        return 1;
    }
    int state = KX_VM_NO_STATE;
    if (getDomainState(domain, &state) == -1) {
        log_failure("VMStateOperation: Unknown Domain State");
        return 1;
    }
    long long suspend_time = 0;
    if (operation == KX_VM_OP_SUSPEND && !read_time(time, suspend_time)) {
        log_failure("VMStateOperation: Invalid time parameter");
        return 1;
    }
    return apply(*this, domain, operation, state, suspend_time);
}

int VMUtils::VMLaunch(virDomainPtr domain) {
    virConnectPtr connection = nullptr;
    const bool launched = kx::vm::connect(connection) && connection != nullptr &&
                          domain != nullptr && kLibvirt.virDomainCreate(domain) == 0;
    return launched ? 0 : 1;
}

int VMUtils::VMResume(virDomainPtr domain) { return run_virsh("resume", domain) ? 0 : 1; }

int VMUtils::VMSuspend(virDomainPtr domain, long long /*time*/) {
    return run_virsh("suspend", domain) ? 0 : 1;
}

int VMUtils::VMReboot(virDomainPtr domain) {
    return domain != nullptr && kLibvirt.virDomainReboot(domain, 0) == 0 ? 0 : 1;
}

int VMUtils::VMShutdown(virDomainPtr domain) {
    return kLibvirt.virDomainShutdown(domain) == 0 ? 0 : 1;
}
