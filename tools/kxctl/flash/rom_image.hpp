// The structure of a boot option ROM: the images that follow each other in it, and what is wrong
// with them. Nothing here accesses an adapter.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kx::ctl {

struct RomImage {
    std::uint32_t begin = 0;  // the address in the file
    std::uint32_t size = 0;   // bytes
    std::uint16_t vendor_id = 0;
    std::vector<std::uint16_t> device_ids = {};
    std::uint8_t code_type = 0;
};

struct RomStructure {
    std::vector<RomImage> images = {};       // those whose data structure was found
    std::vector<std::string> mistakes = {};  // "image 2 at 0x400: the checksum is wrong"
};

[[nodiscard]] RomStructure read_rom(std::span<const std::uint8_t> file);

// "x86", "UEFI", "type 7"
[[nodiscard]] std::string code_name(std::uint8_t code_type);

// An adapter has a device id for each of its functions, which differ in these bits.
inline constexpr unsigned kFunctionBits = 0x0F00;

// What is wrong with the images for an adapter. ignored: bits of the device id that may differ.
[[nodiscard]] std::vector<std::string> mismatches(
    const RomStructure& rom, unsigned vendor_id, unsigned device_id, unsigned ignored);

}  // namespace kx::ctl
