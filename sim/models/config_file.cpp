// Trigger: reads and writes of /sys/bus/pci/devices/LOCATION/config of an adapter, which is how
// libpci reaches configuration space. Effect: see models/config_space.cpp; the file in the tree
// holds the header and the capabilities. The configuration space of other functions is a plain
// file.
#include <unistd.h>

#include <array>
#include <cstring>

#include "models/adapters.hpp"
#include "models/config_space.hpp"
#include "models/modelled_file.hpp"
#include "preload/next.hpp"

namespace kxsim::models {
namespace {

constexpr std::string_view kDevices = "/sys/bus/pci/devices/";
constexpr std::string_view kFile = "/config";

std::string_view location_of(std::string_view path) {
    path.remove_prefix(kDevices.size());
    path.remove_suffix(kFile.size());
    return path;
}

// Where an access takes place: its own offset, else where the descriptor stands.
off_t place_of(const FileAccess& access) {
    return access.offset ? *access.offset : ::lseek(access.descriptor, 0, SEEK_CUR);
}

void advance(const FileAccess& access, std::size_t size) {
    if (!access.offset) {
        ::lseek(access.descriptor, static_cast<off_t>(size), SEEK_CUR);
    }
}

ssize_t read_real(const FileAccess& access, void* buffer, std::size_t size) {
    return access.offset
               ? preload::next<"pread", decltype(::pread)>()(
                     access.descriptor, buffer, size, *access.offset)
               : preload::next<"read", decltype(::read)>()(access.descriptor, buffer, size);
}

ssize_t write_real(const FileAccess& access, const void* data, std::size_t size) {
    return access.offset
               ? preload::next<"pwrite", decltype(::pwrite)>()(
                     access.descriptor, data, size, *access.offset)
               : preload::next<"write", decltype(::write)>()(access.descriptor, data, size);
}

// An adapter's configuration space with the bytes of its file.
class Opened {
public:
    Opened(const FileAccess& access, state::Adapter& adapter)
        : space_{adapter.hardware, {}, eeprom_of(access.host, adapter)} {
        const ssize_t size = preload::next<"pread", decltype(::pread)>()(
            access.descriptor, bytes_.data(), bytes_.size(), 0);
        space_.bytes = {bytes_.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
    }
    [[nodiscard]] const ConfigSpace& space() const { return space_; }

private:
    std::array<std::uint8_t, 4096> bytes_;
    ConfigSpace space_;
};

}  // namespace

bool is_config_file(std::string_view path) {
    return path.size() > kDevices.size() + kFile.size() && path.starts_with(kDevices) &&
           path.ends_with(kFile);
}

ssize_t read_config_file(const FileAccess& access, void* buffer, std::size_t size) {
    state::Adapter* const adapter = adapter_named(access.host, location_of(access.path));
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
    state::Adapter* const adapter = adapter_named(access.host, location_of(access.path));
    const off_t place = place_of(access);
    if (adapter == nullptr || place < 0) {
        return write_real(access, data, size);
    }
    const Opened opened(access, *adapter);
    // The file keeps what is written; the registers of the VPD capability are read over it.
    const ssize_t kept =
        preload::next<"pwrite", decltype(::pwrite)>()(access.descriptor, data, size, place);
    if (kept < 0) {
        return kept;
    }
    const std::size_t written = write_config(
        opened.space(), static_cast<std::size_t>(place),
        {static_cast<const std::uint8_t*>(data), size});
    advance(access, written);
    return static_cast<ssize_t>(written);
}

}  // namespace kxsim::models
