// The commands about virtual machines, their virtual functions and their interfaces.
#include "commands/commands.hpp"
#include "commands/nouns.hpp"

namespace kx::ctl {
namespace {

const Argument kMachine{
    .name = "VM",
    .help = "Name, UUID or id of the virtual machine, as \"vm list\" shows them",
};
const Argument kFunction{.name = "VF", .help = "PCI location of the function, such as 04:01.2"};

}  // namespace

std::vector<Command> machine_commands() {
    return {
        {
            .noun = "vm",
            .verb = "list",
            .help = "Show the virtual machines of this host",
            .about =
                "One line for each machine: libvirt's id (of active machines), name, run state "
                "(\"?\" when virsh does not report it) and UUID. Active machines come first.",
            .arguments = {},
            .examples = {"kxctl vm list", "kxctl --sim vm list --json"},
            .run = vm::list,
        },
        {
            .noun = "vm",
            .verb = "start",
            .help = "Start a virtual machine, or resume a paused one",
            .about = "Shows the machine afterwards.",
            .arguments = {kMachine},
            .examples = {"kxctl vm start web2", "kxctl --sim vm start web2 --json"},
            .run = vm::start,
        },
        {
            .noun = "vm",
            .verb = "suspend",
            .help = "Pause a running virtual machine",
            .about = "Shows the machine afterwards.",
            .arguments = {kMachine},
            .examples = {"kxctl vm suspend web1", "kxctl --sim vm suspend 1"},
            .run = vm::suspend,
        },
        {
            .noun = "vm",
            .verb = "resume",
            .help = "Resume a paused virtual machine",
            .about = "Shows the machine afterwards.",
            .arguments = {kMachine},
            .examples = {"kxctl vm resume batch1", "kxctl --sim vm resume batch1 --json"},
            .run = vm::resume,
        },
        {
            .noun = "vm",
            .verb = "reboot",
            .help = "Ask a virtual machine's guest to reboot",
            .about = "Shows the machine after its guest was asked.",
            .arguments = {kMachine},
            .examples = {"kxctl vm reboot web1", "kxctl --sim vm reboot web1"},
            .run = vm::reboot,
        },
        {
            .noun = "vm",
            .verb = "shutdown",
            .help = "Ask a virtual machine's guest to shut down",
            .about = "Shows the machine after its guest was asked; the guest may need some time.",
            .arguments = {kMachine},
            .examples = {"kxctl vm shutdown web1", "kxctl --sim vm shutdown web1 --json"},
            .run = vm::shutdown,
        },
        {
            .noun = "vf",
            .verb = "list",
            .help = "Show the virtual functions of this host or of a virtual machine",
            .about = "One line for each PCI function, of this host or of the named machine. The "
                     "library reads the numbers of lspci as decimal numbers: functions of the "
                     "host are shown with a wrong location when it contains a hexadecimal "
                     "letter, and functions of a machine are also found on buses whose decimal "
                     "reading is the same.",
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
            .help = "Attach a virtual function to a running virtual machine",
            .about = "The machine has it immediately and after every start. Shows the functions "
                     "of the machine afterwards.",
            .arguments = {kMachine, kFunction},
            .examples =
                {"kxctl vf attach web1 04:01.4", "kxctl --sim vf attach web1 0000:04:01.4 --json"},
            .run = vf::attach,
        },
        {
            .noun = "vf",
            .verb = "detach",
            .help = "Remove a virtual function from a virtual machine's definition",
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
            .about = "One line for each interface: its name on the host, its type, its bridge, "
                     "the model that the guest sees and the MAC address.",
            .arguments = {kMachine},
            .examples = {"kxctl bridge list web1", "kxctl --sim bridge list web1 --json"},
            .run = bridge::list,
        },
        {
            .noun = "bridge",
            .verb = "attach",
            .help = "Attach an interface on a bridge to a running virtual machine",
            .about = "The machine has it until it stops. Shows the interfaces of the machine "
                     "afterwards.",
            .arguments = {kMachine, {.name = "BRIDGE", .help = "Bridge of this host"}},
            .examples = {"kxctl bridge attach web1 br0", "kxctl --sim bridge attach web1 br0"},
            .run = bridge::attach,
        },
        {
            .noun = "bridge",
            .verb = "detach",
            .help = "Remove an interface from a virtual machine's definition",
            .about = "The machine must run, and keeps the interface until its next start. Its "
                     "current devices become its definition, without that interface.",
            .arguments =
                {kMachine,
                 {.name = "TARGET",
                  .help = "Name of the interface on the host, as \"bridge list\" shows it"}},
            .examples =
                {"kxctl bridge detach web1 testnet0", "kxctl --sim bridge detach web1 testnet0"},
            .run = bridge::detach,
        },
    };
}

}  // namespace kx::ctl
