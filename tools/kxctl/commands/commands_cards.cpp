// The commands about cards as their drivers show them: ports, offload engines, RDMA drivers,
// modules.
#include "commands/commands.hpp"
#include "commands/nouns.hpp"
#include "settings/configuration_lock.hpp"
#include "settings/port_settings.hpp"
#include "settings/setting.hpp"

namespace kx::ctl {
namespace {

const Argument kPort{
    .name = "PORT",
    .help = "Number of the port within its card, as \"port list\" shows it",
};
const Argument kWatch{
    .name = "--watch",
    .help = "Read again after each interval (0.01 to 86400 seconds), and show change and rate",
    .value = "SECONDS",
};
const Argument kCount{
    .name = "--count",
    .help = "With --watch: end after this many readings",
    .value = "N",
};
constexpr const char* kAboutCounters =
    "One line for each counter, with the driver's name for it. With --watch: also the change of "
    "each counter since the previous reading and its rate per second; on a terminal the table is "
    "updated in place and shows a graph of the rates; with --json each reading is one line of "
    "JSON.";
const Argument kChanges{
    .name = "KEY=VALUE",
    .help = "Setting and value; numbers are decimal or 0x hexadecimal",
    .count = Count::kSeveral,
};
const Argument kDryRun{.name = "--dry-run", .help = "Show old and new values, change nothing"};
const Argument kModule{.name = "MODULE", .help = "RDMA driver: iw_zfab3 or iw_zfab4"};

}  // namespace

std::vector<Command> card_commands() {
    return {
        {
            .noun = "card",
            .verb = "list",
            .help = "Show the adapters of this host",
            .about =
                "One line for each card: its PCI bus location (the name of the card in all other "
                "commands), chip, model, PCI device id, number of ports, firmware, and its "
                "offload engine (\"yes\", \"no\", or the name of the offload device).",
            .arguments = {},
            .examples = {"kxctl card list", "kxctl card list --json"},
            .run = card::list,
        },
        {
            .noun = "card",
            .verb = "stats",
            .help = "Show the counters of a card's offload engine",
            .about = kAboutCounters,
            .arguments = {kLocation, kWatch, kCount},
            .examples = {"kxctl card stats 03:00.4", "kxctl card stats 03:00.4 --watch 5"},
            .run = card::stats,
        },
        {
            .noun = "port",
            .verb = "list",
            .help = "Show the ports of a card",
            .about = "One line for each port: its number within the card, interface, link, speed "
                     "in Mb/s, duplex, MTU in bytes, MAC and IPv4 address. A value that the "
                     "driver does not know appears as \"-\".",
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
            .about = kAboutCounters,
            .arguments = {kLocation, kPort, kWatch, kCount},
            .examples = {"kxctl port stats 03:00.4 1", "kxctl port stats 03:00.4 1 --watch 2"},
            .run = port::stats,
        },
        {
            .noun = "port",
            .verb = "set",
            .help = "Change settings of a port",
            .about =
                "Applies the settings, and shows the old value of each setting and the new value "
                "as read back. A setting that fails does not stop the others; each failure has "
                "its own line. Applied settings are saved; \"kxctl restore\" applies them again "
                "after a reboot.",
            .arguments = with_lock_options({kLocation, kPort, kChanges, kDryRun}),
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
            .about = "One line for each parameter, with the name of its control file in "
                     "/proc/sys/toe/toeN_tom; tx_coal is a parameter of the Ethernet driver's "
                     "module. Parameters without a unit are switches, or have a unit of the "
                     "driver.",
            .arguments = {kLocation},
            .examples = {"kxctl offload show 03:00.4", "kxctl --sim offload show 03:00.4 --json"},
            .run = offload::show,
        },
        {
            .noun = "offload",
            .verb = "set",
            .help = "Change offload and driver settings of a card",
            .about = "Applies the settings, and shows the old value of each setting and the new "
                     "value as read back. A setting that fails does not stop the others; each "
                     "failure has its own line. Settings of the offload engine are saved in "
                     "/etc/sysctl.conf.",
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
            .about = "One line for each parameter. The driver must be loaded; a parameter whose "
                     "file is missing has the value 0. The library does not read markers_enabled "
                     "of iw_zfab4.",
            .arguments = {kModule},
            .examples = {"kxctl iwarp show iw_zfab4", "kxctl --sim iwarp show iw_zfab3 --json"},
            .run = iwarp::show,
        },
        {
            .noun = "iwarp",
            .verb = "set",
            .help = "Change parameters of an RDMA driver",
            .about = "Writes the parameters, and shows the old value of each and the new value "
                     "as read back; each value that the driver did not accept has its own line. "
                     "Parameters are not saved.",
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
            .help = "Show the installed driver modules",
            .about =
                "One line for each kernel module that belongs to the adapters and has a "
                "module file: whether it is loaded (\"?\" when that is unknown), its "
                "version and its description. Files may be compressed (.ko.xz, .ko.zst, .ko.gz); "
                "the note says what agents that have only the library do not see. Needs no "
                "adapter and no loaded driver.",
            .arguments = {},
            .examples = {"kxctl module list", "kxctl --sim=lab module list"},
            .run = module::list,
        },
    };
}

}  // namespace kx::ctl
