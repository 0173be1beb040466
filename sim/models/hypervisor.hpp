// Plan: the hypervisor of a simulated host is libvirt's built-in test driver.
//
// Trigger: libvirt's functions, called by an agent or by virsh. Effect: each process opens the
// host's node in its own test driver and starts the running machines. That driver makes each
// change, which is then written to the host's files; a process that finds changed files opens them
// again before it continues. So all processes see the same machines, under the same ids. The driver
// cannot attach devices, so they are added to the description (models/machine_devices.hpp). What
// can be made to fail: the node's file can be missing, which means a host without a hypervisor.
#pragma once

#include <optional>

#include "models/machine_files.hpp"
#include "process/libvirt.hpp"

namespace kxsim::models {

// Whether a name for virConnectOpen means the host's hypervisor. libvirt's other test drivers exist
// only in their process and are not changed.
[[nodiscard]] bool is_hypervisor_name(const char* name);

// A connection to the host's hypervisor in its current state, which the caller closes; null, with
// libvirt's error set, when there is none.
[[nodiscard]] virConnectPtr open_hypervisor(process::Host& host);

// Like virConnectClose: returns the remaining references, without the one that this process's
// driver needs itself while there are others.
[[nodiscard]] int close_hypervisor(virConnectPtr connection);

// libvirt's text of a domain, which the caller frees; null when libvirt refuses it.
[[nodiscard]] char* description_of(virDomainPtr domain, unsigned flags);

// One use of a connection or domain that may belong to the host. While the object exists, the
// process is on the real machine (where libvirt's files are) and, for a change, has exclusive
// access to the files.
class MachineVisit {
public:
    enum class Purpose { kAsk, kChange };

    MachineVisit(virConnectPtr connection, Purpose purpose);
    MachineVisit(virDomainPtr domain, Purpose purpose);
    MachineVisit(const MachineVisit&) = delete;
    MachineVisit& operator=(const MachineVisit&) = delete;

    // Whether it belongs to the host; anything else is used unchanged.
    [[nodiscard]] bool is_simulated() const { return host_ != nullptr; }
    [[nodiscard]] const process::Host& host() const { return *host_; }

    // The handle to pass to libvirt instead of the given one. Null when it no longer exists.
    [[nodiscard]] virConnectPtr connection() const { return connection_; }
    [[nodiscard]] virDomainPtr domain() const { return domain_; }

    // Write the current state of the driver's machines to the files.
    void save();

    // Run a machine with another description. False when libvirt refuses it, and nothing changes.
    [[nodiscard]] bool replace_live(const char* uuid, std::string_view description);

private:
    void begin(virConnectPtr given, Purpose purpose);

    const process::KeepErrno keep_errno_;
    process::Host* host_;  // first the host of this thread, then null unless this use belongs to it
    const process::Pause pause_;
    std::optional<MachineLock> lock_;
    virConnectPtr connection_ = nullptr;
    virDomainPtr domain_ = nullptr;
    std::optional<process::LibvirtDomain> found_;  // the domain, when what was given is outdated
};

}  // namespace kxsim::models
