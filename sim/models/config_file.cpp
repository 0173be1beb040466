// Trigger: reads and writes of /sys/bus/pci/devices/LOCATION/config of an adapter, which is how
// libpci reaches configuration space. Effect: see models/config_space.cpp; the file in the tree
// contains the header and the capabilities. The configuration space of other functions is a plain
// file.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "models/adapters.hpp"
#include "models/config_space.hpp"
#include "models/modelled_file.hpp"
#include "process/next.hpp"

namespace kxsim::models {
namespace {

ssize_t read_real(const FileAccess& access, void* buffer, std::size_t size) {
    return access.offset
               ? process::next<"pread", decltype(::pread)>()(
                     access.descriptor, buffer, size, *access.offset)
               : process::next<"read", decltype(::read)>()(access.descriptor, buffer, size);
}

ssize_t write_real(const FileAccess& access, const void* data, std::size_t size) {
    return access.offset
               ? process::next<"pwrite", decltype(::pwrite)>()(
                     access.descriptor, data, size, *access.offset)
               : process::next<"write", decltype(::write)>()(access.descriptor, data, size);
}

constexpr std::size_t kVpdCapabilitySize = 8;

// The file keeps all written bytes except those of the VPD capability: its header is read-only, and
// its registers are in the model. False, with errno set, when the file refuses.
bool keep(
    const FileAccess& access, std::size_t start, std::span<const std::uint8_t> bytes,
    std::size_t capability) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::size_t place = start + i;
        const bool modelled =
            capability != 0 && place >= capability && place - capability < kVpdCapabilitySize;
        if (!modelled && process::next<"pwrite", decltype(::pwrite)>()(
                             access.descriptor, &bytes[i], 1, static_cast<off_t>(place)) < 0) {
            return false;
        }
    }
    return true;
}

// An adapter's configuration space with the bytes of its file.
class Opened {
public:
    Opened(const FileAccess& access, state::Adapter& adapter)
        : space_{adapter.hardware, {}, eeprom_of(access.host, adapter)} {
        const ssize_t size = process::next<"pread", decltype(::pread)>()(
            access.descriptor, bytes_.data(), bytes_.size(), 0);
        space_.bytes = {bytes_.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
    }
    [[nodiscard]] const ConfigSpace& space() const { return space_; }

private:
    std::array<std::uint8_t, 4096> bytes_;
    ConfigSpace space_;
};

}  // namespace

bool is_config_file(std::string_view path) { return is_pci_file(path, "config"); }

ssize_t read_config_file(const FileAccess& access, void* buffer, std::size_t size) {
    state::Adapter* const adapter = adapter_named(access.host, pci_location_of(access.path));
    const off_t place = place_of(access);
    if (adapter == nullptr || place < 0) {
        return read_real(access, buffer, size);
    }
    const Opened opened(access, *adapter);
    const std::size_t got = read_config(
        opened.space(), static_cast<std::size_t>(place),
        {static_cast<std::uint8_t*>(buffer), size});
    advance(access, got);
    return static_cast<ssize_t>(got);
}

ssize_t write_config_file(const FileAccess& access, const void* data, std::size_t size) {
    state::Adapter* const adapter = adapter_named(access.host, pci_location_of(access.path));
    const off_t place = place_of(access);
    if (adapter == nullptr || place < 0) {
        return write_real(access, data, size);
    }
    const Opened opened(access, *adapter);
    const std::size_t end = opened.space().bytes.size();
    const std::size_t start = std::min(static_cast<std::size_t>(place), end);
    const std::span<const std::uint8_t> bytes(
        static_cast<const std::uint8_t*>(data), std::min(size, end - start));
    if (!keep(access, start, bytes, adapter->hardware.vpd.offset)) {
        return -1;
    }
    write_config(opened.space(), start, bytes);
    advance(access, bytes.size());
    return static_cast<ssize_t>(bytes.size());
}

}  // namespace kxsim::models
