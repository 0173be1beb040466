// A simulated host, built by a test or a program and put under a process.
//
//     kxsim::Host host;
//     host.module({.name = "zfab4", .version = "3.19.0.1", .loaded = true});
//     host.adapter({.chip = "Q5",
//                   .location = "03:00.4",
//                   .ports = {{.name = "eth2", .ipv4 = {"192.0.2.1/24"}}}});
//     const auto attached = host.attach();
//     ... GetCardInfo(...) ...
//
// A fresh host has the directories that every Linux machine has and nothing in them: no adapter, no
// interface, no loaded module. Everything may be added, changed and removed at any time, attached
// or not; processes see it at once. What a builder call cannot do (a bad address, a name taken) it
// throws as std::invalid_argument; what the machine refuses (a full disk) as std::system_error.
//
// The files of a host are the paths of a small table that belong to it alone (its adapters,
// modules, interfaces and configuration: what it does not have is missing there, whatever the real
// machine has) and every other file that was given to it. All else is the real machine's.
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

// A network interface: one of an adapter's ports, or of anything else.
struct Interface {
    std::string name;                    // up to 15 characters
    std::string mac = {};                // six colon-separated pairs; made from the name when empty
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
    std::string driver = {};          // bound to it; empty for none
    bool vital_product_data = false;  // has the capability for them, at 0xD0
    std::size_t config_size = 256;    // of its configuration space: 64, 256 or 4096 bytes
};

// An adapter: the function that its maker's tools manage, with its siblings, its virtual functions
// and its ports.
struct Adapter {
    std::string chip;                     // "Q3", "Q4" or "Q5"
    std::string location;                 // of the managed function: 0 for Q3, 4 for the others
    unsigned device_id = 0;               // 0: one of the chip's
    std::vector<unsigned> siblings = {};  // further functions of the device, without ports
    unsigned virtual_functions = 0;       // on the same bus from slot 1 on, eight to a slot
    std::vector<Interface> ports = {};
    unsigned irq = 11;
    std::uint64_t bar0 = 0;   // 0: a place of its own below 4 GiB
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

// "The nth call of a kind fails." Calls are counted from when the rule is made, in all processes.
struct Fault {
    std::string call;           // "open", "ioctl", "getifaddrs", ...: a name of call_names(), or
                                // "file": any that opens a file, moves its bytes, flushes or
                                // changes it
    unsigned nth = 1;           // the first call that fails
    unsigned times = 1;         // how many fail from there on; 0 for all
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

// The power goes at the nth call on a file: it and all that follow fail, and a write stops midway.
// What was never flushed stands in the files until Host::lose_unflushed.
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
    std::string object;     // path or interface name; empty when it is about neither
    std::uint32_t command;  // of an ioctl; flags of an open
    int error;              // with which the simulated host refused it; 0 when it went on
    friend bool operator==(const LoggedCall&, const LoggedCall&) = default;
};

// What a window saw of the process that opened it.
class Calls {
public:
    // How often a kind of call was made, in all spellings together.
    [[nodiscard]] std::uint64_t operator[](std::string_view call) const;

    // How often a kind of call was made on that path or interface.
    [[nodiscard]] std::uint64_t on(std::string_view call, std::string_view object) const;

    // The names of the calls of a kind in their order; of "file" as faults know it, of all of
    // these.
    [[nodiscard]] std::vector<std::string> names(std::string_view call) const;

    // The requests to drivers of interfaces in their order, each with its interface and the values
    // that it carries: "GCOALESCE eth2", "SPAUSEPARAM eth2 autoneg 1 rx 0 tx 1", "SIOCSIFMTU eth2
    // 9000". Names of Ethernet tool commands stand without "ETHTOOL_".
    [[nodiscard]] const std::vector<std::string>& requests() const { return requests_; }

    // Every call in its order but for allocations. A window keeps the first 65536.
    [[nodiscard]] const std::vector<LoggedCall>& log() const { return log_; }

private:
    friend class Host;
    std::vector<std::uint64_t> counts_;
    std::vector<LoggedCall> log_;
    std::vector<std::string> requests_;
};

class Host;

// A rule in force; it stays when this handle goes.
class FaultRule {
public:
    [[nodiscard]] unsigned seen() const;       // calls that it was about
    [[nodiscard]] unsigned fired() const;      // calls that it made fail or cut short
    [[nodiscard]] std::string struck() const;  // the object of the last of them
    void remove();

private:
    friend class Host;
    FaultRule(Host& host, std::size_t place) : host_(&host), place_(place) {}
    Host* host_;
    std::size_t place_;
};

// While it lives, this process and the children it starts are on the host.
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
    // In a new directory below TMPDIR that goes away with the host, or in one that is given and
    // stays. A directory that holds a session is taken over as it is.
    Host();
    explicit Host(const std::filesystem::path& directory);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // --- Hardware and drivers ---

    void adapter(const Adapter& adapter);
    void pci_device(const PciDevice& device);

    // The inside of the adapter whose managed function stands at a location.
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

    // Make or replace a file, with the directories above it. Content may be any bytes. A file that
    // nobody may read or write (mode 0000) can be looked at but not opened, even by root.
    void file(std::string_view path, std::string_view content, mode_t mode = 0644);
    void append(std::string_view path, std::string_view content);
    void directory(std::string_view path);
    void link(std::string_view path, std::string_view target);
    void remove(std::string_view path);  // with all that is below it
    [[nodiscard]] bool exists(std::string_view path) const;
    [[nodiscard]] std::string read(std::string_view path) const;
    [[nodiscard]] mode_t mode(std::string_view path) const;  // permission bits

    // Entries are listed in the order in which they were made; give another. Entries that are not
    // named follow by name. (The devices of the PCI bus are listed newest first: libpci puts each
    // that it reads in front of its list, whose order so is the order of making.)
    void order(std::string_view directory, const std::vector<std::string>& names);

    // Let directory entries be of unknown type, as on some file systems.
    void hide_entry_types(bool hide = true);

    // --- Faults ---

    FaultRule fail(const Fault& fault);
    void clear_faults();

    // From here on remember how much of each file of the host is on the disk: what it held when it
    // was opened, and what was flushed. Up to 1023 files.
    void watch_flushes();

    // As after a power cut: the host's files lose what was written since and never flushed.
    // Changes of directories stay. Nothing is remembered any longer.
    void lose_unflushed();

    // Have an interface answer a request (an Ethernet tool command, or the number of another
    // request) with an errno; 0 lets it answer again.
    void refuse(std::string_view interface_name, std::uint32_t command, int error);

    // --- Use ---

    // Put this process on the host.
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

    // Microseconds that usleep was asked for and did not take.
    [[nodiscard]] std::uint64_t slept_microseconds() const;

    // The MTU that the interface's driver has.
    [[nodiscard]] unsigned mtu(std::string_view interface_name) const;

    // What the interface's driver answers, as it stands now; and giving it other answers.
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

// Run body once for each position at which a fault can strike: with the first call failing, the
// second, and so on until a run in which the rule no longer fires. Each run is a window of its own;
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
