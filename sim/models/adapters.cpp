#include "models/adapters.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "process/next.hpp"
#include "process/path_text.hpp"

namespace kxsim::models {
namespace {

std::span<state::Adapter> adapters(const process::Host& host) {
    return {host.adapters->adapters, host.adapters->count};
}

// Bytes past the end of the file were never written and are erased.
void extend(int file, void* content, off_t from, std::size_t size) {
    if (from < static_cast<off_t>(size) &&
        process::next<"ftruncate", decltype(::ftruncate)>()(file, static_cast<off_t>(size)) == 0) {
        std::memset(
            static_cast<std::uint8_t*>(content) + from, 0xFF,
            size - static_cast<std::size_t>(from));
    }
}

std::uint8_t* map_content(
    const process::Host& host, const char* kind, const char* location, std::size_t size) {
    const process::KeepErrno keep;
    char path[PATH_MAX];
    if (host.root_length + std::strlen(kind) + state::kLocationSize > sizeof path) {
        return nullptr;
    }
    std::memcpy(path, host.tree, host.root_length);
    path[host.root_length] = '\0';
    std::strcat(path, kind);
    std::strcat(path, location);
    const int file = process::next<"open", decltype(::open)>()(path, O_RDWR | O_CLOEXEC);
    if (file < 0) {
        return nullptr;
    }
    void* const address = process::next<"mmap", decltype(::mmap)>()(
        nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (address != MAP_FAILED) {
        extend(file, address, ::lseek(file, 0, SEEK_END), size);
    }
    ::close(file);
    return address == MAP_FAILED ? nullptr : static_cast<std::uint8_t*>(address);
}

std::span<std::uint8_t> content(
    const process::Host& host, process::Mapping& mapping, const char* kind,
    const state::Adapter& adapter, std::size_t size) {
    if (mapping.address == nullptr) {
        mapping.address = map_content(host, kind, adapter.location, size);
        mapping.size = mapping.address == nullptr ? 0 : size;
    }
    return {static_cast<std::uint8_t*>(mapping.address), mapping.size};
}

}  // namespace

state::Adapter* adapter_at(const process::Host& host, std::uint64_t address) {
    for (state::Adapter& adapter : adapters(host)) {
        if (address >= adapter.window && address - adapter.window < adapter.window_size) {
            return &adapter;
        }
    }
    return nullptr;
}

state::Adapter* adapter_named(const process::Host& host, std::string_view location) {
    for (state::Adapter& adapter : adapters(host)) {
        if (location == adapter.location) {
            return &adapter;
        }
    }
    return nullptr;
}

std::span<std::uint8_t> flash_of(process::Host& host, const state::Adapter& adapter) {
    process::Mapping& mapping = host.flash[&adapter - host.adapters->adapters];
    return content(host, mapping, state::kFlashFile, adapter, adapter.flash_size);
}

std::span<std::uint8_t> eeprom_of(process::Host& host, const state::Adapter& adapter) {
    process::Mapping& mapping = host.eeprom[&adapter - host.adapters->adapters];
    return content(host, mapping, state::kEepromFile, adapter, adapter.eeprom_size);
}

}  // namespace kxsim::models
