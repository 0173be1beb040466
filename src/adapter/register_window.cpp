// The register window: one page of an adapter's first memory BAR, mapped through /dev/mem. Only one
// adapter's window is open at a time.
#include "adapter/register_window.hpp"
#include "adapter/paths.hpp"

#include <fcntl.h>
#include <kxlinhw/adapter.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

extern "C" {
#include <pci/pci.h>
}

#include "adapter/bus_table.hpp"
#include "adapter/flash_layout.hpp"
#include "support/standard_streams.hpp"

namespace kx::adapter {
namespace {

// The page that contains the flash controller's operation register; it determines the address of
// the window. All arithmetic uses 32 bits, like the hardware.
struct Placement {
    uint32_t register_offset;
    uint32_t page_size;
};

constexpr Placement kQ3Placement{kQ3Registers.operation, 0x1000};
constexpr Placement kQ4Placement{kQ4Registers.operation, 0x20000};
constexpr uint32_t kTopPage = 0xFFFFF000;

constexpr uint32_t round_down(uint32_t value, uint32_t page_size) {
    return value & ~(page_size - 1);
}

// The descriptor that the library closed last. memfd keeps its number, but the number may belong to
// the agent by then.
int closed_descriptor = -1;

void close_memory() {
    if (memfd > 0 && memfd != closed_descriptor) {
        close(memfd);
        closed_descriptor = memfd;
    }
}

// The window that the library has opened. Hosts may set mmapd_addr to their own memory, whose
// bounds only they know: mmapd_len may still be the length of an earlier window.
struct OpenWindow {
    uint64_t start = 0;
    uint32_t length = 0;
};

OpenWindow open_window;

// Physical memory is never a standard stream, not even between two calls.
int open_memory() {
    const StandardStreamGuard streams;
    return streams ? open(kMemory, O_RDWR | O_CLOEXEC) : -1;
}

int32_t map_window(uint8_t adapter, uint32_t start, uint32_t length) {
    memfd = open_memory();
    closed_descriptor = -1;
    if (memfd < 0) {
        std::fputs("open /dev/mem failed!", stderr);
        return KX_ADAPTER_INVALID;
    }
    void* const window =
        mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, memfd, off_t{start});
    if (window == MAP_FAILED) {
        std::fprintf(stderr, "mmap() failed: %s\n", std::strerror(errno));
        close_memory();
        return KX_ADAPTER_INVALID;
    }
    mmapd_addr = reinterpret_cast<uint64_t>(window);
    mmapd_adapter = adapter;
    mmapd_len = length;
    open_window = {mmapd_addr, length};
    return 0;
}

int32_t connect(uint8_t adapter, const Placement& placement) {
    const pci_dev* const device = device_at(adapter);
    if (device == nullptr) {
        return KX_ADAPTER_INVALID;
    }
    const uint32_t target = static_cast<uint32_t>(device->base_addr[0]) + placement.register_offset;
    const uint32_t start = round_down(target, placement.page_size);
    if (start == kTopPage) {
        std::fputs("Sorry, cannot map the top 4K page\n", stderr);
        return KX_ADAPTER_INVALID;
    }
    const uint32_t length =
        round_down(target - start + 1 + placement.page_size - 1, placement.page_size);
    if (start + length < start) {
        std::fputs("Aligned addr+len exceeds top of address space\n", stderr);
        return KX_ADAPTER_INVALID;
    }
    return map_window(adapter, start, length);
}

// A register may be at any address: the start of the window need not be that of the BAR.
using Register __attribute__((aligned(1), may_alias)) = volatile uint32_t;

// Is a register in the open window? The offset counts from the start of the window, which is also
// the start of an aligned BAR.
bool window_holds(uint32_t offset) {
    if (mmapd_addr != open_window.start) {
        return mmapd_addr != 0;
    }
    return uint64_t{offset} + sizeof(uint32_t) <= open_window.length;
}

}  // namespace

int32_t ensure_q3_window(uint8_t adapter) {
    if (mmapd_addr != 0 && mmapd_adapter == adapter) {
        return 0;
    }
    disconnect_from_hba(mmapd_adapter);
    return connect_to_hba(adapter);
}

void close_window() {
    mmapd_addr = 0;
    open_window = {};
    close_memory();
}

void release_window_mapping() { munmap(nullptr, mmapd_len); }

}  // namespace kx::adapter

using kx::adapter::Register;
using kx::adapter::window_holds;

extern "C" {

int32_t memfd = 0;
uint64_t mmapd_addr = 0;
uint8_t mmapd_adapter = 0;
uint32_t mmapd_len = 0;

int32_t connect_to_hba(uint8_t adapter) {
    return kx::adapter::connect(adapter, kx::adapter::kQ3Placement);
}

int32_t connect_to_hba_Q4(uint8_t adapter) {
    return kx::adapter::connect(adapter, kx::adapter::kQ4Placement);
}

void disconnect_from_hba(uint8_t adapter) {
    if (adapter == mmapd_adapter) {
        kx::adapter::release_window_mapping();
    }
    kx::adapter::close_window();
}

uint32_t readl(uint64_t address) { return *reinterpret_cast<const Register*>(address); }

void writel(uint32_t value, uint64_t address) { *reinterpret_cast<Register*>(address) = value; }

void writel_Q4(uint32_t value, uint64_t address) { *reinterpret_cast<Register*>(address) = value; }

uint32_t q4_read_reg(uint8_t adapter, uint32_t offset) {
    return adapter == mmapd_adapter && window_holds(offset) ? readl(mmapd_addr + offset) : 0;
}

void q4_write_reg(uint8_t, uint32_t offset, uint32_t value) {
    if (window_holds(offset)) {
        writel_Q4(value, mmapd_addr + offset);
    }
}

int32_t q3_read_reg(uint8_t adapter, uint32_t offset) {
    return adapter == mmapd_adapter && window_holds(offset)
               ? static_cast<int32_t>(readl(mmapd_addr + offset))
               : 0;
}

void q3_write_reg(uint8_t adapter, uint32_t offset, uint32_t value) {
    if (adapter == mmapd_adapter && window_holds(offset)) {
        writel(value, mmapd_addr + offset);
    }
}

}  // extern "C"
