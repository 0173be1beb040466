// Virtual machines: their definitions in the node of the host's hypervisor, and the running
// machines.
#include <kxsim/machine.hpp>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "host/host_state.hpp"
#include "host/interface_text.hpp"
#include "host/machine_text.hpp"
#include "host/pci_function.hpp"
#include "state/hypervisor.hpp"

namespace kxsim {
namespace {

struct RunState {
    std::string_view name;
    int number;  // libvirt's
};

constexpr RunState kRunStates[] = {{"running", 1}, {"paused", 3}, {"shut off", 5}};
constexpr int kShutOffState = 5;

int number_of_state(const std::string& name) {
    for (const RunState& state : kRunStates) {
        if (state.name == name) {
            return state.number;
        }
    }
    throw std::invalid_argument(
        "state is \"" + name + "\", expected \"running\", \"paused\" or \"shut off\"");
}

void check_name(const std::string& name) {
    const bool odd = std::any_of(
        name.begin(), name.end(), [](unsigned char c) { return c == '/' || std::iscntrl(c) != 0; });
    if (name.empty() || odd) {
        throw std::invalid_argument(
            "name is \"" + name + "\", expected a text without \"/\" and control characters");
    }
}

// The same for the same name, so that a scenario's machines are the same in every run.
std::string made_up_uuid(const std::string& name) {
    std::uint64_t halves[2] = {0xCBF29CE484222325, 0x9E3779B97F4A7C15};
    for (std::uint64_t& half : halves) {
        for (const char c : name) {
            half = (half ^ static_cast<unsigned char>(c)) * 0x100000001B3;
        }
        half = (half ^ half >> 32) * 0xD6E8FEB86659FD93;  // short names differ in every byte
        half = (half ^ half >> 32) * 0xD6E8FEB86659FD93;
        half ^= half >> 32;
    }
    char text[40];
    std::snprintf(
        text, sizeof text, "%08x-%04x-4%03x-8%03x-%012llx", static_cast<unsigned>(halves[0] >> 32),
        static_cast<unsigned>(halves[0] >> 16 & 0xFFFF), static_cast<unsigned>(halves[0] & 0xFFF),
        static_cast<unsigned>(halves[1] >> 48 & 0xFFF),
        static_cast<unsigned long long>(halves[1] & 0xFFFFFFFFFFFF));
    return text;
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string interface_element(
    const std::string& machine, std::size_t number, const std::string& bridge) {
    return "    <interface type='bridge'>\n      <mac address='" +
           made_up_mac(machine + "/" + std::to_string(number)) + "'/>\n      <source bridge='" +
           bridge + "'/>\n      <model type='virtio'/>\n    </interface>\n";
}

// As libvirt writes it.
std::string source_address(const Location& at) {
    char text[96];
    std::snprintf(
        text, sizeof text, "<address domain='0x%04x' bus='0x%02x' slot='0x%02x' function='0x%x'/>",
        at.domain, at.bus, at.device, at.function);
    return text;
}

std::string hostdev_element(const Location& at) {
    return "    <hostdev mode='subsystem' type='pci' managed='yes'>\n      <source>\n        " +
           source_address(at) + "\n      </source>\n    </hostdev>\n";
}

std::string devices_of(const VirtualMachine& machine) {
    std::string devices;
    for (std::size_t k = 0; k < machine.bridges.size(); ++k) {
        devices += interface_element(machine.name, k, machine.bridges[k]);
    }
    for (const std::string& vf : machine.vfs) {
        devices += hostdev_element(Location::parse(vf));
    }
    return devices;
}

// in_node: in the form of the node, otherwise in the form of a running machine.
std::string description_of(const VirtualMachine& machine, bool in_node) {
    return std::string("<domain type='test'") + (in_node ? state::kTestNamespace : "") +
           ">\n  <name>" + escaped(machine.name) + "</name>\n  <uuid>" + machine.uuid +
           "</uuid>\n  <memory unit='MiB'>2048</memory>\n  <vcpu>2</vcpu>\n"
           "  <os>\n    <type>hvm</type>\n  </os>\n  <devices>\n" +
           devices_of(machine) + "  </devices>\n" + (in_node ? state::kShutOff : "") +
           "</domain>\n";
}

std::string live_file(std::string_view uuid) {
    return std::string(state::kMachineDirectory) + "/" + std::string(uuid) + ".xml";
}

std::vector<std::string> lines_of(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

void check_devices(const Tree& tree, const VirtualMachine& machine, bool runs) {
    for (const std::string& bridge : machine.bridges) {
        check_interface_name(bridge);
        if (!tree.exists("/sys/class/net/" + bridge)) {
            throw std::invalid_argument("the host has no interface \"" + bridge + "\"");
        }
    }
    for (const std::string& vf : machine.vfs) {
        const Location at = Location::parse(vf);
        if (!tree.exists(at.directory())) {
            throw std::invalid_argument("the host has no PCI function at " + at.full());
        }
        for (const std::string& active : lines_of(runs ? tree.read(state::kActiveFile) : "")) {
            const std::string live = tree.read(live_file(active.substr(active.rfind(' ') + 1)));
            if (live.find(source_address(at)) != live.npos) {
                throw std::invalid_argument("another machine holds the PCI function " + at.full());
            }
        }
    }
}

}  // namespace

void check_uuid(const std::string& text) {
    constexpr std::string_view kPattern = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    bool good = text.size() == kPattern.size();
    for (std::size_t k = 0; good && k < text.size(); ++k) {
        const auto c = static_cast<unsigned char>(text[k]);
        good = kPattern[k] == '-' ? c == '-' : std::isxdigit(c) != 0 && std::isupper(c) == 0;
    }
    if (!good) {
        throw std::invalid_argument(
            "uuid is \"" + text + "\", expected 8-4-4-4-12 lower-case hexadecimal digits");
    }
}

void Host::machine(const VirtualMachine& machine) {
    Tree& tree = state_->tree;
    check_name(machine.name);
    VirtualMachine complete = machine;
    if (complete.uuid.empty()) {
        complete.uuid = made_up_uuid(machine.name);
    }
    check_uuid(complete.uuid);
    const int number = number_of_state(machine.state);
    const bool runs = number != kShutOffState;
    check_devices(tree, complete, runs);
    std::string node = tree.read(state::kNodeFile);
    if (node.find("<name>" + escaped(machine.name) + "</name>") != node.npos ||
        node.find("<uuid>" + complete.uuid + "</uuid>") != node.npos) {
        throw std::invalid_argument("name or UUID of machine " + machine.name + " is taken");
    }
    node.insert(node.rfind(state::kNodeEnd), description_of(complete, true));
    tree.write(state::kNodeFile, node, 0644);
    if (runs) {
        const int id = ++state_->session->last_machine_id;
        tree.write(live_file(complete.uuid), description_of(complete, false), 0644);
        tree.append(
            state::kActiveFile,
            std::to_string(id) + " " + std::to_string(number) + " " + complete.uuid + "\n");
    }
    ++state_->session->machine_changes;
}

void furnish_hypervisor(Tree& tree) {
    tree.write(state::kNodeFile, std::string(state::kNodeStart) + state::kNodeEnd, 0644);
    tree.write(state::kActiveFile, "", 0644);
}

}  // namespace kxsim
