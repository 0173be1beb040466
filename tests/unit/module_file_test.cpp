// The reader of module files with inconsistent files. Images are in heap blocks of their exact
// size, so that a sanitizer detects the first byte read beyond them.
#include "modules/module_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using kx::modules::modinfo_section;
using kx::modules::ModinfoStrings;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

// The offsets of the header fields in each class.
struct Class {
    std::size_t address_width;
    std::size_t table_offset;
    std::size_t count;
    std::size_t name_index;
    std::size_t header_size;
    std::size_t data_offset;
    std::size_t data_size;
};
constexpr Class k32{4, 32, 48, 50, 40, 16, 20};
constexpr Class k64{8, 40, 60, 62, 64, 24, 32};

class Image {
public:
    Image(const Class& elf_class, bool big_endian) : class_(elf_class), big_(big_endian) {
        bytes_ = std::string(
                     "\x7f"
                     "ELF") +
                 (elf_class.address_width == 4 ? '\1' : '\2') + (big_endian ? '\2' : '\1');
        bytes_.resize(64);
    }

    // Sections 0 (never looked at), names, and one for each of these.
    Image& sections(const std::vector<std::pair<std::string, std::string>>& sections) {
        std::string names = "\0.shstrtab\0"s;
        std::vector<std::size_t> name_offsets{0, 1};
        for (const auto& [name, data] : sections) {
            name_offsets.push_back(names.size());
            names += name + '\0';
        }
        std::vector<std::pair<std::size_t, std::size_t>> places{
            {0, 0}, {bytes_.size(), names.size()}};
        bytes_ += names;
        for (const auto& [name, data] : sections) {
            places.emplace_back(bytes_.size(), data.size());
            bytes_ += data;
        }
        table_ = bytes_.size();
        bytes_.resize(table_ + places.size() * class_.header_size);
        put(class_.table_offset, class_.address_width, table_);
        put(class_.count, 2, places.size());
        put(class_.name_index, 2, 1);
        for (std::size_t k = 0; k < places.size(); ++k) {
            put(header(k), 4, name_offsets[k]);
            put(header(k) + class_.data_offset, class_.address_width, places[k].first);
            put(header(k) + class_.data_size, class_.address_width, places[k].second);
        }
        return *this;
    }

    [[nodiscard]] std::size_t header(std::size_t index) const {
        return table_ + index * class_.header_size;
    }

    Image& put(std::size_t offset, std::size_t width, uint64_t value) {
        for (std::size_t k = 0; k < width; ++k) {
            const std::size_t place = big_ ? width - 1 - k : k;
            bytes_[offset + place] = static_cast<char>(value >> (8 * k));
        }
        return *this;
    }

    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    Class class_;
    bool big_;
    std::string bytes_;
    std::size_t table_ = 0;
};

std::optional<std::string> section_of(const std::string& bytes) {
    const auto block = std::make_unique<std::byte[]>(bytes.size());
    std::memcpy(block.get(), bytes.data(), bytes.size());
    const auto section = modinfo_section({block.get(), bytes.size()});
    return section ? std::optional<std::string>(*section) : std::nullopt;
}

std::vector<std::string> strings_of(const std::string& section) {
    const auto block = std::make_unique<char[]>(section.size());
    std::memcpy(block.get(), section.data(), section.size());
    ModinfoStrings strings({block.get(), section.size()});
    std::vector<std::string> texts;
    while (const auto text = strings.next()) {
        texts.emplace_back(*text);
    }
    return texts;
}

struct Kind {
    const char* name;
    const Class& elf_class;
    bool big_endian;
};

class EveryKind : public testing::TestWithParam<Kind> {
protected:
    [[nodiscard]] const Class& elf_class() const { return GetParam().elf_class; }
    [[nodiscard]] Image image() const { return {elf_class(), GetParam().big_endian}; }
    [[nodiscard]] Image module() const {
        return image().sections({{".text", "code"}, {".modinfo", "version=1"}});
    }
};

INSTANTIATE_TEST_SUITE_P(
    Files, EveryKind,
    testing::Values(
        Kind{"elf32_little", k32, false}, Kind{"elf32_big", k32, true},
        Kind{"elf64_little", k64, false}, Kind{"elf64_big", k64, true}),
    [](const auto& kind) { return kind.param.name; });

TEST_P(EveryKind, SectionIsFoundByItsName) { EXPECT_EQ(section_of(module().bytes()), "version=1"); }

TEST_P(EveryKind, FirstSectionOfTheNameCounts) {
    EXPECT_EQ(
        section_of(image().sections({{".modinfo", "one"}, {".modinfo", "two"}}).bytes()), "one");
}

TEST_P(EveryKind, LongerNameIsAnotherSection) {
    EXPECT_EQ(section_of(image().sections({{".modinfo2", "one"}}).bytes()), std::nullopt);
    EXPECT_EQ(section_of(image().sections({{".modinf", "one"}}).bytes()), std::nullopt);
}

TEST_P(EveryKind, SectionZeroIsSkipped) {
    Image file = module();
    file.put(file.header(0), 4, 17);  // the name ".modinfo" stands at 11 + 6 in the names
    file.put(file.header(3), 4, 0);
    EXPECT_EQ(section_of(file.bytes()), std::nullopt);
}

