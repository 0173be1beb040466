#include "settings/module_file.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace kx::settings {
namespace {

constexpr std::string_view kSectionName = ".modinfo";

// The offsets of the header fields that lead to a section, for each ELF class.
struct Layout {
    std::size_t address_width;  // of offsets and sizes
    std::size_t table_offset;
    std::size_t section_count;
    std::size_t name_table_index;
    std::size_t header_size;
    std::size_t data_offset;  // within a section header
    std::size_t data_size;
};

constexpr Layout kLayout32{4, 32, 48, 50, 40, 16, 20};
constexpr Layout kLayout64{8, 40, 60, 62, 64, 24, 32};

constexpr std::size_t kClassByte = 4;
constexpr std::size_t kOrderByte = 5;
constexpr std::byte kHostOrder{std::endian::native == std::endian::little ? 1 : 2};

struct Section {
    uint64_t name;
    uint64_t offset;
    uint64_t size;
};

class ElfFile {
public:
    ElfFile(std::span<const std::byte> bytes, const Layout& layout)
        : bytes_(bytes),
          layout_(layout),
          reversed_(bytes.size() > kOrderByte && bytes[kOrderByte] != kHostOrder) {}

    [[nodiscard]] uint64_t section_count() const {
        return number(layout_.section_count, 2).value_or(0);
    }

    [[nodiscard]] std::optional<Section> name_table() const {
        const auto index = number(layout_.name_table_index, 2);
        return index ? section(*index) : std::nullopt;
    }

    [[nodiscard]] std::optional<Section> section(uint64_t index) const {
        const auto table = number(layout_.table_offset, layout_.address_width);
        if (!table || *table > bytes_.size()) {
            return std::nullopt;
        }
        const uint64_t header = *table + index * layout_.header_size;
        const auto name = number(header, 4);
        const auto offset = number(header + layout_.data_offset, layout_.address_width);
        const auto size = number(header + layout_.data_size, layout_.address_width);
        if (!name || !offset || !size) {
            return std::nullopt;
        }
        return Section{*name, *offset, *size};
    }

    // The bytes at [offset, offset + size), or nothing when they are not all in the file.
    [[nodiscard]] std::optional<std::string_view> range(uint64_t offset, uint64_t size) const {
        if (offset > bytes_.size() || size > bytes_.size() - offset) {
            return std::nullopt;
        }
        return std::string_view(reinterpret_cast<const char*>(bytes_.data()) + offset, size);
    }

    // Is the text at this offset of the file the wanted name, with its NUL?
    [[nodiscard]] bool name_at(uint64_t offset, std::string_view wanted) const {
        const auto name = range(offset, wanted.size() + 1);
        return name && name->starts_with(wanted) && name->back() == '\0';
    }

private:
    [[nodiscard]] std::optional<uint64_t> number(uint64_t offset, std::size_t width) const {
        const auto field = range(offset, width);
        if (!field) {
            return std::nullopt;
        }
        std::array<char, 8> bytes{};
        std::copy(field->begin(), field->end(), bytes.begin());
        if (reversed_) {
            std::reverse(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(width));
        }
        if constexpr (std::endian::native == std::endian::big) {
            std::rotate(
                bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(width), bytes.end());
        }
        return std::bit_cast<uint64_t>(bytes);
    }

    std::span<const std::byte> bytes_;
    const Layout& layout_;
    bool reversed_;
};

const Layout* layout_of(std::span<const std::byte> file) {
    constexpr std::array<std::byte, 4> kMagic{
        std::byte{0x7f}, std::byte{'E'}, std::byte{'L'}, std::byte{'F'}};
    if (file.size() <= kClassByte || !std::equal(kMagic.begin(), kMagic.end(), file.begin())) {
        return nullptr;
    }
    switch (std::to_integer<int>(file[kClassByte])) {
        case 1:
            return &kLayout32;
        case 2:
            return &kLayout64;
        default:
            return nullptr;
    }
}

}  // namespace

std::optional<std::string_view> modinfo_section(std::span<const std::byte> file) {
    const Layout* const layout = layout_of(file);
    if (layout == nullptr) {
        return std::nullopt;
    }
    const ElfFile elf(file, *layout);
    const auto names = elf.name_table();
    if (!names || names->offset > file.size()) {
        return std::nullopt;
    }
    const uint64_t count = elf.section_count();
    for (uint64_t index = 1; index < count; ++index) {  // section 0 is never a real one
        const auto section = elf.section(index);
        if (!section) {
            return std::nullopt;
        }
        if (elf.name_at(names->offset + section->name, kSectionName)) {
            return elf.range(section->offset, section->size);
        }
    }
    return std::nullopt;
}

std::optional<std::string_view> ModinfoStrings::next() {
    if (rest_.empty()) {
        return std::nullopt;
    }
    const std::size_t length = std::min(rest_.find('\0'), rest_.size());
    const std::string_view text = rest_.substr(0, length);
    rest_.remove_prefix(std::min(rest_.find_first_not_of('\0', length), rest_.size()));
    return text;
}

}  // namespace kx::settings
