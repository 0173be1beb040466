// Trigger: reads and writes of /sys/bus/pci/devices/LOCATION/vpd of an adapter. Effect: reads and
// writes of its EEPROM, from the start of the chip's vital product data: programs that decode them,
// such as lspci, expect the first tag at the start of the file. Can be made to fail: an EEPROM that
// never answers.
#include <algorithm>
#include <cerrno>
#include <optional>
#include <span>

#include "models/adapters.hpp"
#include "models/modelled_file.hpp"

namespace kxsim::models {
namespace {

constexpr std::size_t kQ3Start = 0xC00;
constexpr std::size_t kQ4Start = 0x400;

// The bytes that an access reaches, at most this many; nothing, with errno set, when the kernel
// would refuse it.
std::optional<std::span<std::uint8_t>> reached(const FileAccess& access, std::size_t size) {
    state::Adapter* const adapter = adapter_named(access.host, pci_location_of(access.path));
    const off_t place = place_of(access);
    if (adapter == nullptr || place < 0) {
        errno = ENODEV;
        return std::nullopt;
    }
    if (adapter->hardware.vpd.silent != 0) {
        errno = ETIMEDOUT;
        return std::nullopt;
    }
    const std::span<std::uint8_t> eeprom = eeprom_of(access.host, *adapter);
    const bool is_q3 = adapter->hardware.family == state::Family::kQ3;
    const std::size_t start = (is_q3 ? kQ3Start : kQ4Start) + static_cast<std::size_t>(place);
    const auto rest = eeprom.subspan(std::min(start, eeprom.size()));
    return rest.first(std::min(size, rest.size()));
}

}  // namespace

bool is_vpd_file(std::string_view path) { return is_pci_file(path, "vpd"); }

ssize_t read_vpd_file(const FileAccess& access, void* buffer, std::size_t size) {
    const auto bytes = reached(access, size);
    if (!bytes) {
        return -1;
    }
    std::copy(bytes->begin(), bytes->end(), static_cast<std::uint8_t*>(buffer));
    advance(access, bytes->size());
    return static_cast<ssize_t>(bytes->size());
}

ssize_t write_vpd_file(const FileAccess& access, const void* data, std::size_t size) {
    const auto bytes = reached(access, size);
    if (!bytes) {
        return -1;
    }
    if (bytes->empty() && size != 0) {
        errno = EFBIG;
        return -1;
    }
    std::copy_n(static_cast<const std::uint8_t*>(data), bytes->size(), bytes->begin());
    advance(access, bytes->size());
    return static_cast<ssize_t>(bytes->size());
}

}  // namespace kxsim::models
