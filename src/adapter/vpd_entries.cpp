// VPD without a fixed layout: the keywords of Q5 adapters may be in any order. The data are
// untrusted; every length is checked against the bytes that were read.
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/vpd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "support/byte_reader.hpp"
#include "support/text.hpp"

namespace kx::adapter {
namespace {

constexpr std::size_t kHeader = 3;  // of a tag, and of a keyword
constexpr int kDefaultEnd = 425;

static_assert(sizeof(KxVpdEntry) == 257, "agents walk the entries by their size");
static_assert(
    KX_VPD_MOST_ENTRIES >= 1 + (KX_VPD_READ_SIZE - 2 * kHeader) / kHeader,
    "an entry for the product and one for each keyword of no length");

struct KnownKeyword {
    std::string_view name;
    KxVpdIndex index;
};

constexpr KnownKeyword kKnownKeywords[] = {
    {"PN", KX_VPD_PART}, {"SN", KX_VPD_SERIAL}, {"NA", KX_VPD_MAC},
    {"V0", KX_VPD_V0},   {"V5", KX_VPD_V5},
};

class Entries {
public:
    explicit Entries(void* out) : out_(static_cast<char*>(out)) {}

    // A value has 255 characters at most, as its length is a byte.
    void add(KxVpdIndex index, std::string_view value) {
        KxVpdEntry entry{};
        entry.index = static_cast<uint8_t>(index);
        std::memcpy(entry.value, value.data(), value.size());
        std::memcpy(out_ + count_ * sizeof entry, &entry, sizeof entry);
        ++count_;
    }

    [[nodiscard]] uint32_t count() const { return static_cast<uint32_t>(count_); }

private:
    char* out_;
    std::size_t count_ = 0;
};

void add_keyword(Entries& entries, std::string_view name, std::string_view value) {
    for (const KnownKeyword& known : kKnownKeywords) {
        if (known.name == name) {
            entries.add(known.index, value);
        }
    }
}

// The end of the read-only part. Only the low byte of its start is used; a part that seems empty
// gets the usual length.
std::size_t end_of_part(std::size_t start, int length) {
    const int end = static_cast<int>(start % 256) + length - 1;
    return static_cast<std::size_t>(std::max(end == 0 ? kDefaultEnd : end, 0));
}

struct Field {
    std::size_t offset;
    std::size_t width;
};

// The field for an entry's value, by its index.
constexpr Field kFields[] = {
    {offsetof(AdapterInfoRecord, product_name), sizeof AdapterInfoRecord::product_name},
    {offsetof(AdapterInfoRecord, part_number), sizeof AdapterInfoRecord::part_number},
    {offsetof(AdapterInfoRecord, serial_number), sizeof AdapterInfoRecord::serial_number},
    {offsetof(AdapterInfoRecord, mac), sizeof AdapterInfoRecord::mac},
    {offsetof(AdapterInfoRecord, v0), sizeof AdapterInfoRecord::v0},
    {offsetof(AdapterInfoRecord, v5), sizeof AdapterInfoRecord::v5},
};

}  // namespace
}  // namespace kx::adapter

extern "C" {

void parse_vpd(const void* vpd, void* entries, uint32_t* count) {
    using namespace kx::adapter;
    if (vpd == nullptr || entries == nullptr || count == nullptr) {
        return;
    }
    const std::span<const uint8_t> bytes(static_cast<const uint8_t*>(vpd), KX_VPD_READ_SIZE);
    Entries found(entries);
    kx::ByteReader reader(bytes);
    const std::size_t product_length = bytes[1];
    found.add(KX_VPD_PRODUCT, reader.at(kHeader).text_up_to(product_length));
    const std::size_t start = kHeader + product_length + kHeader;
    const auto length = static_cast<int>(reader.at(start - 2).number(2));
    const std::size_t end = std::min(end_of_part(start, length), bytes.size() - kHeader + 1);
    for (std::size_t place = start; place < end; place = reader.place()) {
        const std::string_view name = reader.at(place).text_up_to(2);
        add_keyword(found, name, reader.text_up_to(reader.number(1)));
    }
    *count = found.count();
}

void copy_vpd_fields(const void* entries, uint32_t count, void* record) {
    using namespace kx::adapter;
    if (entries == nullptr || record == nullptr) {
        return;
    }
    const std::span<const KxVpdEntry> all(static_cast<const KxVpdEntry*>(entries), count);
    for (const KxVpdEntry& entry : all) {
        if (entry.index < std::size(kFields)) {
            const Field& field = kFields[entry.index];
            const std::size_t length = kx::field_text(entry.value).size() + 1;
            std::memcpy(
                static_cast<char*>(record) + field.offset, entry.value,
                std::min({length, field.width, sizeof entry.value}));
        }
    }
}

}  // extern "C"
