// The host: its directory, its files, its modules and its adapters.
#include <kxsim/host.hpp>

#include <kxlinhw/export.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "host/defaults.hpp"
#include "host/host_state.hpp"
#include "host/machine_text.hpp"
#include "host/module_file.hpp"
#include "host/pci_function.hpp"
#include "host/quiet.hpp"

namespace kxsim {
namespace {

namespace fs = std::filesystem;

std::string module_tree() {
    utsname kernel{};
    ::uname(&kernel);
    return std::string("/lib/modules/") + kernel.release;
}

constexpr int kModuleSize = 163840;  // the address in memory, which nobody reads

// Without its indexes, tools complain that they cannot look up modules. Magic number, version, no
// root.
std::string empty_module_index() { return {"\xb0\x07\xf4\x57\0\x02\0\x01\0\0\0\0", 12}; }

void furnish(Tree& tree) {
    if (tree.exists("/proc/modules")) {
        return;
    }
    tree.write("/proc/modules", "", 0444);
    tree.write("/usr/share/misc/pci.ids", pci_names(), 0644);
    tree.write("/dev/mem", "", 0640);
    tree.make_directory("/sys/bus/pci/devices");
    tree.make_directory("/sys/bus/pci/drivers");
    tree.make_directory("/sys/class/net");
    tree.make_directory("/sys/module");
    tree.make_directory("/etc");
    tree.make_directory("/var/lib");
    furnish_hypervisor(tree);
    for (const char* index : {"dep", "alias", "symbols", "builtin", "builtin.alias"}) {
        tree.write(module_tree() + "/modules." + index + ".bin", empty_module_index(), 0644);
    }
}

// A loaded module as the kernel shows it: its line in the list and its directory.
void show_module(Tree& tree, const Module& module) {
    const std::string directory = "/sys/module/" + module.name;
    std::istringstream users(module.used_by == "-" ? "" : module.used_by);
    int count = 0;
    const std::string holders = directory + "/holders/";
    tree.make_directory(holders);
    for (std::string user; std::getline(users, user, ',');) {
        tree.make_link(holders + user, "../../" + user);
        ++count;
    }
    tree.write(directory + "/refcnt", std::to_string(count) + "\n", 0444);
    tree.write(directory + "/coresize", std::to_string(kModuleSize) + "\n", 0444);
    tree.write(directory + "/initstate", "live\n", 0444);
    if (!module.version.empty()) {
        tree.write(directory + "/version", module.version + "\n", 0444);
    }
    tree.append(
        "/proc/modules", module.name + " " + std::to_string(kModuleSize) + " " +
                             std::to_string(count) + " " + module.used_by +
                             " Live 0x0000000000000000 (O)\n");
}

}  // namespace

fs::path session_directory(const fs::path& wanted) {
    const Quiet quiet;
    fs::create_directories(wanted / (state::kTreeDirectory + 1));
    fs::create_directories((wanted.string() + state::kSessionFile)
                               .substr(0, (wanted.string() + state::kSessionFile).rfind('/')));
    return fs::canonical(wanted);
}

void copy_field(char* field, std::size_t size, std::string_view text, const char* what) {
    if (text.size() >= size) {
        throw std::invalid_argument(
            std::string(what) + " \"" + std::string(text) + "\" is longer than " +
            std::to_string(size - 1) + " characters");
    }
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), text.size());
}

Host::Host() : state_(std::make_unique<State>(make_scratch())) { furnish(state_->tree); }

Host::Host(const fs::path& directory) : state_(std::make_unique<State>(directory)) {
    furnish(state_->tree);
}

Host::~Host() {
    const Quiet quiet;
    state_.reset();
}

const std::string& Host::root() const { return state_->root; }

void Host::file(std::string_view path, std::string_view content, mode_t mode) {
    state_->tree.write(path, content, mode);
}

void Host::append(std::string_view path, std::string_view content) {
    state_->tree.append(path, content);
}

void Host::directory(std::string_view path) { state_->tree.make_directory(path); }

void Host::link(std::string_view path, std::string_view target) {
    state_->tree.make_link(path, target);
}

void Host::remove(std::string_view path) { state_->tree.remove(path); }

bool Host::exists(std::string_view path) const { return state_->tree.exists(path); }

std::string Host::read(std::string_view path) const { return state_->tree.read(path); }

mode_t Host::mode(std::string_view path) const { return state_->tree.mode(path); }

void Host::order(std::string_view directory, const std::vector<std::string>& names) {
    state_->tree.order(directory, names);
}

void Host::hide_entry_types(bool hide) { state_->session->hide_entry_types = hide ? 1 : 0; }

std::uint64_t Host::slept_microseconds() const { return state_->session->slept_microseconds; }

void Host::module(const Module& module) {
    Tree& tree = state_->tree;
    if (module.name.empty()) {
        throw std::invalid_argument("a module needs a name");
    }
    if (!module.where.empty()) {
        const std::string file = module.file.empty() ? module.name + ".ko" : module.file;
        const std::string object = module_object(module);
        tree.write(
            module_tree() + "/" + module.where + "/" + file,
            file.ends_with(".gz") ? gzip(object) : object, 0644);
    }
    if (module.loaded) {
        show_module(tree, module);
    }
    for (const auto& [name, value] : module.parameters) {
        tree.write("/sys/module/" + module.name + "/parameters/" + name, value + "\n", 0644);
    }
}

void Host::toe_device(const ToeDevice& device) {
    const std::string name = "toe" + std::to_string(device.index);
    std::string interfaces;
    for (const std::string& interface : device.interfaces) {
        interfaces += " " + interface;
    }
    Tree& tree = state_->tree;
    const auto list = [&](const char* path) {
        if (!tree.exists(path)) {
            tree.write(path, "Device           Interfaces\n", 0444);
        }
        tree.append(
            path, name + std::string(16 - std::min<std::size_t>(name.size(), 16), ' ') +
                      interfaces + "\n");
    };
    list("/proc/net/offload/devices");
    if (device.of_zfab3) {
        list("/proc/net/zfab3/devices");
    }
    if (device.control_files) {
        std::map<std::string, std::string> parameters = device.parameters;
        parameters.insert(offload_defaults().begin(), offload_defaults().end());
        const std::string directory = "/proc/sys/toe/" + name + "_tom/";
        for (const auto& [parameter, value] : parameters) {
            tree.write(directory + parameter, value + "\n", 0644);
        }
    }
}

}  // namespace kxsim
