// One table for each generation. All adapters of a generation have this layout, so an offset never
// changes.
#include "adapter/vpd_template.hpp"

#include <kxlinhw/vpd.h>

#include <algorithm>
#include <cstring>
#include <numeric>

#include "support/byte_reader.hpp"

namespace kx::adapter {
namespace {

constexpr VpdHeader tag(uint16_t offset, uint8_t name, uint16_t length) {
    return {offset, {name, static_cast<uint8_t>(length & 0xFF), static_cast<uint8_t>(length >> 8)}};
}

constexpr VpdHeader keyword(uint16_t offset, const char (&name)[3], uint8_t length) {
    return {offset, {static_cast<uint8_t>(name[0]), static_cast<uint8_t>(name[1]), length}};
}

constexpr uint8_t kIdentifierTag = 0x82;
constexpr uint8_t kReadOnlyTag = 0x90;
constexpr uint8_t kReadWriteTag = 0x91;
constexpr uint8_t kEndTag = 0x78;

constexpr VpdHeader kQ4Headers[] = {
    tag(0, kIdentifierTag, 16),
    tag(19, kReadOnlyTag, 234),
    keyword(22, "PN", 16),
    keyword(41, "EC", 16),
    keyword(60, "SL", 24),
    keyword(87, "NA", 12),
    keyword(102, "V0", 8),
    keyword(113, "V1", 32),
    keyword(148, "V2", 6),
    keyword(157, "V3", 8),
    keyword(168, "V4", 2),
    keyword(173, "V5", 8),
    keyword(184, "V6", 8),
    keyword(195, "V7", 24),
    keyword(222, "V8", 24),
    keyword(249, "V9", 24),
    keyword(276, "VA", 24),
    keyword(330, "RV", 80),  // the 27 bytes before it belong to no keyword and do not change
    tag(413, kReadWriteTag, 252),
    keyword(416, "VC", 24),
    keyword(443, "VD", 24),
    keyword(470, "VE", 24),
    keyword(497, "VF", 8),
    keyword(508, "RW", 173),
};

constexpr VpdHeader kQ3Headers[] = {
    tag(0, kIdentifierTag, 16),   tag(19, kReadOnlyTag, 234), keyword(22, "PN", 16),
    keyword(41, "EC", 16),        keyword(60, "SL", 16),      keyword(79, "NA", 12),
    keyword(94, "V0", 6),         keyword(103, "V1", 6),      keyword(112, "V2", 6),
    keyword(121, "V3", 6),        keyword(130, "V4", 2),      keyword(135, "V5", 6),
    keyword(144, "V6", 6),        keyword(153, "V7", 2),      keyword(158, "V8", 2),
    keyword(163, "V9", 2),        keyword(168, "VA", 2),      keyword(173, "RV", 80),
    tag(256, kReadWriteTag, 252), keyword(259, "VC", 16),     keyword(278, "VD", 16),
    keyword(297, "VE", 16),       keyword(316, "VF", 16),     keyword(335, "RW", 173),
};

void write_template(const VpdTemplate& layout, uint8_t* vpd) {
    for (const VpdHeader& header : layout.headers) {
        std::memcpy(vpd + header.offset, header.bytes, sizeof header.bytes);
    }
    for (const VpdZeros& zeros : layout.reserved) {
        std::memset(vpd + zeros.offset, 0, zeros.length);
    }
    vpd[layout.end] = kEndTag;
}

// Readers check that all bytes through the checksum sum up to 0xFF.
void write_checksum(const VpdTemplate& layout, uint8_t* vpd) {
    const unsigned sum = std::accumulate(vpd, vpd + layout.checksum, 0U);
    vpd[layout.checksum] = static_cast<uint8_t>(~sum & 0xFF);
}

}  // namespace

constexpr VpdTemplate kQ4VpdTemplate{kQ4Headers, 333, {{334, 79}, {511, 173}}, 684};
constexpr VpdTemplate kQ3VpdTemplate{kQ3Headers, 176, {{177, 79}, {338, 173}}, 511};

static_assert(kQ4VpdTemplate.end + 1 == KX_Q4_VPD_SIZE, "the end tag is the last byte");
static_assert(kQ3VpdTemplate.end + 1 == KX_Q3_VPD_SIZE, "the end tag is the last byte");

std::string_view vpd_value(
    const VpdTemplate& layout, std::span<const uint8_t> vpd, std::string_view keyword) {
    for (const VpdHeader& header : layout.headers) {
        if (header.is(keyword)) {
            ByteReader reader(vpd);
            const uint64_t length = reader.at(header.value() - 1).number(1);
            return reader.text_up_to(length);
        }
    }
    return {};
}

std::string_view vpd_identifier(std::span<const uint8_t> vpd) {
    ByteReader reader(vpd);
    const uint64_t length = reader.at(1).number(2);
    return reader.text_up_to(length);
}

}  // namespace kx::adapter

extern "C" {

void vpd_init_Q4(void* vpd) {
    if (vpd != nullptr) {
        kx::adapter::write_template(kx::adapter::kQ4VpdTemplate, static_cast<uint8_t*>(vpd));
    }
}

void vpd_init_Q3(void* vpd) {
    if (vpd != nullptr) {
        kx::adapter::write_template(kx::adapter::kQ3VpdTemplate, static_cast<uint8_t*>(vpd));
    }
}

void vpd_chksum_Q4(void* vpd) {
    if (vpd != nullptr) {
        kx::adapter::write_checksum(kx::adapter::kQ4VpdTemplate, static_cast<uint8_t*>(vpd));
    }
}

void vpd_chksum_Q3(void* vpd) {
    if (vpd != nullptr) {
        kx::adapter::write_checksum(kx::adapter::kQ3VpdTemplate, static_cast<uint8_t*>(vpd));
    }
}

}  // extern "C"
