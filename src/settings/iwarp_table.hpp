// The iWARP parameters: one row for each module parameter file, shared by setting and reading. The
// order of the rows is the order in which settings are applied.
#pragma once

#include <kxlinhw/iwarp.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kx::settings {

struct IwarpParameter {
    const char* name;         // of the parameter file
    std::size_t offset;       // of the field in IwarpProps
    uint64_t change_bit;      // of the record's change mask
    std::size_t zfab3_place;  // position in the order of reading iw_zfab3, from 1; 0: never read
    std::size_t zfab4_place;  // the same for iw_zfab4
};

#define KX_NAMED(field) #field, offsetof(IwarpProps, field)

inline constexpr auto kIwarpParameters = std::to_array<IwarpParameter>({
    {KX_NAMED(allow_nonroot_rawqps), KX_IWARP_ALLOW_NONROOT_RAWQPS, 0, 1},
    {KX_NAMED(z4iw_debug), KX_IWARP_DEBUG, 0, 2},
    {KX_NAMED(z4iw_max_read_depth), KX_IWARP_MAX_READ_DEPTH, 0, 3},
    {KX_NAMED(crc_enabled), KX_IWARP_CRC_ENABLED, 5, 4},
    {KX_NAMED(cong_flavor), KX_IWARP_CONG_FLAVOR, 9, 0},
    {KX_NAMED(dack_mode), KX_IWARP_DACK_MODE, 0, 5},
    {KX_NAMED(db_delay_usecs), KX_IWARP_DB_DELAY_USECS, 0, 6},
    {KX_NAMED(db_fc_drain_thresh), KX_IWARP_DB_FC_DRAIN_THRESH, 0, 7},
    {KX_NAMED(db_fc_resume_delay), KX_IWARP_DB_FC_RESUME_DELAY, 0, 8},
    {KX_NAMED(db_fc_resume_size), KX_IWARP_DB_FC_RESUME_SIZE, 0, 9},
    {KX_NAMED(enable_ecn), KX_IWARP_ENABLE_ECN, 0, 10},
    {KX_NAMED(enable_tcp_timestamps), KX_IWARP_ENABLE_TCP_TIMESTAMPS, 0, 12},
    {KX_NAMED(enable_tcp_sack), KX_IWARP_ENABLE_TCP_SACK, 0, 11},
    {KX_NAMED(enable_tcp_window_scaling), KX_IWARP_ENABLE_TCP_WINDOW_SCALING, 0, 13},
    {KX_NAMED(ep_timeout_secs), KX_IWARP_EP_TIMEOUT_SECS, 2, 14},
    {KX_NAMED(fastreg_support), KX_IWARP_FASTREG_SUPPORT, 0, 15},
    {KX_NAMED(inline_threshold), KX_IWARP_INLINE_THRESHOLD, 0, 16},
    {KX_NAMED(map_udb_as_wc), KX_IWARP_MAP_UDB_AS_WC, 0, 17},
    {KX_NAMED(markers_enabled), KX_IWARP_MARKERS_ENABLED, 4,
     0},  // written for iw_zfab4, never read
    {KX_NAMED(mpa_rev), KX_IWARP_MPA_REV, 3, 19},
    {KX_NAMED(max_fr_immd), KX_IWARP_MAX_FR_IMMD, 0, 18},
    {KX_NAMED(nocong), KX_IWARP_NOCONG, 8, 20},
    {KX_NAMED(ocqp_support), KX_IWARP_OCQP_SUPPORT, 0, 21},
    {KX_NAMED(peer2peer), KX_IWARP_PEER2PEER, 1, 23},
    {KX_NAMED(p2p_type), KX_IWARP_P2P_TYPE, 0, 22},
    {KX_NAMED(relaxed_ird_negotiation), KX_IWARP_RELAXED_IRD_NEGOTIATION, 0, 25},
    {KX_NAMED(relaxed_ordering), KX_IWARP_RELAXED_ORDERING, 0, 26},
    {KX_NAMED(rcv_win), KX_IWARP_RCV_WIN, 6, 24},
    {KX_NAMED(snd_win), KX_IWARP_SND_WIN, 7, 27},
    {KX_NAMED(q5_en_wc), KX_IWARP_Q5_EN_WC, 0, 28},
    {KX_NAMED(use_dsgl), KX_IWARP_USE_DSGL, 0, 29},
});

#undef KX_NAMED

inline constexpr std::size_t kZfab3Read = 9;
inline constexpr std::size_t kZfab4Read = 29;

// The rows that are read for a module, in the order of reading.
template <std::size_t kCount>
consteval std::array<IwarpParameter, kCount> in_reading_order(std::size_t IwarpParameter::*place) {
    std::array<IwarpParameter, kCount> rows{};
    for (const IwarpParameter& row : kIwarpParameters) {
        if (row.*place != 0) {
            IwarpParameter& slot = rows.at(row.*place - 1);
            slot = slot.name == nullptr ? row : throw "a place is taken twice";
        }
    }
    return rows;
}

inline constexpr auto kZfab3Readings = in_reading_order<kZfab3Read>(&IwarpParameter::zfab3_place);
inline constexpr auto kZfab4Readings = in_reading_order<kZfab4Read>(&IwarpParameter::zfab4_place);

// A module, the bits of the change mask that it lacks, the message when one of them is set, and the
// rows that are read for it.
struct IwarpModule {
    const char* name;
    uint64_t forbidden;
    const char* refusal;
    std::span<const IwarpParameter> readings;
};

inline constexpr std::array<IwarpModule, 2> kIwarpModules{{
    {"iw_zfab3", KX_IWARP_ZFAB3_FORBIDDEN, "Invalid iw_zfab3 driver parameters", kZfab3Readings},
    {"iw_zfab4", KX_IWARP_ZFAB4_FORBIDDEN, "Invalid iw_zfab4 driver parameters", kZfab4Readings},
}};

}  // namespace kx::settings
