// libvirt's functions for machines, on the hypervisor of the simulated host. Connections and
// domains that do not belong to the host are used unchanged.
#include <type_traits>

#include "models/hypervisor.hpp"
#include "models/machine_devices.hpp"
#include "preload/interception.hpp"
#include "process/attached.hpp"
#include "process/libvirt.hpp"

namespace {

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face
using kxsim::models::MachineVisit;
using kxsim::state::Call;
using Purpose = MachineVisit::Purpose;

// The errno with which a fault rule makes a function fail, or 0.
int stopped(const char* function) { return intercept(Call::kLibvirt, function); }

virConnectPtr handle_of(const MachineVisit& visit, virConnectPtr) { return visit.connection(); }
virDomainPtr handle_of(const MachineVisit& visit, virDomainPtr) { return visit.domain(); }

bool succeeded(int result) { return result >= 0; }
bool succeeded(const void* result) { return result != nullptr; }

template <FunctionName kName, class Function, class Handle, class... Rest>
auto on_machines(Purpose purpose, Handle* handle, Rest... rest) {
    using Result = std::invoke_result_t<Function*, Handle*, Rest...>;
    if (const int error = stopped(kName.text); error != 0) {
        return refuse<Result>(error);
    }
    const auto function = libvirt<kName, Function>();
    MachineVisit visit(handle, purpose);
    if (!visit.is_simulated()) {
        return function(handle, rest...);
    }
    const Result result = function(handle_of(visit, handle), rest...);
    if (purpose == Purpose::kChange && succeeded(result)) {
        visit.save();
    }
    return result;
}

template <FunctionName kName, class Function, class Handle, class... Rest>
auto asks(Handle* handle, Rest... rest) {
    return on_machines<kName, Function>(Purpose::kAsk, handle, rest...);
}

template <FunctionName kName, class Function, class Handle, class... Rest>
auto changes(Handle* handle, Rest... rest) {
    return on_machines<kName, Function>(Purpose::kChange, handle, rest...);
}

// Functions that need no machines: libvirt answers itself.
template <FunctionName kName, class Function, class Handle, class... Rest>
auto tells(Handle* handle, Rest... rest) {
    using Result = std::invoke_result_t<Function*, Handle*, Rest...>;
    if (const int error = stopped(kName.text); error != 0) {
        return refuse<Result>(error);
    }
    return libvirt<kName, Function>()(handle, rest...);
}

template <FunctionName kName, class Function, class... Rest>
virConnectPtr opens(const char* name, Rest... rest) {
    if (const int error = stopped(kName.text); error != 0) {
        return refuse<virConnectPtr>(error);
    }
    Host* const on = host();
    return on != nullptr && kxsim::models::is_hypervisor_name(name)
               ? kxsim::models::open_hypervisor(*on)
               : libvirt<kName, Function>()(name, rest...);
}

using DeviceModel = int (*)(MachineVisit& visit, const char* device, unsigned flags);

// pass_on: the original call, for a domain that does not belong to the host.
template <class PassOn>
int edits(
    const char* function, DeviceModel model, virDomainPtr domain, const char* device,
    unsigned flags, PassOn pass_on) {
    if (const int error = stopped(function); error != 0) {
        return refuse<int>(error);
    }
    MachineVisit visit(domain, Purpose::kChange);
    return visit.is_simulated() ? model(visit, device, flags) : pass_on();
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

virConnectPtr virConnectOpen(const char* name) {
    return opens<"virConnectOpen", decltype(::virConnectOpen)>(name);
}
virConnectPtr virConnectOpenReadOnly(const char* name) {
    return opens<"virConnectOpenReadOnly", decltype(::virConnectOpenReadOnly)>(name);
}
virConnectPtr virConnectOpenAuth(const char* name, virConnectAuthPtr auth, unsigned flags) {
    return opens<"virConnectOpenAuth", decltype(::virConnectOpenAuth)>(name, auth, flags);
}
int virConnectClose(virConnectPtr c) {
    return host() != nullptr ? kxsim::models::close_hypervisor(c)
                             : libvirt<"virConnectClose", decltype(::virConnectClose)>()(c);
}

// Functions that list machines.

int virConnectNumOfDomains(virConnectPtr c) {
    return asks<"virConnectNumOfDomains", decltype(::virConnectNumOfDomains)>(c);
}
int virConnectNumOfDefinedDomains(virConnectPtr c) {
    return asks<"virConnectNumOfDefinedDomains", decltype(::virConnectNumOfDefinedDomains)>(c);
}
int virConnectListDomains(virConnectPtr c, int* ids, int most) {
    return asks<"virConnectListDomains", decltype(::virConnectListDomains)>(c, ids, most);
}
int virConnectListDefinedDomains(virConnectPtr c, char** const names, int most) {
    return asks<"virConnectListDefinedDomains", decltype(::virConnectListDefinedDomains)>(
        c, names, most);
}
int virConnectListAllDomains(virConnectPtr c, virDomainPtr** domains, unsigned flags) {
    return asks<"virConnectListAllDomains", decltype(::virConnectListAllDomains)>(
        c, domains, flags);
}
virDomainPtr virDomainLookupByID(virConnectPtr c, int id) {
    return asks<"virDomainLookupByID", decltype(::virDomainLookupByID)>(c, id);
}
virDomainPtr virDomainLookupByName(virConnectPtr c, const char* name) {
    return asks<"virDomainLookupByName", decltype(::virDomainLookupByName)>(c, name);
}
virDomainPtr virDomainLookupByUUID(virConnectPtr c, const unsigned char* uuid) {
    return asks<"virDomainLookupByUUID", decltype(::virDomainLookupByUUID)>(c, uuid);
}
virDomainPtr virDomainLookupByUUIDString(virConnectPtr c, const char* uuid) {
    return asks<"virDomainLookupByUUIDString", decltype(::virDomainLookupByUUIDString)>(c, uuid);
}
char* virDomainGetXMLDesc(virDomainPtr d, unsigned flags) {
    return asks<"virDomainGetXMLDesc", decltype(::virDomainGetXMLDesc)>(d, flags);
}
int virDomainGetState(virDomainPtr d, int* state, int* reason, unsigned flags) {
    return asks<"virDomainGetState", decltype(::virDomainGetState)>(d, state, reason, flags);
}
int virDomainGetInfo(virDomainPtr d, virDomainInfoPtr info) {
    return asks<"virDomainGetInfo", decltype(::virDomainGetInfo)>(d, info);
}
int virDomainIsActive(virDomainPtr d) {
    return asks<"virDomainIsActive", decltype(::virDomainIsActive)>(d);
}

// Functions that change machines.

virDomainPtr virDomainDefineXML(virConnectPtr c, const char* description) {
    return changes<"virDomainDefineXML", decltype(::virDomainDefineXML)>(c, description);
}
virDomainPtr virDomainDefineXMLFlags(virConnectPtr c, const char* description, unsigned flags) {
    return changes<"virDomainDefineXMLFlags", decltype(::virDomainDefineXMLFlags)>(
        c, description, flags);
}
virDomainPtr virDomainCreateXML(virConnectPtr c, const char* description, unsigned flags) {
    return changes<"virDomainCreateXML", decltype(::virDomainCreateXML)>(c, description, flags);
}
int virDomainUndefine(virDomainPtr d) {
    return changes<"virDomainUndefine", decltype(::virDomainUndefine)>(d);
}
int virDomainUndefineFlags(virDomainPtr d, unsigned flags) {
    return changes<"virDomainUndefineFlags", decltype(::virDomainUndefineFlags)>(d, flags);
}
int virDomainCreate(virDomainPtr d) {
    return changes<"virDomainCreate", decltype(::virDomainCreate)>(d);
}
int virDomainCreateWithFlags(virDomainPtr d, unsigned flags) {
    return changes<"virDomainCreateWithFlags", decltype(::virDomainCreateWithFlags)>(d, flags);
}
int virDomainDestroy(virDomainPtr d) {
    return changes<"virDomainDestroy", decltype(::virDomainDestroy)>(d);
}
int virDomainDestroyFlags(virDomainPtr d, unsigned flags) {
    return changes<"virDomainDestroyFlags", decltype(::virDomainDestroyFlags)>(d, flags);
}
int virDomainReboot(virDomainPtr d, unsigned flags) {
    return changes<"virDomainReboot", decltype(::virDomainReboot)>(d, flags);
}
int virDomainShutdown(virDomainPtr d) {
    return changes<"virDomainShutdown", decltype(::virDomainShutdown)>(d);
}
int virDomainShutdownFlags(virDomainPtr d, unsigned flags) {
    return changes<"virDomainShutdownFlags", decltype(::virDomainShutdownFlags)>(d, flags);
}
int virDomainSuspend(virDomainPtr d) {
    return changes<"virDomainSuspend", decltype(::virDomainSuspend)>(d);
}
int virDomainResume(virDomainPtr d) {
    return changes<"virDomainResume", decltype(::virDomainResume)>(d);
}

// Functions that read a handle.

const char* virDomainGetName(virDomainPtr d) {
    return tells<"virDomainGetName", decltype(::virDomainGetName)>(d);
}
int virDomainGetUUID(virDomainPtr d, unsigned char* uuid) {
    return tells<"virDomainGetUUID", decltype(::virDomainGetUUID)>(d, uuid);
}
char* virDomainGetOSType(virDomainPtr d) {
    return tells<"virDomainGetOSType", decltype(::virDomainGetOSType)>(d);
}
char* virConnectGetURI(virConnectPtr c) {
    return tells<"virConnectGetURI", decltype(::virConnectGetURI)>(c);
}

// Devices; calls without flags apply to the running machine.

int virDomainAttachDevice(virDomainPtr d, const char* device) {
    return edits(
        "virDomainAttachDevice", kxsim::models::attach_device, d, device, VIR_DOMAIN_AFFECT_LIVE,
        [&] {
            return libvirt<"virDomainAttachDevice", decltype(::virDomainAttachDevice)>()(d, device);
        });
}
int virDomainAttachDeviceFlags(virDomainPtr d, const char* device, unsigned flags) {
    return edits("virDomainAttachDeviceFlags", kxsim::models::attach_device, d, device, flags, [&] {
        return libvirt<"virDomainAttachDeviceFlags", decltype(::virDomainAttachDeviceFlags)>()(
            d, device, flags);
    });
}
int virDomainDetachDevice(virDomainPtr d, const char* device) {
    return edits(
        "virDomainDetachDevice", kxsim::models::detach_device, d, device, VIR_DOMAIN_AFFECT_LIVE,
        [&] {
            return libvirt<"virDomainDetachDevice", decltype(::virDomainDetachDevice)>()(d, device);
        });
}
int virDomainDetachDeviceFlags(virDomainPtr d, const char* device, unsigned flags) {
    return edits("virDomainDetachDeviceFlags", kxsim::models::detach_device, d, device, flags, [&] {
        return libvirt<"virDomainDetachDeviceFlags", decltype(::virDomainDetachDeviceFlags)>()(
            d, device, flags);
    });
}

#pragma GCC visibility pop

}  // extern "C"
