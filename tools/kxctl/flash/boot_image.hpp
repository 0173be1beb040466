// The boot image that a user wants to write: a file, whose structure and ids are checked.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "flash/card.hpp"
#include "flash/rom_image.hpp"
#include "output/json.hpp"

namespace kx::ctl {

class BootImage {
public:
    // Reads the file. Throws Failure (kUsage) when it is not a boot image for any adapter. force:
    // its mistakes are only listed; a file without the signature of boot images stays refused.
    BootImage(std::string path, bool force);

    // The same for what does not fit an adapter.
    void check(const FlashCard& card);

    [[nodiscard]] std::span<const std::uint8_t> bytes() const { return bytes_; }
    // What is wrong, although the image is to be written.
    [[nodiscard]] const std::vector<std::string>& mistakes() const { return mistakes_; }
    // "x86, UEFI"; empty when no image has a data structure.
    [[nodiscard]] std::string text() const;
    [[nodiscard]] Json json() const;

private:
    void take(const std::vector<std::string>& mistakes);
    [[noreturn]] void refuse(const std::string& text) const;

    std::string path_;
    bool force_;
    std::vector<std::uint8_t> bytes_;
    RomStructure rom_;
    std::vector<std::string> mistakes_;
};

}  // namespace kx::ctl
