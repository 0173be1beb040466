// A simulated adapter. The library's register accesses reach the model, and all are recorded;
// delays between polls are recorded, and nobody sleeps.
//
// The library calls readl, writel, writel_Q4 and usleep by their names. A test program that
// includes this header (once) replaces them.
#pragma once

#include <kxlinhw/adapter.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <span>
#include <vector>

#include "models/register_window.hpp"
#include "models/serial_flash.hpp"

namespace bench {

using kxsim::state::Family;

// Bytes that count up.
inline std::vector<uint8_t> counting(std::size_t size, uint8_t first = 1) {
    std::vector<uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

struct Store {
    uint32_t offset;
    uint32_t value;
    friend bool operator==(const Store&, const Store&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Store& store) {
        return out << std::hex << "{0x" << store.offset << ", 0x" << store.value << "}" << std::dec;
    }
};

// Registers of the flash controllers.
inline constexpr uint32_t kQ4Data = 0x193F8;
inline constexpr uint32_t kQ4Operation = 0x193FC;
inline constexpr uint32_t kQ3Data = 0x6D8;
inline constexpr uint32_t kQ3Operation = 0x6DC;

// While this object exists, the window of adapter 0 is open on it.
class Adapter {
public:
    static constexpr uint64_t kWindow = 0x7000000000;  // an address that nothing dereferences

    explicit Adapter(Family family, uint8_t capacity_code = 22)
        : content(capacity_code < 25 ? std::size_t{1} << capacity_code : 4096, 0xFF) {
        hardware.family = family;
        kxsim::models::fit_flash(hardware.flash, 0x20, 0x20, capacity_code);
        mmapd_addr = kWindow;
        mmapd_adapter = 0;
        mmapd_len = family == Family::kQ3 ? 0x1000 : 0x20000;
        current_ = this;
    }
    ~Adapter() {
        current_ = nullptr;
        mmapd_addr = 0;
    }
    Adapter(const Adapter&) = delete;
    Adapter& operator=(const Adapter&) = delete;

    static Adapter* current() { return current_; }

    uint32_t load(uint64_t address) {
        const auto offset = static_cast<uint32_t>(address - kWindow);
        loads.push_back(offset);
        return kxsim::models::load_register(hardware, content, offset);
    }

    void store(uint64_t address, uint32_t value) {
        const auto offset = static_cast<uint32_t>(address - kWindow);
        stores.push_back({offset, value});
        kxsim::models::store_register(hardware, content, offset, value);
    }

    // The addresses of the flash commands that were stored so far, in their order.
    [[nodiscard]] std::vector<uint32_t> addresses(uint8_t command) const {
        std::vector<uint32_t> found;
        uint32_t data = 0;
        bool selected = false;  // a transfer continues the previous command
        for (const Store& store : stores) {
            if (store.offset == kQ4Data || store.offset == kQ3Data) {
                data = store.value;
                continue;
            }
            const bool writes = (store.value & 1) != 0;
            if (writes && !selected && (data & 0xFF) == command) {
                found.push_back(__builtin_bswap32(data) & 0xFFFFFF);
            }
            selected = (store.value & 8) != 0;
        }
        return found;
    }

    // The sectors whose erasure was requested so far.
    [[nodiscard]] std::vector<uint32_t> erased_sectors() const {
        std::vector<uint32_t> sectors = addresses(0xD8);
        for (uint32_t& sector : sectors) {
            sector >>= 16;
        }
        return sectors;
    }

    // The k-th transfer from now on never ends; earlier faults are removed.
    void stick_at(uint32_t transfer) {
        repair();
        hardware.faults.stuck_busy_at = transfer;
    }

    // Turn the power on again, and set all counts to 0.
    void repair() {
        kxsim::models::restore_power(hardware);
        hardware.faults = {};
        hardware.controller.transfers = 0;
        hardware.flash.programs = 0;
        hardware.flash.erases = 0;
        forget();
    }

    [[nodiscard]] std::size_t accesses() const { return loads.size() + stores.size(); }

    void forget() {
        loads.clear();
        stores.clear();
        sleeps.clear();
    }

    void fill(std::size_t address, std::span<const uint8_t> bytes) {
        std::copy(
            bytes.begin(), bytes.end(), content.begin() + static_cast<std::ptrdiff_t>(address));
    }

    [[nodiscard]] std::vector<uint8_t> bytes(std::size_t address, std::size_t size) const {
        const auto start = content.begin() + static_cast<std::ptrdiff_t>(address);
        return {start, start + static_cast<std::ptrdiff_t>(size)};
    }

    kxsim::state::AdapterHardware hardware{};
    std::vector<uint8_t> content;
    std::vector<uint32_t> loads;   // offsets
    std::vector<Store> stores;     // in their order
    std::vector<unsigned> sleeps;  // microseconds

private:
    static inline Adapter* current_ = nullptr;
};

}  // namespace bench

extern "C" {

KX_EXPORT uint32_t readl(uint64_t address) { return bench::Adapter::current()->load(address); }

KX_EXPORT void writel(uint32_t value, uint64_t address) {
    bench::Adapter::current()->store(address, value);
}

KX_EXPORT void writel_Q4(uint32_t value, uint64_t address) {
    bench::Adapter::current()->store(address, value);
}

KX_EXPORT int usleep(useconds_t microseconds) {
    if (bench::Adapter::current() != nullptr) {
        bench::Adapter::current()->sleeps.push_back(microseconds);
    }
    return 0;
}

}  // extern "C"
