// The offload engine's parameters: one row for each control file, shared by the query that reads
// them and by the setters. The order of the rows is the order in which settings are applied.
#pragma once

#include <kxlinhw/records.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

#include "support/paths.hpp"

namespace kx {

struct OffloadParameter {
    const char* name;           // of the control file
    uint8_t offset;             // of the field in CardParams
    uint8_t width;              // of the field in bytes; fields are signed
    uint32_t change_bit;        // of the card's change mask
    int64_t min;                // smallest value that may be set
    int64_t max;                // largest value that may be set
    std::size_t reading_place;  // position in the order of reading, from 1; 0: never read
};

namespace offload_rows {

inline constexpr int64_t kLeast = INT32_MIN;
inline constexpr int64_t kMost = INT32_MAX;

constexpr uint32_t bit(unsigned number) { return uint32_t{1} << number; }

// Each field has the name of its control file, except the field that two control files share.
#define KX_PLACE(field) offsetof(CardParams, field), sizeof(CardParams::field)
#define KX_NAMED(field) #field, KX_PLACE(field)

inline constexpr auto kRows = std::to_array<OffloadParameter>({
    {KX_NAMED(activated), bit(1), 0, 1, 20},
    {KX_NAMED(max_host_sndbuf), bit(2), 0, kMost, 1},
    {KX_NAMED(tx_hold_thres), bit(3), 0, kMost, 2},
    {KX_NAMED(max_wr), bit(4), 3, kMost, 3},
    {"max_wr_credits", KX_PLACE(max_wr), bit(23), 3, kMost, 0},
    {KX_NAMED(rx_credit_thres), bit(5), 1, kMost, 4},
    {KX_NAMED(failover_alg), bit(6), -1, 3, 5},
    {KX_NAMED(mss), bit(7), 1, 1048576, 6},
    {KX_NAMED(delayed_ack), bit(8), 0, 3, 7},
    {KX_NAMED(max_conn), bit(9), -1, kMost, 8},
    {KX_NAMED(soft_backlog_limit), bit(10), 0, 1, 9},
    {KX_NAMED(ddp), bit(11), 0, 1, 10},
    {KX_NAMED(ddp_thres), bit(12), kLeast, kMost, 12},
    {KX_NAMED(recvmsg_spin_us), bit(13), kLeast, kMost, 21},  // a byte, though its range is wider
    {KX_NAMED(ddp_push_wait), bit(14), kLeast, kMost, 13},
    {KX_NAMED(ddp_rcvcoalesce), bit(15), kLeast, kMost, 14},
    {KX_NAMED(zcopy_sendmsg_partial_thres), bit(16), kLeast, kMost, 15},
    {KX_NAMED(zcopy_sendmsg_partial_copy), bit(17), kLeast, kMost, 16},
    {KX_NAMED(zcopy_sendmsg_thres), bit(18), kLeast, kMost, 17},
    {KX_NAMED(zcopy_sendmsg_copy), bit(19), kLeast, kMost, 18},
    {KX_NAMED(zcopy_sendmsg_ret_pending_dma), bit(20), kLeast, kMost, 19},
    {KX_NAMED(kseg_ddp), bit(21), kLeast, kMost, 11},
    {KX_NAMED(cop_managed_offloading), bit(22), 0, 1, 22},
});

#undef KX_NAMED
#undef KX_PLACE

inline constexpr std::size_t kRead = 22;  // rows that the query reads

constexpr std::array<OffloadParameter, kRead> in_reading_order() {
    std::array<OffloadParameter, kRead> rows{};
    for (const OffloadParameter& row : kRows) {
        if (row.reading_place != 0) {
            rows.at(row.reading_place - 1) = row;
        }
    }
    return rows;
}

}  // namespace offload_rows

// All rows; the first is "activated", which is set separately, before the others.
inline constexpr std::span<const OffloadParameter> kOffloadParameters{offload_rows::kRows};
inline constexpr const OffloadParameter& kOffloadActivation = offload_rows::kRows.front();

// The rows that one walk of the setters applies, in its order.
inline constexpr auto kOffloadSettings = kOffloadParameters.subspan<1>();

// The rows that the query reads, in its order.
inline constexpr auto kOffloadReadings = offload_rows::in_reading_order();

static_assert(
    std::ranges::none_of(kOffloadReadings, [](const auto& row) { return row.name == nullptr; }),
    "every place of the reading order belongs to a row");
static_assert(std::endian::native == std::endian::little, "a field's low bytes come first");

// The field of a row, sign-extended.
[[nodiscard]] inline int64_t offload_value(const CardParams& params, const OffloadParameter& row) {
    uint64_t raw = 0;
    std::memcpy(&raw, reinterpret_cast<const char*>(&params) + row.offset, row.width);
    const int unused_bits = 64 - 8 * row.width;
    return static_cast<int64_t>(raw << unused_bits) >> unused_bits;
}

// Store the low bytes of a value in the field of a row.
inline void set_offload_value(CardParams& params, const OffloadParameter& row, int64_t value) {
    std::memcpy(reinterpret_cast<char*>(&params) + row.offset, &value, row.width);
}

// The directory with the control files of the offload device with that index, and the path of one
// of them.
[[nodiscard]] inline std::string offload_directory(int device_index) {
    return kOffloadControl + std::to_string(device_index) + kOffloadControlEnd;
}

[[nodiscard]] inline std::string offload_file(int device_index, const char* name) {
    return offload_directory(device_index) + "/" + name;
}

}  // namespace kx
