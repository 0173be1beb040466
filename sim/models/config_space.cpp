// Trigger: reads and writes of an adapter's configuration space. Effect: a write to the VPD
// capability's address register requests a dword of the EEPROM; the data register has the answer
// after the flag bit has changed, which takes the number of reads that the scenario sets. A flag of
// 0 requests a read, 1 a write. What can be made to fail: requests that are never answered, a data
// register that keeps nothing (see state::VpdCapability).
#include "models/config_space.hpp"

#include <algorithm>

#include "models/eeprom.hpp"

namespace kxsim::models {
namespace {

// Within the VPD capability: the address register, and the data register after it.
constexpr std::size_t kAddress = 2;
constexpr std::size_t kFlag = 3;
constexpr std::size_t kData = 4;
constexpr std::size_t kEnd = 8;
constexpr std::uint16_t kFlagBit = 0x8000;

bool covers(std::size_t offset, std::size_t size, std::size_t place) {
    return offset <= place && place - offset < size;
}

bool has_registers(const ConfigSpace& space) {
    return space.hardware.vpd.offset != 0 && space.hardware.vpd.offset + kEnd <= space.bytes.size();
}

// A byte of the registers, by its place in the capability from kAddress on.
std::uint8_t register_byte(const state::VpdCapability& vpd, std::size_t place) {
    return place < kData ? static_cast<std::uint8_t>(vpd.address >> (8 * (place - kAddress)))
                         : static_cast<std::uint8_t>(vpd.data >> (8 * (place - kData)));
}

void set_register_byte(state::VpdCapability& vpd, std::size_t place, std::uint8_t value) {
    if (place < kData) {
        const std::size_t shift = 8 * (place - kAddress);
        vpd.address = static_cast<std::uint16_t>(
            (vpd.address & ~(0xFFU << shift)) | std::uint32_t{value} << shift);
    } else if (vpd.loses_writes == 0) {
        const std::size_t shift = 8 * (place - kData);
        vpd.data = (vpd.data & ~(0xFFU << shift)) | std::uint32_t{value} << shift;
    }
}

void answer(const ConfigSpace& space) {
    state::VpdCapability& vpd = space.hardware.vpd;
    if ((vpd.address & kFlagBit) == 0) {
        vpd.data = read_eeprom(space.eeprom, vpd.address);
        ++space.hardware.dwords_read;
    } else {
        write_eeprom(space.eeprom, vpd.address, vpd.data);
    }
    vpd.address ^= kFlagBit;
    vpd.under_way = 0;
}

void poll(const ConfigSpace& space) {
    state::VpdCapability& vpd = space.hardware.vpd;
    if (vpd.under_way == 0 || vpd.silent != 0) {
        return;
    }
    if (vpd.polls_left > 0) {
        --vpd.polls_left;
    } else {
        answer(space);
    }
}

}  // namespace

std::size_t read_config(const ConfigSpace& space, std::size_t offset, std::span<std::uint8_t> out) {
    if (offset >= space.bytes.size()) {
        return 0;
    }
    const std::size_t size = std::min(out.size(), space.bytes.size() - offset);
    std::copy_n(space.bytes.begin() + static_cast<std::ptrdiff_t>(offset), size, out.begin());
    if (!has_registers(space)) {
        return size;
    }
    const std::size_t start = space.hardware.vpd.offset;
    if (covers(offset, size, start + kFlag)) {
        poll(space);
    }
    for (std::size_t place = kAddress; place < kEnd; ++place) {
        if (covers(offset, size, start + place)) {
            out[start + place - offset] = register_byte(space.hardware.vpd, place);
        }
    }
    return size;
}

std::size_t write_config(
    const ConfigSpace& space, std::size_t offset, std::span<const std::uint8_t> in) {
    if (offset >= space.bytes.size()) {
        return 0;
    }
    const std::size_t size = std::min(in.size(), space.bytes.size() - offset);
    if (!has_registers(space)) {
        return size;
    }
    state::VpdCapability& vpd = space.hardware.vpd;
    const std::size_t start = vpd.offset;
    for (std::size_t place = kAddress; place < kEnd; ++place) {
        if (covers(offset, size, start + place)) {
            set_register_byte(vpd, place, in[start + place - offset]);
        }
    }
    if (covers(offset, size, start + kFlag)) {
        vpd.under_way = 1;
        vpd.polls_left = vpd.polls;
    }
    return size;
}

}  // namespace kxsim::models
