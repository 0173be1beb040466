// Trigger: reads and writes of an adapter's configuration space. Effect: a write to the VPD
// capability's address register asks for a dword of the EEPROM; the answer lies in the data
// register once the flag bit has turned over, which takes as many reads of it as the scenario says.
// The flag written as 0 asks for a read, as 1 for a write. What can be made to fail: requests that
// are never answered, a data register that keeps nothing (see state::VpdRegisters).
#include "models/config_space.hpp"

#include <algorithm>

#include "models/eeprom.hpp"

namespace kxsim::models {
namespace {

constexpr std::size_t kStatus = 0x06;
constexpr std::uint8_t kHasCapabilities = 0x10;
constexpr std::size_t kFirstCapability = 0x34;

// Within the VPD capability.
constexpr std::size_t kAddress = 2;
constexpr std::size_t kFlag = 3;  // in the top bit of the address register
constexpr std::size_t kData = 4;
constexpr std::size_t kEnd = 8;
constexpr std::uint8_t kFlagBit = 0x80;

bool covers(std::size_t offset, std::size_t size, std::size_t place) {
    return offset <= place && place - offset < size;
}

// The registers of a capability that lies whole in configuration space, else nothing.
std::span<std::uint8_t> registers_of(const ConfigSpace& space) {
    const std::size_t start = space.hardware.vpd.capability;
    return start != 0 && start + kEnd <= space.bytes.size() ? space.bytes.subspan(start, kEnd)
                                                            : std::span<std::uint8_t>{};
}

std::uint32_t little_endian(std::span<const std::uint8_t> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        value |= std::uint32_t{bytes[i]} << (8 * i);
    }
    return value;
}

void answer(const ConfigSpace& space, std::span<std::uint8_t> registers) {
    state::VpdRegisters& vpd = space.hardware.vpd;
    const std::uint32_t address = little_endian(registers.subspan(kAddress, 2));
    const auto data = registers.subspan(kData);
    if (vpd.flag_when_done != 0) {
        const std::uint32_t value = read_eeprom(space.eeprom, address);
        for (std::size_t i = 0; i < data.size(); ++i) {
            data[i] = static_cast<std::uint8_t>(value >> (8 * i));
        }
        registers[kFlag] |= kFlagBit;
        ++space.hardware.dwords_read;
    } else {
        write_eeprom(space.eeprom, address, little_endian(data));
        registers[kFlag] &= static_cast<std::uint8_t>(~kFlagBit);
    }
    vpd.under_way = 0;
}

void poll(const ConfigSpace& space, std::span<std::uint8_t> registers) {
    state::VpdRegisters& vpd = space.hardware.vpd;
    if (vpd.under_way == 0 || vpd.silent != 0) {
        return;
    }
    if (vpd.polls_left > 0) {
        --vpd.polls_left;
        return;
    }
    answer(space, registers);
}

void ask(const ConfigSpace& space, std::span<const std::uint8_t> registers) {
    state::VpdRegisters& vpd = space.hardware.vpd;
    vpd.under_way = 1;
    vpd.polls_left = vpd.polls;
    vpd.flag_when_done = (registers[kFlag] & kFlagBit) == 0 ? 1 : 0;
}

}  // namespace

std::size_t read_config(const ConfigSpace& space, std::size_t offset, std::span<std::uint8_t> out) {
    if (offset >= space.bytes.size()) {
        return 0;
    }
    const std::size_t size = std::min(out.size(), space.bytes.size() - offset);
    const auto registers = registers_of(space);
    if (!registers.empty() && covers(offset, size, space.hardware.vpd.capability + kFlag)) {
        poll(space, registers);
    }
    std::copy_n(space.bytes.begin() + static_cast<std::ptrdiff_t>(offset), size, out.begin());
    return size;
}

std::size_t write_config(
    const ConfigSpace& space, std::size_t offset, std::span<const std::uint8_t> in) {
    if (offset >= space.bytes.size()) {
        return 0;
    }
    const std::size_t size = std::min(in.size(), space.bytes.size() - offset);
    const auto registers = registers_of(space);
    const std::size_t start = space.hardware.vpd.capability;
    for (std::size_t i = 0; i < registers.size(); ++i) {
        const bool kept = i >= kData ? space.hardware.vpd.loses_writes == 0 : i >= kAddress;
        if (kept && covers(offset, size, start + i)) {
            registers[i] = in[start + i - offset];
        }
    }
    if (!registers.empty() && covers(offset, size, start + kFlag)) {
        ask(space, registers);
    }
    return size;
}

void add_capability(std::span<std::uint8_t> bytes, std::uint8_t id, std::uint8_t offset) {
    if (bytes.size() < kEnd + offset || bytes.size() <= kFirstCapability) {
        return;
    }
    bytes[kStatus] |= kHasCapabilities;
    bytes[offset] = id;
    bytes[std::size_t{offset} + 1] = bytes[kFirstCapability];
    bytes[kFirstCapability] = offset;
}

}  // namespace kxsim::models
