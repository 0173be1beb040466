// Plan: the hypervisor of a simulated host is libvirt's built-in test driver.
//
// Trigger: libvirt's functions, called by an agent or by virsh. Effect: each process opens the
// host's node in a test driver of its own and starts the machines that run; what changes a machine
// is done by that driver and then written to the host's files, and a process that finds them
// changed opens them anew before it goes on. So all processes see the same machines, under the
// same ids. Devices, which the driver cannot attach, are edited into the description
// (models/machine_devices.hpp). Can be made to fail: the node's file can be missing, which is a
// host without a hypervisor.
#pragma once

#include <optional>

#include "models/machine_files.hpp"
#include "process/libvirt.hpp"

namespace kxsim::models {

// Whether a name given to virConnectOpen means the host's hypervisor. libvirt's other test drivers
// live in the process alone and stay what they are.
[[nodiscard]] bool is_hypervisor_name(const char* name);

// A connection to the host's hypervisor as it stands now, for the caller to close; null, with
// libvirt's error set, when there is none.
[[nodiscard]] virConnectPtr open_hypervisor(process::Host& host);

// As virConnectClose: the references left, without the one that this process's driver itself needs
// while there are others.
[[nodiscard]] int close_hypervisor(virConnectPtr connection);

// libvirt's text of a domain, for the caller to free; null when it is refused.
[[nodiscard]] char* description_of(virDomainPtr domain, unsigned flags);

// One use of a connection or domain that may be the host's. While it lives, the process is on the
// real machine (libvirt's own files are there) and, for a change, alone with the files.
class MachineVisit {
public:
    enum class Purpose { kAsk, kChange };

    MachineVisit(virConnectPtr connection, Purpose purpose);
    MachineVisit(virDomainPtr domain, Purpose purpose);
    MachineVisit(const MachineVisit&) = delete;
    MachineVisit& operator=(const MachineVisit&) = delete;

    // Whether it is the host's; anything else is to be used as it is.
    [[nodiscard]] bool is_simulated() const { return host_ != nullptr; }
    [[nodiscard]] const process::Host& host() const { return *host_; }

    // What to hand to libvirt in the place of what was given. Null when it is gone.
    [[nodiscard]] virConnectPtr connection() const { return connection_; }
    [[nodiscard]] virDomainPtr domain() const { return domain_; }

    // Write the machines down as the driver has them now.
    void save();

    // Run a machine with another description. False when libvirt refuses it, and nothing changes.
    [[nodiscard]] bool replace_live(const char* uuid, std::string_view description);

private:
    void begin(virConnectPtr given, Purpose purpose);

    const process::KeepErrno keep_errno_;
    process::Host* host_;  // at first that of this thread, then none unless this use is of it
    const process::Pause pause_;
    std::optional<MachineLock> lock_;
    virConnectPtr connection_ = nullptr;
    virDomainPtr domain_ = nullptr;
    std::optional<process::LibvirtDomain> found_;  // the domain, when what was given is outdated
};

}  // namespace kxsim::models
