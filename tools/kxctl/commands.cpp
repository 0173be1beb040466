// The command table.
#include <kxlinhw/settings.h>

#include "command.hpp"
#include "configuration_lock.hpp"
#include "nouns.hpp"
#include "port_settings.hpp"
#include "setting.hpp"

namespace kx::ctl {
namespace {

const Argument kLocation{
    .name = "LOCATION",
    .help = "PCI bus location of the card, as \"card list\" shows it",
};
const Argument kAdapter{
    .name = "LOCATION",
    .help = "PCI bus location of the adapter, as \"adapter list\" shows it",
};
const Argument kPort{
    .name = "PORT",
    .help = "Number of the port within its card, as \"port list\" shows it",
};
const Argument kWatch{
    .name = "--watch",
    .help = "Read again after every so many seconds (0.01 to 86400) and show change and rate",
    .value = "SECONDS",
};
const Argument kCount{
    .name = "--count",
    .help = "With --watch: end after so many readings",
    .value = "N",
};

const Argument kChanges{
    .name = "KEY=VALUE",
    .help = "Setting and value; numbers are decimal or 0x hexadecimal",
    .count = Count::kSeveral,
};

const Argument kDryRun{.name = "--dry-run", .help = "Show old and new values, change nothing"};

const Argument kYes{.name = "--yes", .help = "Do not ask; needed where there is no terminal"};
const Argument kBackup{
    .name = "--backup",
    .help = "Save what is there to this new file first (unless named: location, region and time)",
    .value = "FILE",
};
const Argument kNoBackup{.name = "--no-backup", .help = "Do not save what is there"};
const Argument kFlashDryRun{
    .name = "--dry-run",
    .help = "Show the sectors and pages, change nothing",
};
const Argument kMachine{
    .name = "VM",
    .help = "Name, UUID or id of the virtual machine, as \"vm list\" shows them",
};
const Argument kFunction{.name = "VF", .help = "PCI location of the function, such as 04:01.2"};

const Argument kModule{.name = "MODULE", .help = "RDMA driver: iw_zfab3 or iw_zfab4"};

}  // namespace

std::span<const Command> commands() {
    static const std::vector<Command> table = {
        {
            .noun = "card",
            .verb = "list",
            .help = "Show the adapters of this host",
            .about =
                "One line a card: its PCI bus location, by which every other command names it, "
                "chip, model, PCI device id, number of ports, firmware, and its offload "
                "engine (\"yes\", \"no\", or the name of the offload device).",
            .arguments = {},
            .examples = {"kxctl card list", "kxctl card list --json"},
            .run = card::list,
        },
        {
            .noun = "card",
            .verb = "stats",
            .help = "Show the counters of a card's offload engine",
            .about = "One line a counter, under the name that the driver gives it. With --watch: "
                     "each counter's change since the reading before and its rate a second, on a "
                     "terminal in one place with a graph of the rates; with --json one line of "
                     "JSON a reading.",
            .arguments = {kLocation, kWatch, kCount},
            .examples = {"kxctl card stats 03:00.4", "kxctl card stats 03:00.4 --watch 5"},
            .run = card::stats,
        },
        {
            .noun = "port",
            .verb = "list",
            .help = "Show the ports of a card",
            .about = "One line a port: its number within the card, interface, link, speed in Mb/s, "
                     "duplex, MTU in bytes, MAC and IPv4 address. A value that the driver does not "
                     "know is shown as \"-\".",
            .arguments = {kLocation},
            .examples = {"kxctl port list 03:00.4", "kxctl --sim port list 03:00.4 --json"},
            .run = port::list,
        },
        {
            .noun = "port",
            .verb = "show",
            .help = "Show everything about a port",
            .about = "Link, addresses, offloads, pause, coalescing, rings (current and largest "
                     "size in descriptors) and wake-on-LAN. Wake-on-LAN modes are letters: p PHY "
                     "activity, u unicast, m multicast, b broadcast, a ARP, g magic packet, s "
                     "secured magic packet, d none.",
            .arguments = {kLocation, kPort},
            .examples = {"kxctl port show 03:00.4 1", "kxctl port show 03:00.4 1 --json"},
            .run = port::show,
        },
        {
            .noun = "port",
            .verb = "stats",
            .help = "Show the counters of a port",
            .about = "One line a counter, under the name that the driver gives it. With --watch: "
                     "each counter's change since the reading before and its rate a second, on a "
                     "terminal in one place with a graph of the rates; with --json one line of "
                     "JSON a reading.",
            .arguments = {kLocation, kPort, kWatch, kCount},
            .examples = {"kxctl port stats 03:00.4 1", "kxctl port stats 03:00.4 1 --watch 2"},
            .run = port::stats,
        },
        {
            .noun = "port",
            .verb = "set",
            .help = "Change settings of a port",
            .about =
                "Applies the settings and shows each as it was and as it reads back. A setting "
                "that fails does not stop the others; each failure is told on a line of its own. "
                "What was applied is saved and applied again by \"kxctl restore\" after a reboot.",
            .arguments = with_lock_options(
                {kLocation,
                 {.name = "PORT", .help = "Number of the port, as \"port list\" shows it"},
                 kChanges,
                 kDryRun}),
            .examples =
                {"kxctl port set 03:00.4 1 mtu=9000 tso=on",
                 "kxctl --sim port set 03:00.4 1 autoneg=off speed=1000 duplex=full --dry-run"},
            .run = port::set,
            .settings = terms_of(port_settings()),
        },
        {
            .noun = "offload",
            .verb = "show",
            .help = "Show the parameters of a card's offload engine",
            .about = "One line a parameter, under the name of its control file in "
                     "/proc/sys/toe/toeN_tom; tx_coal is a parameter of the Ethernet driver's "
                     "module. Parameters without a unit are switches, or counted as the driver "
                     "does.",
            .arguments = {kLocation},
            .examples = {"kxctl offload show 03:00.4", "kxctl --sim offload show 03:00.4 --json"},
            .run = offload::show,
        },
        {
            .noun = "offload",
            .verb = "set",
            .help = "Change offload and driver settings of a card",
            .about = "Applies the settings and shows each as it was and as it reads back. A "
                     "setting that fails does not stop the others; each failure is told on a line "
                     "of its own. Settings of the offload engine are saved in /etc/sysctl.conf.",
            .arguments = with_lock_options({kLocation, kChanges, kDryRun}),
            .examples =
                {"kxctl offload set 03:00.4 activated=on mss=1460",
                 "kxctl --sim offload set 03:00.4 max_conn=-1 --dry-run"},
            .run = offload::set,
            .settings = terms_of(offload::settings()),
        },
        {
            .noun = "iwarp",
            .verb = "show",
            .help = "Show the parameters of an RDMA driver",
            .about = "One line a parameter. The driver must be loaded; a parameter whose file is "
                     "missing reads 0. The library does not read markers_enabled of iw_zfab4.",
            .arguments = {kModule},
            .examples = {"kxctl iwarp show iw_zfab4", "kxctl --sim iwarp show iw_zfab3 --json"},
            .run = iwarp::show,
        },
        {
            .noun = "iwarp",
            .verb = "set",
            .help = "Change parameters of an RDMA driver",
            .about = "Writes the parameters and shows each as it was and as it reads back; a value "
                     "that the driver did not take is told on a line of its own. Parameters are "
                     "not saved.",
            .arguments = {kModule, kChanges, kDryRun},
            .examples =
                {"kxctl iwarp set iw_zfab4 peer2peer=1 snd_win=262144",
                 "kxctl --sim iwarp set iw_zfab3 cong_flavor=2 --dry-run"},
            .run = iwarp::set,
            .settings = terms_of(iwarp::settings()),
        },
        {
            .noun = "module",
            .verb = "list",
            .help = "Show the driver modules that are installed",
            .about = "One line a kernel module that belongs to the adapters and has a module file: "
                     "whether it is loaded (\"?\" when the kernel does not tell), its version and "
                     "its description. Needs no adapter and no loaded driver.",
            .arguments = {},
            .examples = {"kxctl module list", "kxctl --sim=lab module list"},
            .run = module::list,
        },
        {
            .noun = "adapter",
            .verb = "list",
            .help = "Show the adapters with what their EEPROM and flash tell",
            .about = "One line an adapter: chip, product, serial number, MAC address of its first "
                     "port, number of ports, version of the boot option ROM. Reads the adapters "
                     "themselves and so needs no driver; takes about half a second an adapter.",
            .arguments = {},
            .examples = {"kxctl adapter list", "kxctl --sim adapter list --json"},
            .run = adapter::list,
        },
        {
            .noun = "adapter",
            .verb = "show",
            .help = "Show the data sheet of an adapter",
            .about = "Product, part and serial number, MAC address, ports, the versions V0 and V5 "
                     "(V7 of a Q3) of its product data, boot option ROM and boot configuration. "
                     "Fields of the configuration whose meaning is the option ROM's own bear their "
                     "offset.",
            .arguments = {kAdapter},
            .examples = {"kxctl adapter show 04:00.4", "kxctl --sim adapter show 04:00.4 --json"},
            .run = adapter::show,
        },
        {
            .noun = "vpd",
            .verb = "show",
            .help = "Show the vital product data of an adapter",
            .about = "Every keyword as the EEPROM holds it, with the place of its value; values "
                     "that are no text in hexadecimal. Exit code 4 when the checksum is bad or the "
                     "data are damaged; what is wrong is told.",
            .arguments =
                {kAdapter,
                 {.name = "--raw",
                  .help = "Also write the data to this file, byte for byte",
                  .value = "FILE"}},
            .examples = {"kxctl vpd show 04:00.4", "kxctl --sim vpd show 04:00.4 --raw vpd.bin"},
            .run = vpd::show,
        },
        {
            .noun = "flash",
            .verb = "info",
            .help = "Show the flash of an adapter and what is in it",
            .about = "Size, manufacturer and sectors as the flash tells them; each region with its "
                     "address and size, whether it holds a valid boot option ROM or configuration, "
                     "and the option ROM's version. Changes nothing.",
            .arguments = {kLocation},
            .examples = {"kxctl flash info 03:00.4", "kxctl --sim flash info 05:00.0 --json"},
            .run = flash::info,
        },
        {
            .noun = "flash",
            .verb = "dump",
            .help = "Copy the flash or a region of it to a file",
            .about = "The bytes as they are in the flash. An existing file is never replaced, and "
                     "a copy that cannot be completed leaves no file.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "New file for the bytes"},
                 {.name = "--region",
                  .help = "boot, config, firmware or all (all unless named)",
                  .value = "NAME",
                  .choices = {"boot", "config", "firmware", "all"}}},
            .examples =
                {"kxctl flash dump 03:00.4 flash.bin",
                 "kxctl flash dump 03:00.4 rom.bin --region boot"},
            .run = flash::dump,
        },
        {
            .noun = "flash",
            .verb = "write-boot",
            .help = "Write a boot option ROM",
            .about = "Erases the sectors that the image takes, writes it and reads it back. Asks "
                     "first, and saves all that may change. On Q4 and Q5 the first page goes last: "
                     "a write that was cut off leaves no valid option ROM, never half of one.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "The image, which begins with 55 aa"},
                 kYes,
                 kBackup,
                 kNoBackup,
                 kFlashDryRun},
            .examples =
                {"kxctl flash write-boot 03:00.4 rom.bin",
                 "kxctl flash write-boot 03:00.4 rom.bin --yes --backup old.bin"},
            .run = flash::write_boot,
        },
        {
            .noun = "flash",
            .verb = "erase-boot",
            .help = "Erase the boot option ROM",
            .about = "Erases the region \"boot\" and reads it back. Asks first, and saves all that "
                     "may change.",
            .arguments = {kLocation, kYes, kBackup, kNoBackup, kFlashDryRun},
            .examples =
                {"kxctl flash erase-boot 03:00.4", "kxctl flash erase-boot 03:00.4 --dry-run"},
            .run = flash::erase_boot,
        },
        {
            .noun = "flash",
            .verb = "config-show",
            .help = "Show the boot configuration of an adapter",
            .about = "One line a field of the configuration record (Q3: of the settings block). "
                     "Fields without a known meaning bear their offset; those of ports show a "
                     "number for each.",
            .arguments = {kLocation},
            .examples =
                {"kxctl flash config-show 03:00.4", "kxctl flash config-show 03:00.4 --json"},
            .run = flash::config_show,
        },
        {
            .noun = "flash",
            .verb = "config-default",
            .help = "Write the default boot configuration",
            .about =
                "Replaces the configuration record by the default one, which needs an option "
                "ROM in the flash (Q3: the settings block by an empty one), and reads it back. "
                "Asks first, and saves all that may change.",
            .arguments =
                {kLocation,
                 {.name = "--ports",
                  .help = "Ports of the record, 1 to 4 (those of the product unless given)",
                  .value = "N",
                  .choices = {"1", "2", "3", "4"}},
                 kYes,
                 kBackup,
                 kNoBackup,
                 kFlashDryRun},
            .examples =
                {"kxctl flash config-default 03:00.4",
                 "kxctl flash config-default 03:00.4 --ports 2 --yes"},
            .run = flash::config_default,
        },
        {
            .noun = "flash",
            .verb = "config-erase",
            .help = "Erase the boot configuration",
            .about = "Erases the region \"config\" and reads it back. Asks first, and saves all "
                     "that may change.",
            .arguments = {kLocation, kYes, kBackup, kNoBackup, kFlashDryRun},
            .examples =
                {"kxctl flash config-erase 03:00.4",
                 "kxctl flash config-erase 05:00.0 --yes --no-backup"},
            .run = flash::config_erase,
        },
        {
            .noun = "flash",
            .verb = "config-write",
            .help = "Write a boot configuration that was saved",
            .about = "Writes the record with which the file begins, such as one that config-erase "
                     "or config-default saved, and reads it back. Asks first, and saves all that "
                     "may change.",
            .arguments =
                {kLocation,
                 {.name = "FILE", .help = "The record, with or without the rest of its region"},
                 kYes,
                 kBackup,
                 kNoBackup,
                 kFlashDryRun},
            .examples =
                {"kxctl flash config-write 03:00.4 config.bin",
                 "kxctl flash config-write 03:00.4 config.bin --dry-run"},
            .run = flash::config_write,
        },
        {
            .noun = "vm",
            .verb = "list",
            .help = "Show the virtual machines of this host",
            .about =
                "One line a machine: libvirt's id (of machines that are active), name, run "
                "state (\"?\" when virsh does not tell) and UUID. The active ones stand first.",
            .arguments = {},
            .examples = {"kxctl vm list", "kxctl --sim vm list --json"},
            .run = vm::list,
        },
        {
            .noun = "vm",
            .verb = "start",
            .help = "Start a virtual machine, or resume a paused one",
            .about = "Shows the machine as it is then.",
            .arguments = {kMachine},
            .examples = {"kxctl vm start web2", "kxctl --sim vm start web2 --json"},
            .run = vm::start,
        },
        {
            .noun = "vm",
            .verb = "suspend",
            .help = "Pause a running virtual machine",
            .about = "Shows the machine as it is then.",
            .arguments = {kMachine},
            .examples = {"kxctl vm suspend web1", "kxctl --sim vm suspend 1"},
            .run = vm::suspend,
        },
        {
            .noun = "vm",
            .verb = "resume",
            .help = "Let a paused virtual machine go on",
            .about = "Shows the machine as it is then.",
            .arguments = {kMachine},
            .examples = {"kxctl vm resume batch1", "kxctl --sim vm resume batch1 --json"},
            .run = vm::resume,
        },
        {
            .noun = "vm",
            .verb = "reboot",
            .help = "Ask a virtual machine's guest to reboot",
            .about = "Shows the machine as it is once its guest was asked.",
            .arguments = {kMachine},
            .examples = {"kxctl vm reboot web1", "kxctl --sim vm reboot web1"},
            .run = vm::reboot,
        },
        {
            .noun = "vm",
            .verb = "shutdown",
            .help = "Ask a virtual machine's guest to shut down",
            .about = "Shows the machine as it is once its guest was asked; a guest takes its time.",
            .arguments = {kMachine},
            .examples = {"kxctl vm shutdown web1", "kxctl --sim vm shutdown web1 --json"},
            .run = vm::shutdown,
        },
        {
            .noun = "vf",
            .verb = "list",
            .help = "Show the virtual functions of this host or of a virtual machine",
            .about = "One line a PCI function, of this host unless a machine is named. The library "
                     "reads the numbers of lspci as decimal ones: functions of the host whose "
                     "location has a hexadecimal letter are shown wrong, and functions of a "
                     "machine are found on buses that read alike.",
            .arguments =
                {{.name = "VM",
                  .help = "Name, UUID or id of the virtual machine",
                  .count = Count::kOptional}},
            .examples = {"kxctl vf list", "kxctl --sim vf list web1 --json"},
            .run = vf::list,
        },
        {
            .noun = "vf",
            .verb = "attach",
            .help = "Give a virtual function to a running virtual machine",
            .about = "The machine has it at once and after every start. Shows the functions that "
                     "the machine has then.",
            .arguments = {kMachine, kFunction},
            .examples =
                {"kxctl vf attach web1 04:01.4", "kxctl --sim vf attach web1 0000:04:01.4 --json"},
            .run = vf::attach,
        },
        {
            .noun = "vf",
            .verb = "detach",
            .help = "Take a virtual function out of a virtual machine's definition",
            .about = "A running machine keeps it until its next start.",
            .arguments = {kMachine, kFunction},
            .examples =
                {"kxctl vf detach web1 04:01.0", "kxctl --sim vf detach web2 04:01.3 --json"},
            .run = vf::detach,
        },
        {
            .noun = "bridge",
            .verb = "list",
            .help = "Show the network interfaces of a running virtual machine",
            .about = "One line an interface: the host's end of it, its type, the bridge that it is "
                     "on, the model that the guest sees and the MAC address.",
            .arguments = {kMachine},
            .examples = {"kxctl bridge list web1", "kxctl --sim bridge list web1 --json"},
            .run = bridge::list,
        },
        {
            .noun = "bridge",
            .verb = "attach",
            .help = "Give a running virtual machine an interface on a bridge",
            .about = "The machine has it until it stops. Shows the interfaces that the machine "
                     "has then.",
            .arguments = {kMachine, {.name = "BRIDGE", .help = "Bridge of this host"}},
            .examples = {"kxctl bridge attach web1 br0", "kxctl --sim bridge attach web1 br0"},
            .run = bridge::attach,
        },
        {
            .noun = "bridge",
            .verb = "detach",
            .help = "Take an interface out of a virtual machine's definition",
            .about = "The machine must run, and keeps the interface until its next start. What it "
                     "runs with becomes its definition, but for that interface.",
            .arguments =
                {kMachine,
                 {.name = "TARGET",
                  .help = "The host's end of the interface, as \"bridge list\" shows it"}},
            .examples =
                {"kxctl bridge detach web1 testnet0", "kxctl --sim bridge detach web1 testnet0"},
            .run = bridge::detach,
        },
        {
            .noun = "metrics",
            .verb = "",
            .help = "Show state and counters for monitoring",
            .about = "Metrics in the text format of Prometheus: cards, ports with link and speed, "
                     "their most useful counters, driver modules. A host without cards has them "
                     "too. With --output the file is replaced as a whole, as the textfile "
                     "collector of the node exporter needs it, and nothing is printed.",
            .arguments =
                {{.name = "--all", .help = "Every counter of the ports and offload engines"},
                 {.name = "--output", .help = "Write to this file instead", .value = "FILE"}},
            .examples =
                {"kxctl metrics",
                 "kxctl metrics --all --output /var/lib/prometheus/node-exporter/kxlinhw.prom"},
            .run = metrics::run,
        },
        {
            .noun = "report",
            .verb = "",
            .help = "Write a page about the whole host",
            .about = "One HTML file that needs nothing else and no network: cards with ports, "
                     "links, counters, flash and product data, driver modules, virtual machines "
                     "with their virtual functions. What cannot be read is told in its place.",
            .arguments =
                {{.name = "--html", .help = "The file, which is replaced", .value = "FILE"}},
            .examples = {"kxctl report --html host.html", "kxctl --sim report --html lab.html"},
            .run = host_report::run,
        },
        {
            .noun = "restore",
            .verb = "",
            .help = "Apply again the port settings that were saved",
            .about = "Reads " KX_PORT_PARAMETER_FILE
                     " and tells of each saved setting whether it was applied, skipped because its "
                     "interface is gone, or refused, and of each damaged line its number. The "
                     "service kxlinhw-restore runs it at start-up.",
            .arguments = with_lock_options(
                {{.name = "FILE", .help = "Read this file instead", .count = Count::kOptional}}),
            .examples = {"kxctl restore", "kxctl restore --json"},
            .run = restore::run,
        },
        {
            .noun = "repair",
            .verb = "",
            .help = "Bring back a half-rewritten configuration file",
            .about = "Looks at " KX_PORT_PARAMETER_FILE " and " KX_SYSCTL_FILE
                     ". When a power cut came between the two renamings of a rewrite, the file is "
                     "there under other names only; it gets its own name back. The service "
                     "kxlinhw-repair runs it early at start-up.",
            .arguments = with_lock_options({}),
            .examples = {"kxctl repair", "kxctl repair --json"},
            .run = repair::run,
        },
        {
            .noun = "version",
            .verb = "",
            .help = "Show the versions of kxctl and of the library",
            .about = "The version of kxctl, name and version of the library that it runs with, and "
                     "the PCI vendor id by which the library knows its adapters.",
            .arguments = {},
            .examples = {"kxctl version", "kxctl version --json"},
            .run = version::show,
        },
    };
    return table;
}

std::span<const Argument> global_options() {
    static const std::vector<Argument> table = {
        {.name = "-j,--json", .help = "Print JSON, and nothing else, on standard output"},
        {.name = "-v,--verbose", .help = "Show the library's own messages on standard error"},
        {
            .name = "--sim",
            .help = "Run on a simulated host (scenario lab unless named)",
            .value = "SCENARIO",
            .count = Count::kOptional,
        },
        {
            .name = "--color",
            .help = "Use colour: auto (on a terminal), always or never",
            .value = "WHEN",
            .choices = {"auto", "always", "never"},
        },
        {.name = "--version", .help = "Print the version of kxctl"},
        {.name = "-h,--help", .help = "Print this help, or that of a noun or a command"},
    };
    return table;
}

}  // namespace kx::ctl
