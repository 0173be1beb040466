#include "settings/port_driver.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <kxlinhw/inventory.h>
#include <kxlinhw/port.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "library/call.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl {
namespace {

constexpr std::size_t kLargestRecord = 256;  // of the reading commands of the table of settings

ExitCode code_of_errno(int reason) {
    switch (reason) {
        case EBUSY:
            return ExitCode::kBusy;
        case EOPNOTSUPP:
            return ExitCode::kNotSupported;
        case EPERM:
        case EACCES:
            return ExitCode::kNoPermission;
        case ENODEV:
            return ExitCode::kNotFound;
        default:
            return ExitCode::kFailed;
    }
}

Refusal refusal_of_errno(const std::string& subject, int reason) {
    const ExitCode code = code_of_errno(reason);
    std::string text = fmt::format("{}: {}", subject, std::strerror(reason));
    if (code == ExitCode::kNoPermission) {
        if (const auto known =
                missing_privilege(Privilege::kNetworkAdmin, read_security_context())) {
            text += ": " + *known;
        }
    }
    return {code, text};
}

// Why a setter refused. Some of its messages do not tell the reason, which is errno then.
Refusal refusal_of_setter(const std::string& subject, int status, int reason) {
    std::string text;
    for (const std::string& message : split_detail(GetErrStr(KX_SET_FAILED))) {
        text += (text.empty() ? "" : "; ") + message;
    }
    const bool tells_nothing = text.empty() || text.ends_with(GetErrStr(KX_UNKNOWN_ERROR));
    if (reason != 0 && tells_nothing) {
        return refusal_of_errno(subject, reason);
    }
    if (tells_nothing) {
        const char* const known = GetErrStr(status);
        text = subject + ": " + (known != nullptr ? known : GetErrStr(KX_UNKNOWN_ERROR));
    }
    const bool of_driver = reason != 0 && text.ends_with(std::strerror(reason));
    return {of_driver ? code_of_errno(reason) : ExitCode::kFailed, text};
}

struct SpeedModes {
    std::uint16_t speed;
    std::uint32_t modes;
};

// Faster speeds also have modes that do not fit the mask.
constexpr SpeedModes kSpeedModes[] = {
    {10, SUPPORTED_10baseT_Half | SUPPORTED_10baseT_Full},
    {100, SUPPORTED_100baseT_Half | SUPPORTED_100baseT_Full},
    {1000, SUPPORTED_1000baseT_Half | SUPPORTED_1000baseT_Full | SUPPORTED_1000baseKX_Full},
};

bool is_open(const ChangeLine& line) { return !line.refused && line.skipped.empty(); }

}  // namespace

PortDriver::PortDriver(std::string interface_name)
    : interface_(std::move(interface_name)),
      socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      no_socket_(socket_ ? 0 : errno) {}

int PortDriver::ask(std::uint32_t command, std::span<unsigned char> record) const {
    if (!socket_) {
        return no_socket_;
    }
    ifreq request{};
    interface_.copy(request.ifr_name, sizeof request.ifr_name - 1);
    std::memcpy(record.data(), &command, sizeof command);
    request.ifr_data = reinterpret_cast<char*>(record.data());
    return ioctl(socket_.get(), SIOCETHTOOL, &request) == 0 ? 0 : errno;
}

PortInfo PortDriver::read() const {
    PortInfo port{};
    call_library([&] {
        static_cast<void>(getAddress(interface_.c_str(), &port));
        static_cast<void>(getPortParameters(interface_.c_str(), &port));
        return 0;
    });
    return port;
}

std::string PortDriver::permanent_mac() const {
    constexpr std::size_t kMacBytes = 6;
    constexpr std::uint32_t kLongestAddress = 32;  // of the kernel's
    ethtool_perm_addr head{};
    head.size = kLongestAddress;
    alignas(std::uint64_t) std::array<unsigned char, kLargestRecord> record{};
    std::memcpy(record.data(), &head, sizeof head);
    if (ask(ETHTOOL_GPERMADDR, record) != 0) {
        return "";
    }
    std::memcpy(&head, record.data(), sizeof head);
    const std::span address = std::span(record).subspan(sizeof head, kMacBytes);
    const bool told = std::ranges::any_of(address, [](unsigned char byte) { return byte != 0; });
    return head.size == kMacBytes && told ? fmt::format("{:02x}", fmt::join(address, ":")) : "";
}

