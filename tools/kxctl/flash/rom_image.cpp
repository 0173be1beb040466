#include "flash/rom_image.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <numeric>

#include "support/byte_reader.hpp"

namespace kx::ctl {
namespace {

using RomBytes = std::span<const std::uint8_t>;

constexpr std::uint32_t kBlock = 512;  // the unit of lengths
constexpr std::uint32_t kDataPointer = 0x18;
constexpr std::uint32_t kLeastHeader = 0x1A;
constexpr std::uint32_t kLeastData = 0x18;
constexpr std::uint8_t kX86 = 0;
constexpr std::uint8_t kUefi = 3;
constexpr std::uint32_t kUefiSignature = 0x0EF1;
constexpr std::uint8_t kLastImage = 0x80;
constexpr std::uint8_t kRevisionWithList = 3;

std::uint32_t number_at(RomBytes bytes, std::uint32_t at, std::size_t width) {
    return static_cast<std::uint32_t>(ByteReader(bytes).at(at).number(width));
}

// One image of a file that may end anywhere.
class ImageReader {
public:
    ImageReader(RomBytes rest, std::uint32_t begin, std::size_t number, RomStructure& rom)
        : bytes_(rest), begin_(begin), number_(number), rom_(rom) {}

    // The size of the image when another one follows it; otherwise 0.
    std::uint32_t read() {
        if (number_at(bytes_, 0, 2) != 0xAA55) {
            complain("does not begin with 55 aa");
            return 0;
        }
        data_ = number_at(bytes_, kDataPointer, 2);
        if (data_ < kLeastHeader || ByteReader(bytes_).at(data_).text(4) != "PCIR" ||
            bytes_.size() - data_ < kLeastData) {
            complain("has no PCI data structure");
            check_run(static_cast<std::uint32_t>(bytes_.size()), kX86);
            return 0;
        }
        return read_data();
    }

private:
    std::uint32_t read_data() {
        RomImage image{.begin = begin_};
        image.size = data(0x10, 2) * kBlock;
        image.vendor_id = static_cast<std::uint16_t>(data(4, 2));
        image.code_type = static_cast<std::uint8_t>(data(0x14, 1));
        image.device_ids = device_ids(image.size);
        rom_.images.push_back(image);
        if (image.size < data_ + kLeastData) {
            complain(fmt::format("has a length of {} bytes", image.size));
            return 0;
        }
        if (image.size > bytes_.size()) {
            complain(
                fmt::format("has {} bytes, of which the file has {}", image.size, bytes_.size()));
            return 0;
        }
        check_run(image.size, image.code_type);
        return end_of(image.size, (data(0x15, 1) & kLastImage) != 0);
    }

    // What begins to run: its length and its checksum. UEFI code has no checksum.
    void check_run(std::uint32_t most, std::uint8_t code_type) {
        if (code_type != kX86 && code_type != kUefi) {
            return;
        }
        const std::uint32_t size = number_at(bytes_, 2, code_type == kX86 ? 1 : 2) * kBlock;
        if (size == 0 || size > most) {
            complain(fmt::format("has {} bytes, its header says {}", most, size));
        } else if (code_type == kX86) {
            check_sum(size);
        } else if (number_at(bytes_, 4, 4) != kUefiSignature) {
            complain("has no UEFI signature");
        }
    }

    void check_sum(std::uint32_t size) {
        const RomBytes summed = bytes_.first(size);
        const auto sum = static_cast<std::uint8_t>(
            std::accumulate(summed.begin(), summed.end(), std::uint32_t{0}));
        if (sum != 0) {
            complain(fmt::format("has a wrong checksum ({:#04x} instead of 0)", unsigned{sum}));
        }
    }

    std::uint32_t end_of(std::uint32_t size, bool is_last) {
        const RomBytes rest = bytes_.subspan(size);
        const bool is_padding = std::ranges::all_of(rest, [](auto byte) { return byte == 0xFF; }) ||
                                std::ranges::all_of(rest, [](auto byte) { return byte == 0; });
        if (is_last && !is_padding) {
            complain(fmt::format("is the last one, but {} bytes follow it", rest.size()));
        } else if (!is_last && is_padding) {
            complain("is not the last one, but no other image follows it");
        }
        return is_last || is_padding ? 0 : size;
    }

    // The device, and from revision 3 on the devices of a list that ends with 0.
    [[nodiscard]] std::vector<std::uint16_t> device_ids(std::uint32_t size) const {
        std::vector<std::uint16_t> ids{static_cast<std::uint16_t>(data(6, 2))};
        const std::uint32_t list = data(8, 2);
        if (list == 0 || data(0xC, 1) < kRevisionWithList) {
            return ids;
        }
        const bool has_size = size != 0 && size < bytes_.size();
        ByteReader reader(has_size ? bytes_.first(size) : bytes_);
        reader.at(data_ + list);
        for (auto id = reader.number(2); id != 0; id = reader.number(2)) {
            ids.push_back(static_cast<std::uint16_t>(id));
        }
        return ids;
    }

    [[nodiscard]] std::uint32_t data(std::uint32_t at, std::size_t width) const {
        return number_at(bytes_, data_ + at, width);
    }

    void complain(const std::string& what) {
        rom_.mistakes.push_back(fmt::format("image {} at {:#x} {}", number_, begin_, what));
    }

    RomBytes bytes_;
    std::uint32_t begin_;
    std::size_t number_;
    RomStructure& rom_;
    std::uint32_t data_ = 0;  // the address of the data structure in the image
};

std::string ids_text(const RomImage& image) {
    constexpr std::size_t kMostShown = 8;
    std::string text;
    for (const std::uint16_t id :
         std::span(image.device_ids).first(std::min(image.device_ids.size(), kMostShown))) {
        text += fmt::format("{}{:04x}:{:04x}", text.empty() ? "" : ", ", image.vendor_id, id);
    }
    return image.device_ids.size() > kMostShown ? text + ", ..." : text;
}

}  // namespace

RomStructure read_rom(std::span<const std::uint8_t> file) {
    RomStructure rom;
    std::uint32_t begin = 0;
    for (std::size_t number = 1;; ++number) {
        const std::uint32_t size = ImageReader(file.subspan(begin), begin, number, rom).read();
        if (size == 0) {
            return rom;
        }
        begin += size;
    }
}

std::string code_name(std::uint8_t code_type) {
    return code_type == kX86    ? "x86"
           : code_type == kUefi ? "UEFI"
                                : fmt::format("type {}", unsigned{code_type});
}

std::vector<std::string> mismatches(
    const RomStructure& rom, unsigned vendor_id, unsigned device_id, unsigned ignored) {
    std::vector<std::string> texts;
    for (const RomImage& image : rom.images) {
        const bool fits =
            image.vendor_id == vendor_id && std::ranges::any_of(image.device_ids, [&](unsigned id) {
                return (id & ~ignored) == (device_id & ~ignored);
            });
        if (!fits) {
            texts.push_back(fmt::format(
                "the image at {:#x} is for {}, the adapter is {:04x}:{:04x}", image.begin,
                ids_text(image), vendor_id, device_id));
        }
    }
    return texts;
}

}  // namespace kx::ctl
