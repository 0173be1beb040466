#include "host/module_file.hpp"

#include <elf.h>

#include <array>
#include <bit>
#include <cstring>
#include <stdexcept>

namespace kxsim {
namespace {

// Consecutive numbers of a width and byte order.
class Writer {
public:
    Writer(bool big_endian, bool wide) : big_endian_(big_endian), wide_(wide) {}

    void half(std::uint64_t value) { number(value, 2); }
    void word(std::uint64_t value) { number(value, 4); }
    void address(std::uint64_t value) { number(value, wide_ ? 8 : 4); }
    void bytes(std::string_view text) { out_.append(text); }

    [[nodiscard]] const std::string& out() const { return out_; }

private:
    void number(std::uint64_t value, unsigned width) {
        for (unsigned i = 0; i < width; ++i) {
            const unsigned shift = 8 * (big_endian_ ? width - 1 - i : i);
            out_.push_back(static_cast<char>((value >> shift) & 0xFFU));
        }
    }

    bool big_endian_;
    bool wide_;
    std::string out_;
};

std::string modinfo_strings(const Module& module) {
    std::string strings;
    const auto add = [&](const std::string& text) { strings += text + '\0'; };
    if (!module.version.empty()) {
        add("version=" + module.version);
    }
    if (!module.description.empty()) {
        add("description=" + module.description);
    }
    add("license=Dual BSD/GPL");
    for (const std::string& text : module.info) {
        add(text);
    }
    add("name=" + module.name);
    add("vermagic=6.1.0 SMP mod_unload");
    return strings;
}

// Any machine type of that class and byte order.
std::uint16_t machine(bool wide, bool big_endian) {
    if (big_endian) {
        return wide ? EM_PPC64 : EM_PPC;
    }
    return wide ? EM_X86_64 : EM_386;
}

struct Section {
    std::uint32_t name;  // offset in the name table
    std::uint32_t type;
    std::uint64_t flags;
    std::uint64_t offset;
    std::uint64_t size;
};

void write_section(Writer& writer, const Section& section) {
    writer.word(section.name);
    writer.word(section.type);
    writer.address(section.flags);
    writer.address(0);  // of no address
    writer.address(section.offset);
    writer.address(section.size);
    writer.word(0);
    writer.word(0);
    writer.address(section.size == 0 ? 0 : 1);  // alignment
    writer.address(0);
}

std::uint32_t crc32(const std::string& bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~crc;
}

}  // namespace

std::string module_object(const Module& module) {
    if (module.elf_class != 32 && module.elf_class != 64) {
        throw std::invalid_argument("a module file is of class 32 or 64");
    }
    const bool wide = module.elf_class == 64;
    const std::string strings = modinfo_strings(module);
    constexpr std::string_view kNames("\0.modinfo\0.shstrtab\0", 20);
    const std::uint64_t header_size = wide ? sizeof(Elf64_Ehdr) : sizeof(Elf32_Ehdr);
    const std::uint64_t names_at = header_size + strings.size();
    const std::uint64_t sections_at = (names_at + kNames.size() + 7) & ~std::uint64_t{7};

    Writer writer(module.big_endian, wide);
    writer.bytes(ELFMAG);
    const char ident[] = {
        static_cast<char>(wide ? ELFCLASS64 : ELFCLASS32),
        static_cast<char>(module.big_endian ? ELFDATA2MSB : ELFDATA2LSB), EV_CURRENT};
    writer.bytes({ident, sizeof ident});
    writer.bytes(std::string(EI_NIDENT - SELFMAG - sizeof ident, '\0'));
    writer.half(ET_REL);
    writer.half(machine(wide, module.big_endian));
    writer.word(EV_CURRENT);
    writer.address(0);  // entry
    writer.address(0);  // program headers
    writer.address(sections_at);
    writer.word(0);  // flags
    writer.half(header_size);
    writer.half(0);
    writer.half(0);
    writer.half(wide ? sizeof(Elf64_Shdr) : sizeof(Elf32_Shdr));
    writer.half(3);  // sections
    writer.half(2);  // the name table's
    writer.bytes(strings);
    writer.bytes(kNames);
    writer.bytes(std::string(sections_at - names_at - kNames.size(), '\0'));
    write_section(writer, {0, SHT_NULL, 0, 0, 0});
    write_section(writer, {1, SHT_PROGBITS, SHF_ALLOC, header_size, strings.size()});
    write_section(writer, {10, SHT_STRTAB, 0, names_at, kNames.size()});
    return writer.out();
}

// Stored blocks: they need no compressor, and a reader still has to unpack them.
std::string gzip(const std::string& bytes) {
    constexpr std::size_t kLongestBlock = 0xFFFF;
    Writer writer(false, true);
    writer.bytes({"\x1f\x8b\x08\0\0\0\0\0\0\xff", 10});
    std::size_t start = 0;
    do {
        const std::size_t length = std::min(bytes.size() - start, kLongestBlock);
        const bool last = start + length == bytes.size();
        writer.bytes({last ? "\1" : "\0", 1});
        writer.half(length);
        writer.half(~length);
        writer.bytes(std::string_view(bytes).substr(start, length));
        start += length;
    } while (start < bytes.size());
    writer.word(crc32(bytes));
    writer.word(bytes.size());
    return writer.out();
}

}  // namespace kxsim
