// A simulated host, built by a test or a program and attached to a process.
//
//     kxsim::Host host;
//     host.module({.name = "zfab4", .version = "3.19.0.1", .loaded = true});
//     host.adapter({.chip = "Q5",
//                   .location = "03:00.4",
//                   .ports = {{.name = "eth2", .ipv4 = {"192.0.2.1/24"}}}});
//     const auto attached = host.attach();
//     ... GetCardInfo(...) ...
//
// A new host has the directories of every Linux machine, without content: no adapter, no interface,
// no loaded module. Everything may be added, changed and removed at any time, attached or not;
// processes see it at once. A builder call throws std::invalid_argument for a wrong argument (a bad
// address, a name in use), and std::system_error when the real machine refuses a call (a full
// disk).
//
// The files of a host are every file that was given to it, and the paths of a small table that
// belong to the host alone (its adapters, modules, interfaces and configuration): below these paths
// a file that the host does not have is missing, whatever the real machine has. All other files are
// those of the real machine.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <kxsim/hardware.hpp>
#include <kxsim/machine.hpp>
#include <kxsim/nic.hpp>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kxsim {

// A network interface: a port of an adapter, or any other interface.
struct Interface {
    std::string name;      // up to 15 characters
    std::string mac = {};  // six colon-separated pairs; derived from the name when empty
    std::vector<std::string> ipv4 = {};  // "192.0.2.1/24"; without "/" the entry has no netmask
    std::vector<std::string> ipv6 = {};  // "2001:db8::1/64"
    unsigned mtu = 1500;
    std::string firmware = {};  // the driver's firmware text
    std::string driver = {};    // an adapter's port: the adapter's driver
    std::string driver_version = {};
    std::string bus_info = {};  // an adapter's port: "0000:" and the adapter's location
    bool up = true;
    bool loopback = false;
    Nic nic = {};  // what its driver answers
};

// One PCI function of any maker.
struct PciDevice {
    std::string location;  // "03:00.4" or, in another domain, "0001:03:00.4"
    unsigned vendor_id = 0;
    unsigned device_id = 0;
    unsigned pci_class = 0x020000;     // base class, subclass, interface
    unsigned subsystem_vendor_id = 0;  // 0: the function's own ids
    unsigned subsystem_id = 0;
    unsigned revision = 0;
    unsigned irq = 0;
    std::uint64_t bar0 = 0;  // base address of the register window; 0 for none
    std::uint64_t bar0_size = 0x80000;
    std::string driver = {};          // the driver that is bound to it; empty for none
    bool vital_product_data = false;  // has the capability for them, at 0xD0
    std::size_t config_size = 256;    // of its configuration space: 64, 256 or 4096 bytes
};

// An adapter: the managed function, its sibling functions, its virtual functions and its ports.
struct Adapter {
    std::string chip;                     // "Q3", "Q4" or "Q5"
    std::string location;                 // of the managed function: 0 for Q3, 4 for the others
    unsigned device_id = 0;               // 0: one of the chip's
    std::vector<unsigned> siblings = {};  // further functions of the device, without ports
    unsigned virtual_functions = 0;       // on the same bus from slot 1 on, eight to a slot
    std::vector<Interface> ports = {};
    unsigned irq = 11;
    std::uint64_t bar0 = 0;   // 0: an unused address below 4 GiB
    std::string driver = {};  // empty: the chip's Ethernet driver, zfab3 or zfab4
    Flash flash = {};
    Eeprom eeprom = {};
    HardwareFaults faults = {};
};

// A kernel module: its file under /lib/modules, its line in /proc/modules, its parameters.
struct Module {
    std::string name;
    std::string version = {};      // empty: the file carries none
    std::string description = {};  // empty: the file carries none
    bool loaded = false;
    std::string where = "updates";       // directory below /lib/modules/RELEASE; empty: no file
    std::string file = {};               // name of the file; empty: the module's name and ".ko"
    std::vector<std::string> info = {};  // further strings of the file, "key=value"
    unsigned elf_class = 64;             // 32 or 64
    bool big_endian = false;
    std::map<std::string, std::string> parameters = {};  // under /sys/module/NAME/parameters
    std::string used_by = "-";                           // of the /proc/modules line
};

