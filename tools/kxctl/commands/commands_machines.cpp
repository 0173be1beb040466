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
    };
}

}  // namespace kx::ctl
