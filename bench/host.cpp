// Runs a command on a machine of a chosen size. The machine has its own network and file tree: the
// interfaces are real (veth pairs, for which the real kernel answers); the adapters' functions,
// modules and control files are plain files.
//
//     kx-bench-host --interfaces 1000 --devices 64 --ports 4 -- COMMAND...
//
// The real machine does not change: everything disappears when the command ends.
#include <getopt.h>
#include <kxlinhw/settings.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <kxsim/host.hpp>
#include <map>
#include <string>
#include <system_error>

#include "interfaces.hpp"
#include "scenario.hpp"
#include "settings/iwarp_table.hpp"

namespace {

namespace fs = std::filesystem;

struct Size {
    unsigned interfaces = 10;
    unsigned devices = 64;   // PCI functions, the two adapters among them
    unsigned ports = 4;      // interfaces that belong to the first adapter
    unsigned queues = 1;     // of each port; the kernel keeps counters for each
    unsigned modules = 0;    // foreign module files, in 300 directories
    bool installed = false;  // the maker's thirteen modules have files
};

constexpr char kStage[] = "/mnt";  // where the tree is built; the command does not use it
constexpr unsigned kModuleDirectories = 300;

constexpr const char* kOwnModules[] = {
    "zfab3",        "zfab4",      "zfab3m",     "toecore",  "q3_tom",   "q4_tom", "bonding",
    "kxiscsi_base", "kxiscsi_q4", "kxiscsi_q3", "iw_zfab3", "iw_zfab4", "kxstor",
};

void must(int result, const std::string& what) {
    if (result != 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

std::string location(unsigned bus, unsigned device, unsigned function) {
    char text[32];
    std::snprintf(text, sizeof text, "%02x:%02x.%x", bus, device, function);
    return text;
}

void add_devices(kxsim::Host& host, unsigned count) {
    host.adapter({.chip = "Q5", .location = bench::kCard});
    host.adapter({.chip = "Q5", .location = bench::kOtherCard});
    for (unsigned i = 2; i < count; ++i) {
        const unsigned bus = 0x10 + i / 32;
        host.pci_device(
            {.location = location(bus, i % 32, 0), .vendor_id = 0x8086, .device_id = 0x1533});
    }
}

void add_offload(kxsim::Host& host, unsigned ports) {
    kxsim::ToeDevice device{.index = 0, .interfaces = {}};
    for (unsigned i = 0; i < ports; ++i) {
        device.interfaces.push_back("eth" + std::to_string(i));
    }
    host.toe_device(device);
}

// The directory list begins with the newest entries, so a walk reaches the maker's modules last.
void add_modules(kxsim::Host& host, const Size& size) {
    std::map<std::string, std::string> iwarp;
    for (const auto& row : kx::settings::kIwarpParameters) {
        iwarp[row.name] = "1";
    }
    for (const std::string name : kOwnModules) {
        kxsim::Module module{.name = name, .version = "3.19.0.1", .description = "Kestrix " + name};
        module.where = size.installed ? "kernel/drivers/net/kestrix/" + name : "";
        module.loaded = name == "zfab4" || name == "toecore" || name == "iw_zfab4";
        if (name == "zfab4") {
            module.parameters = {{"tx_coal", "2"}};
        } else if (name == "iw_zfab4") {
            module.parameters = iwarp;
        }
        host.module(module);
    }
    for (unsigned i = 0; i < size.modules; ++i) {
        const unsigned directory = i % kModuleDirectories;
        host.module(
            {.name = "other_" + std::to_string(i),
             .version = "1.0",
             .where = "kernel/drivers/class" + std::to_string(directory / 20) + "/maker" +
                      std::to_string(directory)});
    }
}

void mount_over(const std::string& from, const std::string& to) {
    must(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr), "mount " + to);
}

// The directory with its content; what the command writes to it is stored elsewhere.
void make_private(const std::string& directory) {
    const std::string stage = kStage + std::string("/over") + directory;
    fs::create_directories(stage + "/upper");
    fs::create_directories(stage + "/work");
    const std::string options =
        "lowerdir=" + directory + ",upperdir=" + stage + "/upper,workdir=" + stage + "/work";
    must(
        mount("overlay", directory.c_str(), "overlay", 0, options.c_str()), "overlay " + directory);
}

// No files can be created in the kernel's /proc. Another directory holds them, with links to all
// other files of the kernel.
void replace_proc(const std::string& tree) {
    const std::string kernel = std::string(kStage) + "/proc";
    fs::create_directories(kernel);
    must(mount("proc", kernel.c_str(), "proc", 0, nullptr), "mount proc");
    for (const auto& entry : fs::directory_iterator(kernel)) {
        const fs::path name = entry.path().filename();
        const fs::path link = fs::path(tree) / "proc" / name;
        if (!fs::exists(fs::symlink_status(link))) {
            fs::create_symlink(entry.path(), link);
        }
    }
    mount_over(tree + "/proc", "/proc");
}

void enter_own_machine() {
    must(unshare(CLONE_NEWNS | CLONE_NEWNET), "unshare");
    must(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    must(mount("tmpfs", kStage, "tmpfs", 0, "size=1g"), "mount a file system in memory");
    must(mount("sysfs", "/sys", "sysfs", 0, nullptr), "mount sysfs");
}

void build(const Size& size) {
    enter_own_machine();
    kxsim::Host host(fs::path(kStage) / "host");
    add_devices(host, size.devices);
    add_offload(host, size.ports);
    add_modules(host, size);
    const std::string tree = host.root() + "/tree";
    make_private("/etc");
    fs::create_directories("/etc/kestrix-plexo");
    std::ofstream(KX_PORT_PARAMETER_FILE);  // as after the installation of an agent
    make_private("/usr/lib");
    fs::create_directories("/usr/lib/modules");
    if (fs::exists(tree + "/lib/modules")) {
        mount_over(tree + "/lib/modules", "/usr/lib/modules");
    }
    mount_over(tree + "/sys/bus/pci/devices", "/sys/bus/pci/devices");
    mount_over(tree + "/sys/module", "/sys/module");
    replace_proc(tree);
    bench::make_interfaces(size.interfaces, size.ports, size.queues);
    setenv(bench::kPortsVariable, std::to_string(size.ports).c_str(), 1);
}

Size read_options(int count, char** arguments) {
    constexpr option kOptions[] = {
        {"interfaces", required_argument, nullptr, 'i'},
        {"devices", required_argument, nullptr, 'd'},
        {"ports", required_argument, nullptr, 'p'},
        {"queues", required_argument, nullptr, 'q'},
        {"modules", required_argument, nullptr, 'm'},
        {"installed", no_argument, nullptr, 'I'},
        {nullptr, 0, nullptr, 0},
    };
    Size size;
    int letter = 0;
    while ((letter = getopt_long(count, arguments, "+", kOptions, nullptr)) != -1) {
        const auto number = [] { return static_cast<unsigned>(std::strtoul(optarg, nullptr, 10)); };
        switch (letter) {
            case 'i':
                size.interfaces = number();
                break;
            case 'd':
                size.devices = number();
                break;
            case 'p':
                size.ports = number();
                break;
            case 'q':
                size.queues = number();
                break;
            case 'm':
                size.modules = number();
                break;
            case 'I':
                size.installed = true;
                break;
            default:
                std::exit(2);
        }
    }
    return size;
}

}  // namespace

int main(int count, char** arguments) try {
    const Size size = read_options(count, arguments);
    if (optind == count) {
        std::fprintf(stderr, "kx-bench-host: no command\n");
        return 2;
    }
    build(size);
    execvp(arguments[optind], arguments + optind);
    std::perror(arguments[optind]);
    return 127;
} catch (const std::exception& error) {
    std::fprintf(stderr, "kx-bench-host: %s\n", error.what());
    return 1;
}
