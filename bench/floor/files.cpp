#include "floor/files.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <pci/pci.h>
}

#include "scenario.hpp"

namespace bench::floor {

std::size_t read_text(const char* path, char* text, std::size_t size) {
    text[0] = '\0';
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return 0;
    }
    const ssize_t got = read(file, text, size - 1);
    close(file);
    const std::size_t length = got < 0 ? 0 : static_cast<std::size_t>(got);
    text[length] = '\0';
    return length;
}

// The library reads the list to its end, so it needs one more read to find the end.
std::span<const char> loaded_modules() {
    static char text[1 << 16];
    struct stat status;
    stat("/proc/net/zfab3", &status);
    const int file = open("/proc/modules", O_RDONLY | O_CLOEXEC);
    std::size_t length = 0;
    ssize_t got = 0;
    while ((got = read(file, text + length, sizeof text - length)) > 0) {
        length += static_cast<std::size_t>(got);
    }
    close(file);
    return {text, length};
}

bool is_loaded(std::span<const char> list, const char* module) {
    const std::size_t length = std::strlen(module);
    for (std::size_t at = 0; at + length <= list.size();) {
        if (std::memcmp(list.data() + at, module, length) == 0) {
            return true;
        }
        const void* const end = std::memchr(list.data() + at, '\n', list.size() - at);
        if (end == nullptr) {
            break;
        }
        at = static_cast<std::size_t>(static_cast<const char*>(end) - list.data()) + 1;
    }
    return false;
}

// The bus is read through libpci, by contract, and only the necessary fields are requested.
std::span<const Function> find_adapters(int fields) {
    static Function found[20];
    std::size_t count = 0;
    pci_access* const access = pci_alloc();
    pci_init(access);
    pci_scan_bus(access);
    for (pci_dev* device = access->devices; device != nullptr; device = device->next) {
        pci_fill_info(device, PCI_FILL_IDENT);
        if (device->vendor_id != KXLINHW_PCI_VENDOR_ID || count == std::size(found)) {
            continue;
        }
        if (fields != 0) {
            pci_fill_info(device, fields);
        }
        Function& function = found[count++];
        std::snprintf(
            function.location, sizeof function.location, "%02x:%02x.%x", device->bus, device->dev,
            device->func);
        function.vendor = device->vendor_id;
        function.device = device->device_id;
        function.device_class = device->device_class;
        function.irq = static_cast<unsigned>(device->irq);
    }
    pci_cleanup(access);
    return {found, count};
}

bool request(int socket, const char* interface_name, void* command) {
    ifreq wanted{};
    std::memcpy(wanted.ifr_name, interface_name, strnlen(interface_name, IFNAMSIZ - 1));
    wanted.ifr_data = static_cast<char*>(command);
    return ioctl(socket, SIOCETHTOOL, &wanted) == 0;
}

std::span<const Port> find_ports(int socket, char (&firmware)[ETHTOOL_FWVERS_LEN]) {
    static Port found[256];
    std::size_t count = 0;
    DIR* const directory = opendir("/sys/class/net");
    while (const dirent* entry = readdir(directory)) {
        ethtool_drvinfo info{};
        info.cmd = ETHTOOL_GDRVINFO;
        if (entry->d_name[0] == '.' || !request(socket, entry->d_name, &info) ||
            std::strncmp(info.bus_info, "0000:", 5) != 0 ||
            std::strcmp(info.bus_info + 5, kCard) != 0) {
            continue;
        }
        Port& port = found[count++];
        std::memcpy(port.name, entry->d_name, std::strlen(entry->d_name) + 1);
        port.number = static_cast<unsigned>(std::strtoul(entry->d_name + 3, nullptr, 10));
        std::memcpy(firmware, info.fw_version, sizeof firmware);
    }
    closedir(directory);
    std::sort(
        found, found + count, [](const Port& a, const Port& b) { return a.number < b.number; });
    return {found, count};
}

}  // namespace bench::floor
