#include "flash/boot_image.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/q3_boot.h>

#include <utility>

#include "failure/failure.hpp"
#include "files/digest.hpp"
#include "files/whole_file.hpp"

namespace kx::ctl {
namespace {

Json image_json(const RomImage& image) {
    return {
        {"address", image.begin},
        {"size_bytes", image.size},
        {"code", code_name(image.code_type)},
        {"vendor_id", image.vendor_id},
        {"device_ids", image.device_ids}};
}

}  // namespace

BootImage::BootImage(std::string path, bool force)
    : path_(std::move(path)), force_(force), bytes_(read_whole_file(path_, KX_BOOT_IMAGE_MAX)) {
    if (bytes_.size() < KX_BOOT_IMAGE_MIN) {
        refuse(fmt::format("a boot image has at least {} bytes", int{KX_BOOT_IMAGE_MIN}));
    }
    if (bytes_[0] != 0x55 || bytes_[1] != 0xAA) {
        refuse("a boot image begins with 55 aa");
    }
    rom_ = read_rom(bytes_);
    take(rom_.mistakes);
}

void BootImage::check(const FlashCard& card) {
    if (card.is_q3() && bytes_.size() > KX_Q3_BOOT_IMAGE_MAX) {
        refuse(fmt::format("a boot image of Q3 has at most {} bytes", int{KX_Q3_BOOT_IMAGE_MAX}));
    }
    take(mismatches(
        rom_, KXLINHW_PCI_VENDOR_ID, card.device_id(), card.is_q3() ? 0 : kFunctionBits));
}

void BootImage::take(const std::vector<std::string>& mistakes) {
    if (!mistakes.empty() && !force_) {
        refuse(fmt::format("{} (--force writes it all the same)", fmt::join(mistakes, "; ")));
    }
    mistakes_.insert(mistakes_.end(), mistakes.begin(), mistakes.end());
}

void BootImage::refuse(const std::string& text) const {
    throw Failure(ExitCode::kUsage, path_ + ": " + text);
}

std::string BootImage::text() const {
    std::vector<std::string> codes;
    for (const RomImage& image : rom_.images) {
        codes.push_back(code_name(image.code_type));
    }
    return fmt::format("{}", fmt::join(codes, ", "));
}

Json BootImage::json() const {
    return {
        {"file", path_},
        {"size_bytes", bytes_.size()},
        {"sha256", sha256(bytes_)},
        {"images", json_array(rom_.images, image_json)},
        {"mistakes", mistakes_}};
}

}  // namespace kx::ctl
