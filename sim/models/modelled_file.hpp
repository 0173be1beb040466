// Files with a model: reading or writing them calls the model.
//
// A model is one row of the table in modelled_file.cpp. It sees every read and write on a
// descriptor that is open on its files, in any process of the session whatever way the descriptor
// was obtained.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string_view>

#include "process/attached.hpp"

namespace kxsim::models {

// One read or write.
struct FileAccess {
    process::Host& host;
    int descriptor;
    std::string_view path;        // on the simulated host
    std::optional<off_t> offset;  // of pread and pwrite; nothing: the descriptor's position
};

// The position of an access: its own offset, otherwise the descriptor's position; negative when it
// is unknown.
[[nodiscard]] off_t place_of(const FileAccess& access);

// Moves a descriptor's position after reading or writing this many bytes there.
void advance(const FileAccess& access, std::size_t size);

// Results as of read and write, with errno set. For a null function the call uses the file in the
// tree.
struct ModelledFile {
    bool (*is_one)(std::string_view path);
    ssize_t (*read)(const FileAccess& access, void* buffer, std::size_t size);
    ssize_t (*write)(const FileAccess& access, const void* data, std::size_t size);
};

// The model of a file, or null.
[[nodiscard]] const ModelledFile* find_model(std::string_view path);

// A file of a PCI function below /sys/bus/pci/devices, and the function's location in its path.
[[nodiscard]] bool is_pci_file(std::string_view path, std::string_view name);
[[nodiscard]] std::string_view pci_location_of(std::string_view path);

// The vital product data of an adapter.
[[nodiscard]] bool is_vpd_file(std::string_view path);
ssize_t read_vpd_file(const FileAccess& access, void* buffer, std::size_t size);
ssize_t write_vpd_file(const FileAccess& access, const void* data, std::size_t size);

// The configuration space of a PCI function.
[[nodiscard]] bool is_config_file(std::string_view path);
ssize_t read_config_file(const FileAccess& access, void* buffer, std::size_t size);
ssize_t write_config_file(const FileAccess& access, const void* data, std::size_t size);

// The kernel's control files: a write replaces the whole content, whatever its position, and the
// content reads back as a line.
[[nodiscard]] bool is_control_file(std::string_view path);
ssize_t write_control_file(const FileAccess& access, const void* data, std::size_t size);

}  // namespace kxsim::models
