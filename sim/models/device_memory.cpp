// Trigger: a mapping of /dev/mem, and the library's register accesses in it. Effect: the mapping is
// an empty page, which exists until the process ends. Accesses at its addresses reach the adapter
// whose window covers the physical address; outside all windows they read all ones. A second
// mapping of the same range returns the first one. What can be made to fail: the open and the
// mapping, by fault rules; the registers, see models/register_window.cpp.
#include "models/device_memory.hpp"

#include <sys/mman.h>

#include "models/adapters.hpp"
#include "models/register_window.hpp"
#include "process/next.hpp"

namespace kxsim::models {
namespace {

constexpr std::uint32_t kAbsent = 0xFFFFFFFF;
constexpr std::size_t kMostRanges = 256;

struct Range {
    std::uint64_t address;  // in this process
    std::uint64_t physical;
    std::size_t size;
};

constinit Range ranges[kMostRanges] = {};
constinit std::size_t range_count = 0;

const Range* range_of(std::uint64_t address) {
    for (std::size_t i = 0; i < range_count; ++i) {
        if (address >= ranges[i].address && address - ranges[i].address < ranges[i].size) {
            return &ranges[i];
        }
    }
    return nullptr;
}

void* mapped_before(std::size_t size, std::uint64_t physical) {
    for (std::size_t i = 0; i < range_count; ++i) {
        if (ranges[i].physical == physical && ranges[i].size == size) {
            return reinterpret_cast<void*>(ranges[i].address);
        }
    }
    return nullptr;
}

}  // namespace

bool is_device_memory(std::string_view path) { return path == "/dev/mem"; }

void* map_device_memory(std::size_t size, int protection, off_t offset) {
    const auto physical = static_cast<std::uint64_t>(offset);
    if (void* const before = mapped_before(size, physical); before != nullptr) {
        return before;
    }
    if (range_count == kMostRanges) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    void* const address = process::next<"mmap", decltype(::mmap)>()(
        nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (address != MAP_FAILED) {
        ranges[range_count++] = {reinterpret_cast<std::uint64_t>(address), physical, size};
    }
    return address;
}

std::optional<std::uint32_t> load_device_memory(process::Host& host, std::uint64_t address) {
    const Range* const range = range_of(address);
    if (range == nullptr) {
        return std::nullopt;
    }
    const std::uint64_t physical = range->physical + (address - range->address);
    state::Adapter* const adapter = adapter_at(host, physical);
    if (adapter == nullptr) {
        return kAbsent;
    }
    return load_register(
        adapter->hardware, flash_of(host, *adapter),
        static_cast<std::uint32_t>(physical - adapter->window));
}

bool store_device_memory(process::Host& host, std::uint64_t address, std::uint32_t value) {
    const Range* const range = range_of(address);
    if (range == nullptr) {
        return false;
    }
    const std::uint64_t physical = range->physical + (address - range->address);
    state::Adapter* const adapter = adapter_at(host, physical);
    if (adapter != nullptr) {
        store_register(
            adapter->hardware, flash_of(host, *adapter),
            static_cast<std::uint32_t>(physical - adapter->window), value);
    }
    return true;
}

}  // namespace kxsim::models