// An offload engine: its line in the lists of offload devices, its control files.
struct ToeDevice {
    unsigned index = 0;
    std::vector<std::string> interfaces;                 // whose traffic it offloads
    std::map<std::string, std::string> parameters = {};  // over the defaults
    bool control_files = true;                           // /proc/sys/toe/toeN_tom
    bool of_zfab3 = false;                               // listed in /proc/net/zfab3/devices too
};

// "The nth call of a kind fails." Calls are counted from the creation of the rule, in all
// processes.
struct Fault {
    std::string call;           // "open", "ioctl", "getifaddrs", ...: a name of call_names(), or
                                // "file": any that opens a file, moves its bytes, flushes or
                                // changes it
    unsigned nth = 1;           // the first call that fails
    unsigned times = 1;         // how many calls fail from the first one; 0 for all
    int error;                  // errno; 0 with `most` alone
    std::string object = {};    // the path, interface or function of libvirt concerned, "*" at its
                                // end for any rest
    std::uint32_t command = 0;  // of an ioctl: an Ethernet tool command or a request; 0 for any
    std::string from = {};      // allocations: part of the file name of the code that allocates
    unsigned most = 0;          // without an errno, a read or write moves no more bytes than this;
                                // the kernel's own files always answer whole. With an errno, the
                                // bytes that a write leaves before it fails
    std::string program = {};   // the name of the program that calls, up to 15 characters
};

// The power fails at the nth call on a file: this call and all later ones fail, and a write stops
// midway. Data that were never flushed stay in the files until Host::lose_unflushed.
[[nodiscard]] inline Fault power_cut(unsigned nth) {
    return {.call = "file", .nth = nth, .times = 0, .error = EIO, .most = 7};
}

// Every kind of call that is counted and can be made to fail; "libvirt" is every function of
// libvirt that works on machines. "malloc", "calloc" and "realloc" are counted while a window of
// Host::count is open, and fail only then or in a program that the rule names.
[[nodiscard]] std::vector<std::string_view> call_names();

// One call that was made while a window was open.
struct LoggedCall {
    std::string call;
    std::string object;     // path or interface name; empty when the call has neither
    std::uint32_t command;  // of an ioctl; flags of an open
    int error;  // the errno with which the simulated host refused it; 0 when it was not refused
    friend bool operator==(const LoggedCall&, const LoggedCall&) = default;
};

// The calls that a window recorded for the process that opened it.
class Calls {
public:
    // The number of calls of a kind, in all variants together.
    [[nodiscard]] std::uint64_t operator[](std::string_view call) const;

    // The number of calls of a kind on that path or interface.
    [[nodiscard]] std::uint64_t on(std::string_view call, std::string_view object) const;

    // The names of the calls of a kind in their order; of "file" as faults know it, of all of
    // these.
    [[nodiscard]] std::vector<std::string> names(std::string_view call) const;

    // The requests to drivers of interfaces in their order, each with its interface and the values
    // that it carries: "GCOALESCE eth2", "SPAUSEPARAM eth2 autoneg 1 rx 0 tx 1", "SIOCSIFMTU eth2
    // 9000". Names of ethtool commands are given without "ETHTOOL_".
    [[nodiscard]] const std::vector<std::string>& requests() const { return requests_; }

    // Every call in order, except allocations. A window keeps the first 65536.
    [[nodiscard]] const std::vector<LoggedCall>& log() const { return log_; }

private:
    friend class Host;
    std::vector<std::uint64_t> counts_;
    std::vector<LoggedCall> log_;
    std::vector<std::string> requests_;
};

class Host;

// An active rule; it stays active when this handle is destroyed.
class FaultRule {
public:
    [[nodiscard]] unsigned seen() const;       // calls that matched
    [[nodiscard]] unsigned fired() const;      // calls that failed or were cut short
    [[nodiscard]] std::string struck() const;  // the object of the last of them
    void remove();

private:
    friend class Host;
    FaultRule(Host& host, std::size_t place) : host_(&host), place_(place) {}
    Host* host_;
    std::size_t place_;
};

// While this object exists, this process and its children are on the host.
class Attached {
public:
    Attached(Attached&& other) noexcept;
    Attached& operator=(Attached&&) = delete;
    ~Attached();

private:
    friend class Host;
    explicit Attached(const std::string& root);
    void restore_environment();
    bool attached_ = true;
    std::shared_ptr<const void> library_;  // how children find it
    std::map<std::string, std::optional<std::string>> environment_;
};