std::optional<Refusal> PortDriver::refusal_of_speed(const PortSettings& wanted) const {
    const Setting& speed = port_setting("speed");
    if (std::ranges::find(speed.choices, wanted.speed) == speed.choices.end()) {
        return Refusal{
            ExitCode::kFailed,
            fmt::format("speed cannot be {}: {}", wanted.speed, speed.description())};
    }
    const auto* const row = std::ranges::find(kSpeedModes, wanted.speed, &SpeedModes::speed);
    alignas(ethtool_cmd) std::array<unsigned char, kLargestRecord> record{};
    if (row == std::end(kSpeedModes) || ask(ETHTOOL_GSET, record) != 0) {
        return std::nullopt;
    }
    ethtool_cmd link;
    std::memcpy(&link, record.data(), sizeof link);
    std::uint32_t all_modes = SUPPORTED_10000baseT_Full;
    for (const SpeedModes& each : kSpeedModes) {
        all_modes |= each.modes;
    }
    // Drivers without any known mode accept what they like.
    if ((link.supported & all_modes) == 0 || (link.supported & row->modes) != 0) {
        return std::nullopt;
    }
    return Refusal{
        ExitCode::kNotSupported, fmt::format("{} has no {} Mb/s", interface_, wanted.speed)};
}

std::optional<Refusal> PortDriver::refusal(
    const ChangeLine& line, const PortInfo& port, const PortSettings& wanted) const {
    const Setting& setting = *line.setting;
    if (setting.reads != 0) {
        alignas(std::uint64_t) std::array<unsigned char, kLargestRecord> record{};
        const int reason = ask(setting.reads, record);
        if (reason == EOPNOTSUPP) {
            return Refusal{
                ExitCode::kNotSupported,
                fmt::format("The driver of {} does not have {}", interface_, setting.key)};
        }
        if (reason != 0) {
            return refusal_of_errno(
                fmt::format("{} of {} cannot be read", setting.key, interface_), reason);
        }
    }
    if (const auto limit = setting.limit_in(port); limit && line.wanted > *limit) {
        return *limit == 0
                   ? Refusal{ExitCode::kNotSupported, fmt::format("The driver of {} does not have {}", interface_, setting.key)}
                   : Refusal{ExitCode::kFailed, fmt::format("{} cannot be {}: the driver's limit is {}", setting.key, line.wanted, *limit)};
    }
    const bool forced = wanted.autoneg == 0;
    if (setting.change_bit == KX_PORT_LINK) {
        return forced ? refusal_of_speed(wanted) : std::nullopt;
    }
    const bool needs_negotiation =
        setting.change_bit == KX_PORT_ADVERTISE || setting.change_bit == KX_PORT_RESTART_AUTONEG;
    if (forced && needs_negotiation) {
        return Refusal{ExitCode::kFailed, fmt::format("{} needs autoneg=on", setting.key)};
    }
    return std::nullopt;
}

void PortDriver::refuse(
    std::span<ChangeLine> lines, const PortInfo& port, const PortSettings& wanted) const {
    for (ChangeLine& line : lines) {
        if (!is_open(line)) {
            continue;
        }
        line.refused = refusal(line, port, wanted);
        if (line.refused && line.refused->code == ExitCode::kNotSupported) {
            line.before.reset();
        }
    }
    // Speed and duplex are set with auto-negotiation or not at all.
    const auto refused = std::ranges::find_if(lines, [](const ChangeLine& line) {
        return line.refused && line.setting->change_bit == KX_PORT_LINK;
    });
    for (ChangeLine& line : lines) {
        if (refused != lines.end() && is_open(line) && line.setting->change_bit == KX_PORT_LINK) {
            line.refused = refused->refused;
        }
    }
}

void PortDriver::apply(std::span<ChangeLine> lines, PortSettings& wanted) const {
    for (const Setting& first : port_settings()) {
        std::vector<ChangeLine*> group;
        std::uint32_t mask = 0;
        for (ChangeLine& line : lines) {
            if (is_open(line) && set_together(*line.setting, first)) {
                group.push_back(&line);
                mask |= static_cast<std::uint32_t>(line.setting->change_bit);
            }
        }
        const bool begins = std::ranges::none_of(
            port_settings().first(static_cast<std::size_t>(&first - port_settings().data())),
            [&](const Setting& earlier) { return set_together(earlier, first); });
        if (group.empty() || !begins) {
            continue;
        }
        std::memset(errStr, 0, KX_DETAIL_SIZE);
        int reason = 0;
        const int status = call_library([&] {
            errno = 0;
            const int result = first.setter(interface_.c_str(), &wanted, mask);
            reason = errno;
            return result;
        });
        for (ChangeLine* const line : group) {
            if (status != 0) {
                line->refused = refusal_of_setter(
                    fmt::format("{} of {}", line->setting->key, interface_), status, reason);
            }
        }
    }
}

}  // namespace kx::ctl
