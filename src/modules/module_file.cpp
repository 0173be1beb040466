#include "modules/module_file.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace kx::modules {
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

struct Section {
    uint64_t name;
    uint64_t offset;
    uint64_t size;
};

class ElfFile {
public:
    ElfFile(std::span<const std::byte> bytes, const Layout& layout)
        : bytes_(bytes), layout_(layout), order_(order_of(bytes)) {}

    [[nodiscard]] uint64_t section_count() const {
        return reader().at(layout_.section_count).number(2);
    }

    [[nodiscard]] std::optional<Section> name_table() const {
        ByteReader header = reader();
        const uint64_t index = header.at(layout_.name_table_index).number(2);
        return header.overrun() ? std::nullopt : section(index);
    }

    [[nodiscard]] std::optional<Section> section(uint64_t index) const {
        ByteReader file = reader();
        const uint64_t table = file.at(layout_.table_offset).number(layout_.address_width);
        const std::size_t start = file.at(table).place();
        const uint64_t header = start + index * layout_.header_size;
        const Section section{
            file.at(header).number(4),
            file.at(header + layout_.data_offset).number(layout_.address_width),
            file.at(header + layout_.data_size).number(layout_.address_width)};
        return file.overrun() ? std::nullopt : std::optional(section);
    }

    // The bytes of a section, or nothing when they are not all in the file.
    [[nodiscard]] std::optional<std::string_view> content(const Section& section) const {
        ByteReader file = reader();
        const std::string_view bytes = file.at(section.offset).text(section.size);
        return file.overrun() ? std::nullopt : std::optional(bytes);
    }

    // Is the text at this offset of the file the wanted name, with its NUL?
    [[nodiscard]] bool name_at(uint64_t offset, std::string_view wanted) const {
        ByteReader file = reader();
        return file.at(offset).text(wanted.size()) == wanted && file.text(1) == kNul;
    }

private:
    static constexpr std::string_view kNul{"\0", 1};

    static std::endian order_of(std::span<const std::byte> bytes) {
        const bool is_little = bytes.size() > kOrderByte && bytes[kOrderByte] == std::byte{1};
        return is_little ? std::endian::little : std::endian::big;
    }

    [[nodiscard]] ByteReader reader() const { return ByteReader(bytes_, order_); }

    std::span<const std::byte> bytes_;
    const Layout& layout_;
    std::endian order_;
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
            return elf.content(*section);
        }
    }
    return std::nullopt;
}

std::optional<std::string_view> ModinfoStrings::next() {
    if (reader_.at_end()) {
        return std::nullopt;
    }
    const std::string_view text = reader_.text_before('\0');
    reader_.skip_all('\0');
    return text;
}

}  // namespace kx::modules
