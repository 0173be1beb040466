#include "scenario/names.hpp"

#include <linux/ethtool.h>
#include <linux/sockios.h>

#include <cstring>

namespace kxsim {
namespace {

struct Request {
    const char* name;
    std::uint32_t number;
};

constexpr Request kRequests[] = {
    {"ETHTOOL_GCOALESCE", ETHTOOL_GCOALESCE},
    {"ETHTOOL_GDRVINFO", ETHTOOL_GDRVINFO},
    {"ETHTOOL_GGSO", ETHTOOL_GGSO},
    {"ETHTOOL_GLINK", ETHTOOL_GLINK},
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
    {"ETHTOOL_SCOALESCE", ETHTOOL_SCOALESCE},
    {"ETHTOOL_SGSO", ETHTOOL_SGSO},
    {"ETHTOOL_SMSGLVL", ETHTOOL_SMSGLVL},
    {"ETHTOOL_SPAUSEPARAM", ETHTOOL_SPAUSEPARAM},
    {"ETHTOOL_SRINGPARAM", ETHTOOL_SRINGPARAM},
    {"ETHTOOL_SRXCSUM", ETHTOOL_SRXCSUM},
    {"ETHTOOL_SSET", ETHTOOL_SSET},
    {"ETHTOOL_SSG", ETHTOOL_SSG},
    {"ETHTOOL_STSO", ETHTOOL_STSO},
    {"ETHTOOL_STXCSUM", ETHTOOL_STXCSUM},
    {"ETHTOOL_SWOL", ETHTOOL_SWOL},
    {"SIOCDEVPRIVATE", SIOCDEVPRIVATE},
    {"SIOCSIFMTU", SIOCSIFMTU},
};

constexpr int kLastError = 133;

}  // namespace

std::optional<int> error_number(const std::string& name) {
    for (int error = 1; error <= kLastError; ++error) {
        const char* const known = ::strerrorname_np(error);
        if (known != nullptr && name == known) {
            return error;
        }
    }
    return std::nullopt;
}

std::optional<std::uint32_t> request_number(const std::string& name) {
    for (const Request& request : kRequests) {
        if (name == request.name) {
            return request.number;
        }
    }
    return std::nullopt;
}

}  // namespace kxsim