TEST_P(EveryKind, DataBeyondTheFileIsNoSection) {
    const std::size_t size = module().bytes().size();
    for (const uint64_t offset : {size - 8, size, size + 1, std::size_t{0xFFFFFFFF}}) {
        Image file = module();
        file.put(file.header(3) + elf_class().data_offset, elf_class().address_width, offset);
        EXPECT_EQ(section_of(file.bytes()), std::nullopt) << offset;
    }
}

TEST_P(EveryKind, SizeBeyondTheFileIsNoSection) {
    for (const uint64_t data_size : {uint64_t{1000}, uint64_t{0xFFFFFFFF}, UINT64_MAX}) {
        Image file = module();
        file.put(file.header(3) + elf_class().data_size, elf_class().address_width, data_size);
        EXPECT_EQ(section_of(file.bytes()), std::nullopt) << data_size;
    }
}

TEST_P(EveryKind, SectionTableBeyondTheFileIsNoSection) {
    const std::size_t size = module().bytes().size();
    for (const uint64_t offset : {size - 1, size, size + 1, std::size_t{0xFFFFFFFF}}) {
        EXPECT_EQ(
            section_of(
                module().put(elf_class().table_offset, elf_class().address_width, offset).bytes()),
            std::nullopt)
            << offset;
    }
    EXPECT_EQ(
        section_of(
            module().put(elf_class().table_offset, elf_class().address_width, UINT64_MAX).bytes()),
        std::nullopt);
}

TEST_P(EveryKind, MoreSectionsThanTheFileHoldsAreNotRead) {
    EXPECT_EQ(
        section_of(image().sections({{".text", "x"}}).put(elf_class().count, 2, 0xFFFF).bytes()),
        std::nullopt);
}

TEST_P(EveryKind, SectionBehindTheLastIsNotRead) {
    EXPECT_EQ(section_of(module().put(elf_class().count, 2, 4).bytes()), "version=1");
    EXPECT_EQ(section_of(module().put(elf_class().count, 2, 3).bytes()), std::nullopt);
}

TEST_P(EveryKind, NameTableBeyondTheFileIsNoSection) {
    EXPECT_EQ(section_of(module().put(elf_class().name_index, 2, 0xFFFF).bytes()), std::nullopt);
    Image file = module();
    file.put(file.header(1) + elf_class().data_offset, elf_class().address_width, UINT64_MAX);
    EXPECT_EQ(section_of(file.bytes()), std::nullopt);
}

TEST_P(EveryKind, NamesBeyondTheFileMatchNothing) {
    for (const uint64_t name : {uint64_t{0xFFFFFFFF}, uint64_t{0x7FFFFFFF}}) {
        Image file = module();
        file.put(file.header(3), 4, name);
        EXPECT_EQ(section_of(file.bytes()), std::nullopt) << name;
    }
}

TEST_P(EveryKind, FileThatEndsBeforeTheLastFieldNeededHasNoSection) {
    const Image file = module();
    const std::size_t needed = file.header(3) + elf_class().data_size + elf_class().address_width;
    for (std::size_t size = 0; size < needed; ++size) {
        EXPECT_EQ(section_of(file.bytes().substr(0, size)), std::nullopt) << size;
    }
    EXPECT_EQ(section_of(file.bytes().substr(0, needed)), "version=1");
}

TEST_P(EveryKind, DamagedBytesAreReadWithinTheirBounds) {
    std::mt19937 random(20);
    const std::string bytes = module().bytes();
    for (int round = 0; round < 5000; ++round) {
        std::string damaged = bytes;
        for (int k = 0; k < 4; ++k) {
            damaged[random() % damaged.size()] = static_cast<char>(random());
        }
        if (const auto section = section_of(damaged)) {
            strings_of(*section);
        }
    }
}

TEST(ModuleFile, OtherFilesHaveNoSection) {
    const std::string bytes = Image(k64, false).sections({{".modinfo", "x"}}).bytes();
    EXPECT_EQ(section_of(""), std::nullopt);
    EXPECT_EQ(
        section_of("\x7f"
                   "ELF"),
        std::nullopt);
    EXPECT_EQ(section_of("\x1f\x8b" + bytes), std::nullopt);
    std::string wrong_class = bytes;
    for (const char value : {'\0', '\3', '\x7f'}) {
        wrong_class[4] = value;
        EXPECT_EQ(section_of(wrong_class), std::nullopt) << int{value};
    }
}

TEST(ModuleFile, OddByteOrderCountsAsTheOtherOne) {
    std::string bytes = Image(k64, true).sections({{".modinfo", "x"}}).bytes();
    for (const char order : {'\0', '\3'}) {
        bytes[5] = order;
        EXPECT_EQ(section_of(bytes), "x") << int{order};
    }
}

TEST(ModuleStrings, EndAtNulBytesOfAnyNumber) {
    EXPECT_THAT(strings_of("a=1\0b=2\0"s), ElementsAre("a=1", "b=2"));
    EXPECT_THAT(strings_of("a=1\0\0\0\0b=2\0\0"s), ElementsAre("a=1", "b=2"));
}

TEST(ModuleStrings, LastOneMayLackItsNul) {
    EXPECT_THAT(strings_of("a=1\0b"s), ElementsAre("a=1", "b"));
}

TEST(ModuleStrings, LeadingNulBytesMakeAnEmptyString) {
    EXPECT_THAT(strings_of("\0\0a=1\0"s), ElementsAre("", "a=1"));
}

TEST(ModuleStrings, OfAnEmptySectionAreNone) { EXPECT_THAT(strings_of(""), IsEmpty()); }

}  // namespace
