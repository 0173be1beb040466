// What interface requests say, as drivers get them. Include it in one file of a test program: it
// stands in front of ioctl, writes every interface request down and passes it on.
#pragma once

#include <dlfcn.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

namespace test {

// The requests since the last clear, one line each: its command, its interface, what it carries.
class RequestSpy {
public:
    static std::vector<std::string>& lines() {
        static std::vector<std::string> lines;
        return lines;
    }
    // The name fields of those requests, all sixteen bytes.
    static std::vector<std::string>& names() {
        static std::vector<std::string> names;
        return names;
    }
    static void clear() {
        lines().clear();
        names().clear();
    }

    static void write_down(unsigned long code, const ifreq& request) {
        names().emplace_back(request.ifr_name, sizeof request.ifr_name);
        const std::string name(request.ifr_name, strnlen(request.ifr_name, IFNAMSIZ));
        if (code == SIOCSIFMTU) {
            lines().push_back("SIOCSIFMTU " + name + " " + std::to_string(request.ifr_mtu));
        } else if (code == SIOCETHTOOL) {
            lines().push_back(ethtool_line(name, request.ifr_data));
        } else if (code == SIOCDEVPRIVATE) {
            lines().push_back("SIOCDEVPRIVATE " + name);
        }
    }

private:
    template <class Record>
    static Record read(const void* data) {
        Record record;
        std::memcpy(&record, data, sizeof record);
        return record;
    }

    static std::string with_value(const char* command, const std::string& name, const void* data) {
        return std::string(command) + " " + name + " " +
               std::to_string(read<ethtool_value>(data).data);
    }

    static std::string ethtool_line(const std::string& name, const void* data) {
        const auto number = [](auto value) { return std::to_string(value); };
        switch (const auto command = read<std::uint32_t>(data); command) {
            case 0x15:
                return with_value("SRXCSUM", name, data);
            case 0x17:
                return with_value("STXCSUM", name, data);
            case 0x19:
                return with_value("SSG", name, data);
            case 0x1f:
                return with_value("STSO", name, data);
            case 0x24:
                return with_value("SGSO", name, data);
            case 0x08:
                return with_value("SMSGLVL", name, data);
            case 0x09:
                return "NWAY_RST " + name;
            case 0x01:
                return "GSET " + name;
            case 0x02: {
                const auto link = read<ethtool_cmd>(data);
                return "SSET " + name + " autoneg " + number(link.autoneg) + " speed " +
                       number(ethtool_cmd_speed(&link)) + " duplex " + number(link.duplex) +
                       " advertising " + number(link.advertising) + " port " + number(link.port);
            }
            case 0x10:
                return "GRINGPARAM " + name;
            case 0x11: {
                const auto rings = read<ethtool_ringparam>(data);
                return "SRINGPARAM " + name + " rx " + number(rings.rx_pending) + " mini " +
                       number(rings.rx_mini_pending) + " jumbo " + number(rings.rx_jumbo_pending) +
                       " tx " + number(rings.tx_pending);
            }
            case 0x12:
                return "GPAUSEPARAM " + name;
            case 0x13: {
                const auto pause = read<ethtool_pauseparam>(data);
                return "SPAUSEPARAM " + name + " autoneg " + number(pause.autoneg) + " rx " +
                       number(pause.rx_pause) + " tx " + number(pause.tx_pause);
            }
            case 0x0e:
                return "GCOALESCE " + name;
            case 0x0f: {
                const auto wanted = read<ethtool_coalesce>(data);
                return "SCOALESCE " + name + " rx_usecs " + number(wanted.rx_coalesce_usecs) +
                       " rx_frames " + number(wanted.rx_max_coalesced_frames) + " tx_usecs " +
                       number(wanted.tx_coalesce_usecs) + " tx_frames " +
                       number(wanted.tx_max_coalesced_frames);
            }
            default:
                return "ethtool " + number(command) + " " + name;
        }
    }
};

}  // namespace test

extern "C" __attribute__((visibility("default"))) int ioctl(
    int descriptor, unsigned long code, ...) noexcept {
    using Call = int (*)(int, unsigned long, ...);
    static const auto next = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "ioctl"));
    std::va_list values;
    va_start(values, code);
    void* const data = va_arg(values, void*);
    va_end(values);
    if (code == SIOCETHTOOL || code == SIOCSIFMTU || code == SIOCDEVPRIVATE) {
        test::RequestSpy::write_down(code, *static_cast<const ifreq*>(data));
    }
    return next(descriptor, code, data);
}