class Host {
public:
    // In a new directory below TMPDIR (or in memory) that is removed with the host, or in a given
    // directory that stays. A session in the given directory is continued.
    Host();
    explicit Host(const std::filesystem::path& directory);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // --- Hardware and drivers ---

    void adapter(const Adapter& adapter);
    void pci_device(const PciDevice& device);

    // The hardware of the adapter whose managed function is at a location.
    [[nodiscard]] Hardware hardware(const std::string& location);

    void interface(const Interface& interface);
    void port(std::string_view location, const Interface& port);  // one more of an adapter
    void remove_interface(std::string_view name);
    void module(const Module& module);
    void toe_device(const ToeDevice& device);

    // A virtual machine of the host's hypervisor, which is libvirt's test driver: the functions of
    // libvirt and virsh work on it from every process on the host.
    void machine(const VirtualMachine& machine);

    // --- Files, by their paths on the host ---

    // Create or replace a file, and the directories above it. The content may be any bytes. Even
    // root can examine but not open a file with mode 0000.
    void file(std::string_view path, std::string_view content, mode_t mode = 0644);
    void append(std::string_view path, std::string_view content);
    void directory(std::string_view path);
    void link(std::string_view path, std::string_view target);
    void remove(std::string_view path);  // with everything below it
    [[nodiscard]] bool exists(std::string_view path) const;
    [[nodiscard]] std::string read(std::string_view path) const;
    [[nodiscard]] mode_t mode(std::string_view path) const;  // permission bits

    // Set the order in which the entries of a directory are listed; by default it is the order of
    // their creation. Entries that are not named follow by name. (The list of PCI devices begins
    // with the newest: libpci inserts each device that it reads at the front of its own list, so
    // its list has the order of creation.)
    void order(std::string_view directory, const std::vector<std::string>& names);

    // Report an unknown type for directory entries, as some file systems do.
    void hide_entry_types(bool hide = true);

    // --- Faults ---

    FaultRule fail(const Fault& fault);
    void clear_faults();

    // From now on record how much of each file of the host is on the disk: its content when it was
    // opened, and what was flushed. For up to 1023 files.
    void watch_flushes();

    // Like a power cut: the host's files lose the data that were written since then and never
    // flushed. Changes of directories stay. Recording ends.
    void lose_unflushed();

    // Make an interface refuse a request (an ethtool command, or the number of another request)
    // with an errno; 0 ends the refusal.
    void refuse(std::string_view interface_name, std::uint32_t command, int error);

    // Make an interface's driver accept a request that changes something, and change nothing.
    void ignore(std::string_view interface_name, std::uint32_t command);

    // --- Use ---

    // Attach the host to this process.
    [[nodiscard]] Attached attach();

    // The calls that body makes in this process. Windows do not nest.
    template <class Body>
    Calls count(Body&& body) {
        open_window();
        struct Close {
            Host& host;
            ~Close() { host.close_window(); }
        };
        {
            const Close close{*this};
            std::forward<Body>(body)();
        }
        return calls();
    }

    // Microseconds that were requested from usleep, which does not wait.
    [[nodiscard]] std::uint64_t slept_microseconds() const;

    // The MTU in the interface's driver.
    [[nodiscard]] unsigned mtu(std::string_view interface_name) const;

    // The current answers of the interface's driver; and setting other answers.
    [[nodiscard]] Nic nic(std::string_view interface_name) const;
    void nic(std::string_view interface_name, const Nic& nic);

    // The directory of the session; a process with KXSIM_ROOT set to it and libkxsim.so preloaded
    // is on the host.
    [[nodiscard]] const std::string& root() const;

private:
    friend class FaultRule;
    friend class Hardware;
    void open_window();
    void close_window();
    [[nodiscard]] Calls calls() const;

    struct State;
    std::unique_ptr<State> state_;
};

// Run body once for each position at which a fault can occur: the first call fails, then the
// second, and so on, until the rule no longer matches in a run. Each run is a window of its own;
// body gets the position. Returns how many positions there were.
template <class Body>
unsigned sweep(Host& host, Fault fault, Body&& body) {
    for (fault.nth = 1;; ++fault.nth) {
        FaultRule rule = host.fail(fault);
        host.count([&] { body(fault.nth); });
        const bool fired = rule.fired() > 0;
        rule.remove();
        if (!fired) {
            return fault.nth - 1;
        }
    }
}

}  // namespace kxsim
