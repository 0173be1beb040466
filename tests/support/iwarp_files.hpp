// The files of the RDMA modules' parameters, in the order in which they are read.
#pragma once

#include <string>
#include <vector>

namespace test {

inline const std::vector<std::string> kZfab3IwarpFiles = {
    "peer2peer", "ep_timeout_secs", "mpa_rev", "markers_enabled", "crc_enabled",
    "rcv_win",   "snd_win",         "nocong",  "cong_flavor"};

inline const std::vector<std::string> kZfab4IwarpFiles = {
    "allow_nonroot_rawqps",
    "z4iw_debug",
    "z4iw_max_read_depth",
    "crc_enabled",
    "dack_mode",
    "db_delay_usecs",
    "db_fc_drain_thresh",
    "db_fc_resume_delay",
    "db_fc_resume_size",
    "enable_ecn",
    "enable_tcp_sack",
    "enable_tcp_timestamps",
    "enable_tcp_window_scaling",
    "ep_timeout_secs",
    "fastreg_support",
    "inline_threshold",
    "map_udb_as_wc",
    "max_fr_immd",
    "mpa_rev",
    "nocong",
    "ocqp_support",
    "p2p_type",
    "peer2peer",
    "rcv_win",
    "relaxed_ird_negotiation",
    "relaxed_ordering",
    "snd_win",
    "q5_en_wc",
    "use_dsgl"};

}  // namespace test
