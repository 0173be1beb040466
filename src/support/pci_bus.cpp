#include "support/pci_bus.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>

extern "C" {
#include <pci/pci.h>
}

namespace kx {
namespace {

// libpci's error callback must not return, so it jumps back to the call that entered libpci. Only C
// frames of libpci are in between, and the functions that enter libpci have no objects that need
// destruction.
std::jmp_buf* entered_at = nullptr;

__attribute__((noreturn)) void leave_libpci(char*, ...) {
    if (entered_at == nullptr) {
        std::abort();  // when an agent calls libpci itself, an error ends the process, as libpci
                       // does by default
    }
    std::longjmp(*entered_at, 1);
}

void drop_message(char*, ...) {}

constexpr uint32_t kConfigSpaceSize = 4096;
constexpr uint32_t kAbsent = 0xFFFFFFFF;

template <class Call>
bool inside_libpci(Call call) {
    std::jmp_buf here;
    if (setjmp(here) != 0) {
        entered_at = nullptr;
        return false;
    }
    entered_at = &here;
    call();
    entered_at = nullptr;
    return true;
}

// As inside_libpci, for calls that may open files: the configuration space of a card must not
// become a standard stream.
template <class Call>
bool inside_libpci_opening(Call call) {
    const StandardStreamGuard streams;
    return streams && inside_libpci(call);
}

// The configuration space that libpci keeps open from call to call.
struct OpenConfigSpace {
    const pci_dev* device = nullptr;
    int descriptor = -1;
    int writable = 0;
    friend bool operator==(const OpenConfigSpace&, const OpenConfigSpace&) = default;
};

OpenConfigSpace closed_on_exec;  // the last descriptor that was set to close on exec

void close_on_exec(const pci_access* access) {
    if (access == nullptr) {
        return;
    }
    const OpenConfigSpace kept{access->cached_dev, access->fd, access->fd_rw};
    if (kept.descriptor >= kStandardStreams && kept != closed_on_exec) {
        fcntl(kept.descriptor, F_SETFD, FD_CLOEXEC);
        closed_on_exec = kept;
    }
}

// libpci uses signed offsets and does not check for negative ones.
bool in_config_space(uint32_t offset) { return offset < kConfigSpaceSize; }

// An incomplete scan is not reliable, so its devices are dropped.
void drop_devices(pci_access* access) {
    while (access->devices != nullptr) {
        pci_dev* const device = access->devices;
        access->devices = device->next;
        pci_free_dev(device);
    }
}

}  // namespace

pci_access* open_pci_bus() {
    pci_access* const access = pci_alloc();
    if (access == nullptr) {
        return nullptr;
    }
    access->error = leave_libpci;
    access->warning = drop_message;
    access->debug = drop_message;
    closed_on_exec = {};
    const bool scanned = inside_libpci_opening([access] {
        pci_init(access);
        pci_scan_bus(access);
    });
    if (!scanned) {
        drop_devices(access);
    }
    return access;
}

void free_pci_bus(pci_access* access) {
    if (access != nullptr) {
        inside_libpci([access] { pci_cleanup(access); });
    }
}

pci_dev* PciBus::first() const { return access_ == nullptr ? nullptr : access_->devices; }

// With only a vendor id the device would be taken for another one: an adapter without a device id
// would be a Q3.
void fill_pci_device(pci_dev* device, int fields) {
    const bool filled = inside_libpci_opening([device, fields] { pci_fill_info(device, fields); });
    if (!filled && (fields & PCI_FILL_IDENT) != 0) {
        device->vendor_id = 0;
        device->device_id = 0;
    }
}

uint32_t read_pci_config(pci_dev* device, uint32_t offset) {
    volatile uint32_t dword = kAbsent;  // survives libpci's way out
    if (in_config_space(offset)) {
        inside_libpci_opening(
            [device, offset, &dword] { dword = pci_read_long(device, static_cast<int>(offset)); });
        close_on_exec(device->access);
    }
    return dword;
}

bool write_pci_config(pci_dev* device, uint32_t offset, uint32_t value) {
    volatile bool written = false;  // survives libpci's way out
    if (in_config_space(offset)) {
        inside_libpci_opening([device, offset, value, &written] {
            written = pci_write_long(device, static_cast<int>(offset), value) != 0;
        });
        close_on_exec(device->access);
    }
    return written;
}

std::string pci_bus_location(const pci_dev& device) {
    char text[16];
    std::snprintf(text, sizeof text, "%02x:%02x.%x", device.bus, device.dev, device.func);
    return text;
}

}  // namespace kx
