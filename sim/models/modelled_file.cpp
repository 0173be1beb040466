#include "models/modelled_file.hpp"

#include <unistd.h>

namespace kxsim::models {
namespace {

constexpr std::string_view kPciDevices = "/sys/bus/pci/devices/";

constexpr ModelledFile kModelledFiles[] = {
    {is_config_file, read_config_file, write_config_file},
    {is_vpd_file, read_vpd_file, write_vpd_file},
    {is_control_file, nullptr, write_control_file},
};

}  // namespace

const ModelledFile* find_model(std::string_view path) {
    for (const ModelledFile& model : kModelledFiles) {
        if (model.is_one(path)) {
            return &model;
        }
    }
    return nullptr;
}

off_t place_of(const FileAccess& access) {
    return access.offset ? *access.offset : ::lseek(access.descriptor, 0, SEEK_CUR);
}

void advance(const FileAccess& access, std::size_t size) {
    if (!access.offset) {
        ::lseek(access.descriptor, static_cast<off_t>(size), SEEK_CUR);
    }
}

bool is_pci_file(std::string_view path, std::string_view name) {
    const std::size_t slash = path.rfind('/');
    return slash != path.npos && slash > kPciDevices.size() && path.starts_with(kPciDevices) &&
           path.size() == slash + 1 + name.size() && path.ends_with(name);
}

std::string_view pci_location_of(std::string_view path) {
    path.remove_prefix(kPciDevices.size());
    return path.substr(0, path.rfind('/'));
}

}  // namespace kxsim::models
