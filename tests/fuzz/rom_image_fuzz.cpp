// A boot option ROM that somebody wants to write: the whole input is the file.
#include "flash/rom_image.hpp"

#include "fuzz/input.hpp"

namespace {
constexpr unsigned kVendor = 0xABCD;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::vector<uint8_t> file(data, data + size);
    const kx::ctl::RomStructure rom = kx::ctl::read_rom(file);
    std::uint64_t end = 0;
    for (const kx::ctl::RomImage& image : rom.images) {
        fuzz::require(image.begin >= end && image.begin < size, "images follow each other");
        end = std::uint64_t{image.begin} + std::max<std::uint32_t>(image.size, 1);
        fuzz::require(!image.device_ids.empty(), "an image has a device");
        fuzz::require(2 * image.device_ids.size() <= size + 2, "its devices are in the file");
    }
    fuzz::require(end <= size || !rom.mistakes.empty(), "images that are right are in the file");
    fuzz::require(!rom.images.empty() || !rom.mistakes.empty(), "no image is a mistake");
    const auto wrong = kx::ctl::mismatches(rom, kVendor, 0x5410, kx::ctl::kFunctionBits);
    fuzz::require(wrong.size() <= rom.images.size(), "an image is named once");
    return 0;
}
