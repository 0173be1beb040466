// Boot option ROMs for tests: an image whose structure is right, for the adapters of the tests.
#pragma once

#include <kxlinhw/export.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace test {

struct RomParts {
    std::size_t size = 1024;  // bytes of the file; what is left behind whole blocks is erased
    unsigned seed = 1;        // of the bytes that have no meaning
    unsigned vendor = KESTRIX_PCI_VENDOR_ID;
    std::vector<unsigned> devices = {0x5410, 0x4410, 0x0031};
    unsigned code = 0;  // 0: x86, 3: UEFI
    bool last = true;
};

namespace detail {

inline void put16(std::string& bytes, std::size_t at, std::size_t number) {
    bytes[at] = static_cast<char>(number & 0xFF);
    bytes[at + 1] = static_cast<char>(number >> 8 & 0xFF);
}

inline void put_checksum(std::string& image, std::size_t size) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < size; ++i) {
        sum += static_cast<unsigned char>(image[i]);
    }
    image[size - 1] = static_cast<char>(static_cast<unsigned char>(image[size - 1]) - sum);
}

// The header, and at 0x1C the data structure with the list of further devices behind it.
inline void put_structure(std::string& image, const RomParts& parts) {
    constexpr std::size_t kData = 0x1C;
    constexpr std::size_t kDataSize = 0x1C;
    const std::size_t blocks = image.size() / 512;
    const std::size_t run = std::min<std::size_t>(blocks, 255);
    image.replace(0, 2, "\x55\xAA");
    put16(image, 2, run);
    if (parts.code == 3) {
        image.replace(4, 4, std::string("\xF1\x0E\0\0", 4));
    }
    put16(image, 0x18, kData);
    image.replace(kData, kDataSize, std::string("PCIR") + std::string(kDataSize - 4, '\0'));
    put16(image, kData + 4, parts.vendor);
    put16(image, kData + 6, parts.devices.front());
    put16(image, kData + 8, parts.devices.size() > 1 ? kDataSize : 0);
    put16(image, kData + 0xA, kDataSize);
    image[kData + 0xC] = 3;
    image[kData + 0xF] = 2;  // a network adapter
    put16(image, kData + 0x10, blocks);
    image[kData + 0x14] = static_cast<char>(parts.code);
    image[kData + 0x15] = static_cast<char>(parts.last ? 0x80 : 0);
    for (std::size_t i = 1; i <= parts.devices.size(); ++i) {
        put16(
            image, kData + kDataSize + 2 * (i - 1),
            i == parts.devices.size() ? 0 : parts.devices[i]);
    }
    put_checksum(image, run * 512);
}

}  // namespace detail

// Files of less than a block have no structure.
inline std::string boot_rom(const RomParts& parts) {
    std::string image(parts.size / 512 * 512, '\0');
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<char>(i * 7 + (i >> 8) + parts.seed);
    }
    if (!image.empty()) {
        detail::put_structure(image, parts);
    }
    image.resize(parts.size, '\xFF');
    return image;
}

}  // namespace test
