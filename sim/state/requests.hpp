// The requests that drivers of network interfaces answer: their names and their values.
#pragma once

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kxsim::state {

// A number in the record that a request carries: that of an Ethernet tool command, else the ifreq.
struct RequestField {
    const char* name;
    std::uint16_t offset;
    std::uint16_t width = 4;        // bytes
    std::uint16_t upper_bytes = 0;  // offset of two further bytes above them; 0: there are none
};

inline constexpr std::size_t kMostRequestFields = 5;

struct Request {
    const char* name;
    std::uint32_t number;                          // the command, or the request itself
    RequestField fields[kMostRequestFields] = {};  // as far as they have a name
};

inline constexpr Request kRequests[] = {
    {"ETHTOOL_GCOALESCE", ETHTOOL_GCOALESCE},
    {"ETHTOOL_GDRVINFO", ETHTOOL_GDRVINFO},
    {"ETHTOOL_GGSO", ETHTOOL_GGSO},
    {"ETHTOOL_GLINK", ETHTOOL_GLINK},
    {"ETHTOOL_GLINKSETTINGS", ETHTOOL_GLINKSETTINGS},
    {"ETHTOOL_GMSGLVL", ETHTOOL_GMSGLVL},
    {"ETHTOOL_GPAUSEPARAM", ETHTOOL_GPAUSEPARAM},
    {"ETHTOOL_GRINGPARAM", ETHTOOL_GRINGPARAM},
    {"ETHTOOL_GRXCSUM", ETHTOOL_GRXCSUM},
    {"ETHTOOL_GSET", ETHTOOL_GSET},
    {"ETHTOOL_GSG", ETHTOOL_GSG},
    {"ETHTOOL_GSTATS", ETHTOOL_GSTATS},
    {"ETHTOOL_GSTRINGS", ETHTOOL_GSTRINGS},
    {"ETHTOOL_GTSO", ETHTOOL_GTSO},
    {"ETHTOOL_GTXCSUM", ETHTOOL_GTXCSUM},
    {"ETHTOOL_GWOL", ETHTOOL_GWOL},
    {"ETHTOOL_NWAY_RST", ETHTOOL_NWAY_RST},
    {"ETHTOOL_SCOALESCE",
     ETHTOOL_SCOALESCE,
     {{"rx_usecs", offsetof(ethtool_coalesce, rx_coalesce_usecs)},
      {"rx_frames", offsetof(ethtool_coalesce, rx_max_coalesced_frames)},
      {"tx_usecs", offsetof(ethtool_coalesce, tx_coalesce_usecs)},
      {"tx_frames", offsetof(ethtool_coalesce, tx_max_coalesced_frames)}}},
    {"ETHTOOL_SGSO", ETHTOOL_SGSO, {{"", offsetof(ethtool_value, data)}}},
    {"ETHTOOL_SLINKSETTINGS",
     ETHTOOL_SLINKSETTINGS,
     {{"autoneg", offsetof(ethtool_link_settings, autoneg), 1},
      {"speed", offsetof(ethtool_link_settings, speed)},
      {"duplex", offsetof(ethtool_link_settings, duplex), 1},
      {"port", offsetof(ethtool_link_settings, port), 1}}},
    {"ETHTOOL_SMSGLVL", ETHTOOL_SMSGLVL, {{"", offsetof(ethtool_value, data)}}},
    {"ETHTOOL_SPAUSEPARAM",
     ETHTOOL_SPAUSEPARAM,
     {{"autoneg", offsetof(ethtool_pauseparam, autoneg)},
      {"rx", offsetof(ethtool_pauseparam, rx_pause)},
      {"tx", offsetof(ethtool_pauseparam, tx_pause)}}},
    {"ETHTOOL_SRINGPARAM",
     ETHTOOL_SRINGPARAM,
     {{"rx", offsetof(ethtool_ringparam, rx_pending)},
      {"mini", offsetof(ethtool_ringparam, rx_mini_pending)},
      {"jumbo", offsetof(ethtool_ringparam, rx_jumbo_pending)},
      {"tx", offsetof(ethtool_ringparam, tx_pending)}}},
    {"ETHTOOL_SRXCSUM", ETHTOOL_SRXCSUM, {{"", offsetof(ethtool_value, data)}}},
    {"ETHTOOL_SSET",
     ETHTOOL_SSET,
     {{"autoneg", offsetof(ethtool_cmd, autoneg), 1},
      {"speed", offsetof(ethtool_cmd, speed), 2, offsetof(ethtool_cmd, speed_hi)},
      {"duplex", offsetof(ethtool_cmd, duplex), 1},
      {"advertising", offsetof(ethtool_cmd, advertising)},
      {"port", offsetof(ethtool_cmd, port), 1}}},
    {"ETHTOOL_SSG", ETHTOOL_SSG, {{"", offsetof(ethtool_value, data)}}},
    {"ETHTOOL_STSO", ETHTOOL_STSO, {{"", offsetof(ethtool_value, data)}}},
    {"ETHTOOL_STXCSUM", ETHTOOL_STXCSUM, {{"", offsetof(ethtool_value, data)}}},
    {"ETHTOOL_SWOL", ETHTOOL_SWOL},
    {"SIOCDEVPRIVATE", SIOCDEVPRIVATE},
    {"SIOCGIFADDR", SIOCGIFADDR},
    {"SIOCGIFBRDADDR", SIOCGIFBRDADDR},
    {"SIOCGIFDSTADDR", SIOCGIFDSTADDR},
    {"SIOCGIFFLAGS", SIOCGIFFLAGS},
    {"SIOCGIFHWADDR", SIOCGIFHWADDR},
    {"SIOCGIFINDEX", SIOCGIFINDEX},
    {"SIOCGIFMAP", SIOCGIFMAP},
    {"SIOCGIFMETRIC", SIOCGIFMETRIC},
    {"SIOCGIFMTU", SIOCGIFMTU},
    {"SIOCGIFNETMASK", SIOCGIFNETMASK},
    {"SIOCGIFTXQLEN", SIOCGIFTXQLEN},
    {"SIOCSIFMTU", SIOCSIFMTU, {{"", offsetof(ifreq, ifr_mtu)}}},
};

// Null for a request that is not in the table.
constexpr const Request* find_request(std::uint32_t number) {
    for (const Request& request : kRequests) {
        if (request.number == number) {
            return &request;
        }
    }
    return nullptr;
}

// Whether a driver may accept a request and ignore it: those that change something.
constexpr bool may_be_ignored(const Request& request) {
    const std::string_view name = request.name;
    return name.starts_with("ETHTOOL_S") || name == "ETHTOOL_NWAY_RST" || name == "SIOCSIFMTU";
}

// A field of the record that a request carries.
inline std::uint32_t field_of(const void* record, const RequestField& field) {
    const auto* const bytes = static_cast<const unsigned char*>(record);
    std::uint32_t value = 0;
    std::memcpy(&value, bytes + field.offset, field.width);
    if (field.upper_bytes != 0) {
        std::uint16_t upper = 0;
        std::memcpy(&upper, bytes + field.upper_bytes, sizeof upper);
        value |= std::uint32_t{upper} << 16;
    }
    return value;
}

}  // namespace kxsim::state
