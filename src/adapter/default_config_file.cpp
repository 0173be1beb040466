// The version of the default configuration file, which the package of the Ethernet driver installs.
// Its line "version = " contains the PCI device id that the configuration is for.
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/flash_images.h>
#include <strings.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "adapter/paths.hpp"
#include "support/handle.hpp"

namespace kx::adapter {
namespace {

constexpr char kVersionMark[] = "version = ";

struct VersionOfId {
    uint16_t id;
    int32_t version;
};

// In the order of the search: 0x0300 comes after 0x0500.
constexpr VersionOfId kVersions[] = {
    {KESTRIX_PCI_VENDOR_ID, 0},
    {0x0100, 0},
    {0x0200, 0},
    {0x0400, 1},
    {0x0500, 2},
    {0x0300, 3},
    {0x0600, 4},
};

using Line = std::array<char, 256>;

// The last line read: the first line with the mark, or the last line of the file.
Line read_version_line(std::FILE* file) {
    Line line{};
    while (std::fgets(line.data(), line.size(), file) != nullptr &&
           std::strstr(line.data(), kVersionMark) == nullptr) {
    }
    return line;
}

int32_t version_in(const char* line) {
    for (const VersionOfId& row : kVersions) {
        char id[8];
        std::snprintf(id, sizeof id, "0x%04x", row.id);
        if (strcasestr(line, id) != nullptr) {
            return row.version;
        }
    }
    return 0;
}

}  // namespace
}  // namespace kx::adapter

extern "C" int32_t get_default_config_version(uint8_t chip_class) {
    if (chip_class != KX_CLASS_Q4 && chip_class != KX_CLASS_Q5) {
        return -1;
    }
    const kx::File file = kx::open_file(kx::adapter::kDefaultConfig, "re");
    if (!file) {
        return 0;
    }
    const kx::adapter::Line line = kx::adapter::read_version_line(file.get());
    std::printf(
        "Found the Conf File[%s] Signature: %s\n", kx::adapter::kDefaultConfig, line.data());
    return kx::adapter::version_in(line.data());
}
