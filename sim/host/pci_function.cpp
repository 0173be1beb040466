#include "host/pci_function.hpp"

#include <linux/pci_regs.h>

#include <cstdio>
#include <stdexcept>

namespace kxsim {
namespace {

constexpr char kDevices[] = "/sys/bus/pci/devices/";

// The capabilities after the header, linked in this order; the one for vital product data is the
// last.
constexpr unsigned kPowerManagement = 0x40;
constexpr unsigned kMessageInterrupts = 0x50;

template <class... Numbers>
std::string text(const char* format, Numbers... numbers) {
    char buffer[128];
    const int length = std::snprintf(buffer, sizeof buffer, format, numbers...);
    return {buffer, static_cast<std::size_t>(length)};
}

class ConfigSpace {
public:
    explicit ConfigSpace(std::size_t size) : bytes_(size, '\0') {}

    void set(unsigned offset, std::uint64_t value, unsigned width) {
        for (unsigned i = 0; i < width && offset + i < bytes_.size(); ++i) {
            bytes_[offset + i] = static_cast<char>((value >> (8 * i)) & 0xFFU);
        }
    }

    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

std::string config_space(const PciDevice& device, const Location& location) {
    ConfigSpace config(device.config_size);
    config.set(PCI_VENDOR_ID, device.vendor_id, 2);
    config.set(PCI_DEVICE_ID, device.device_id, 2);
    config.set(PCI_COMMAND, PCI_COMMAND_MEMORY | PCI_COMMAND_MASTER, 2);
    config.set(PCI_STATUS, PCI_STATUS_CAP_LIST, 2);
    config.set(PCI_CLASS_REVISION, device.pci_class << 8 | device.revision, 4);
    config.set(PCI_HEADER_TYPE, location.function == 0 ? 0 : 0x80, 1);
    if (device.bar0 != 0) {
        config.set(PCI_BASE_ADDRESS_0, device.bar0 | PCI_BASE_ADDRESS_MEM_TYPE_64, 8);
    }
    config.set(PCI_SUBSYSTEM_VENDOR_ID, device.subsystem_vendor_id, 2);
    config.set(PCI_SUBSYSTEM_ID, device.subsystem_id, 2);
    config.set(PCI_CAPABILITY_LIST, kPowerManagement, 1);
    config.set(PCI_INTERRUPT_LINE, device.irq, 1);
    config.set(PCI_INTERRUPT_PIN, 1 + location.function % 4, 1);
    config.set(kPowerManagement, PCI_CAP_ID_PM, 1);
    config.set(kPowerManagement + 1, kMessageInterrupts, 1);
    config.set(kPowerManagement + PCI_PM_PMC, 3, 2);
    config.set(kMessageInterrupts, PCI_CAP_ID_MSI, 1);
    if (device.vital_product_data) {
        config.set(kMessageInterrupts + 1, kVpdCapability, 1);
        config.set(kVpdCapability, PCI_CAP_ID_VPD, 1);
    }
    return config.bytes();
}

// First and last address and flags of each of the kernel's thirteen resources of a function.
std::string resources(const PciDevice& device) {
    constexpr int kResources = 13;
    constexpr std::uint64_t kMemory64 = 0x140204;
    std::string lines;
    for (int i = 0; i < kResources; ++i) {
        const bool window = i == 0 && device.bar0 != 0;
        lines += text(
            "0x%016llx 0x%016llx 0x%016llx\n",
            static_cast<unsigned long long>(window ? device.bar0 : 0),
            static_cast<unsigned long long>(window ? device.bar0 + device.bar0_size - 1 : 0),
            static_cast<unsigned long long>(window ? kMemory64 : 0));
    }
    return lines;
}

}  // namespace

Location Location::parse(const std::string& text) {
    Location at;
    int used = 0;
    const bool with_domain = std::sscanf(
                                 text.c_str(), "%4x:%2x:%2x.%1x%n", &at.domain, &at.bus, &at.device,
                                 &at.function, &used) == 4;
    if (!with_domain) {
        at.domain = 0;
        used = 0;
        if (std::sscanf(text.c_str(), "%2x:%2x.%1x%n", &at.bus, &at.device, &at.function, &used) !=
            3) {
            used = 0;
        }
    }
    const std::string canonical = at.full();
    if (used == 0 || at.device > 31 || at.function > 7 ||
        (text != canonical && text != canonical.substr(5))) {
        throw std::invalid_argument(
            "PCI location \"" + text + "\" is not of the form 03:00.4 or 0000:03:00.4");
    }
    return at;
}

std::string Location::full() const {
    return text("%04x:%02x:%02x.%x", domain, bus, device, function);
}

std::string Location::directory() const { return kDevices + full(); }

void write_pci_function(Tree& tree, const PciDevice& device) {
    const Location location = Location::parse(device.location);
    const std::string directory = location.directory();
    if (tree.exists(directory)) {
        throw std::invalid_argument("PCI location " + location.full() + " is taken");
    }
    const auto number = [&](const char* file, const char* format, auto value) {
        tree.write(directory + "/" + file, text(format, value), 0444);
    };
    number("vendor", "0x%04x\n", device.vendor_id);
    number("device", "0x%04x\n", device.device_id);
    number("class", "0x%06x\n", device.pci_class);
    number("revision", "0x%02x\n", device.revision);
    number("subsystem_vendor", "0x%04x\n", device.subsystem_vendor_id);
    number("subsystem_device", "0x%04x\n", device.subsystem_id);
    number("irq", "%u\n", device.irq);
    tree.write(directory + "/resource", resources(device), 0444);
    tree.write(directory + "/config", config_space(device, location), 0644);
    if (device.vital_product_data) {
        tree.write(directory + "/vpd", "", 0600);
    }
    if (!device.driver.empty()) {
        tree.make_directory("/sys/bus/pci/drivers/" + device.driver);
        tree.make_link(directory + "/driver", "../../drivers/" + device.driver);
    }
}

std::string bound_driver(const Tree& tree, const Location& at) {
    const std::string link = tree.read_link(at.directory() + "/driver");
    return link.substr(link.rfind('/') + 1);
}

}  // namespace kxsim
