#include "change/plan.hpp"

#include <fmt/core.h>
#include <fnmatch.h>
#include <kxlinhw/settings.h>

#include <algorithm>
#include <map>
#include <set>

#include "change/session.hpp"
#include "cli/suggestion.hpp"
#include "failure/failure.hpp"
#include "settings/port_driver.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl {
namespace {

bool fits(const std::string& pattern, const std::string& text) {
    return pattern.empty() || fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

bool fits(const PortPatterns& patterns, const HostInterface& interface) {
    return fits(patterns.interface, interface.name) &&
           (fits(patterns.location, interface.location->text()) ||
            fits(patterns.location, interface.location->full_text()));
}

bool fits(const PortPatterns& patterns, const HostPort& port) {
    return fits(patterns.chip, port.chip) && fits(patterns.model, port.model) &&
           fits(patterns, port.identity);
}

bool fits(const NamedPort& named, const HostPort& port) {
    return (named.interface.empty() || named.interface == port.identity.name) &&
           (named.mac.empty() || named.mac == port.mac()) &&
           (!named.location ||
            (named.location->matches(*port.identity.location) && named.instance == port.instance));
}

using PortIndex = std::multimap<std::string, std::size_t, std::less<>>;

// What the tables of a file want of one port; a later table wins.
using WantedByKey = std::map<const Setting*, WantedSetting>;

class Planner {
public:
    Planner(StateFile& file, const HostPorts& host)
        : file_(file), host_(host), session_(session_interfaces()) {
        for (std::size_t i = 0; i < host.ports.size(); ++i) {
            const HostPort& port = host.ports[i];
            by_name_.emplace(port.identity.name, i);
            by_mac_.emplace(port.mac(), i);
            by_location_.emplace(port.identity.location->text(), i);
        }
    }

    Plan plan() {
        std::map<std::size_t, WantedByKey> wanted;
        for (const PortTable& table : file_.ports) {
            const std::vector<std::size_t> ports = ports_of_table(table);
            for (const std::size_t port : ports) {
                for (const WantedSetting& each : table.settings) {
                    wanted[port].insert_or_assign(each.setting, each);
                }
            }
        }
        for (auto& [port, settings] : wanted) {
            add_port(host_.ports[port], settings);
        }
        std::ranges::stable_sort(plan_.ports, {}, &PlannedPort::carries_session);
        file_.sort_errors();
        return std::move(plan_);
    }

private:
    std::vector<std::size_t> ports_of_table(const PortTable& table) {
        std::vector<std::size_t> found;
        if (table.patterns) {
            for (std::size_t i = 0; i < host_.ports.size(); ++i) {
                if (fits(*table.patterns, host_.ports[i])) {
                    found.push_back(i);
                }
            }
            check_silent(table);
            if (found.empty()) {
                plan_.warnings.push_back(
                    file_.message(table.place, "No port has " + table.subject()));
            }
            return found;
        }
        const NamedPort& named = table.named;
        const auto [begin, end] = !named.interface.empty() ? by_name_.equal_range(named.interface)
                                  : !named.mac.empty()     ? by_mac_.equal_range(named.mac)
                                  : named.location
                                      ? by_location_.equal_range(named.location->text())
                                      : std::pair(by_name_.end(), by_name_.end());
        for (auto each = begin; each != end; ++each) {
            if (fits(named, host_.ports[each->second])) {
                found.push_back(each->second);
            }
        }
        if (found.size() != 1 && (begin != end || !table.subject().empty())) {
            file_.add_error(table.place, reason_for_count(table, found.size()));
            found.clear();
        }
        return found;
    }

    // A port that does not answer may be one of those that are meant.
    void check_silent(const PortTable& table) {
        for (const HostInterface& silent : host_.silent) {
            if (fits(*table.patterns, silent)) {
                file_.add_error(
                    table.place, fmt::format("The driver of {} does not answer", silent.name));
            }
        }
    }

    // Why a table does not name exactly one port.
    std::string reason_for_count(const PortTable& table, std::size_t count) const {
        if (count > 1) {
            return fmt::format("{} ports have {}", count, table.subject());
        }
        const std::string& name = table.named.interface;
        if (std::ranges::find(host_.silent, name, &HostInterface::name) != host_.silent.end()) {
            return fmt::format("The driver of {} does not answer", name);
        }
        if (table.named.location) {
            const auto [begin, end] = by_location_.equal_range(table.named.location->text());
            if (std::any_of(begin, end, [this](const auto& each) {
                    return host_.ports[each.second].instance == 0;
                })) {
                return fmt::format(
                    "The ports of {} cannot be numbered: name an interface or a MAC",
                    table.named.location->full_text());
            }
        }
        std::vector<std::string> names;
        for (const HostPort& port : host_.ports) {
            names.push_back(port.identity.name);
        }
        return fmt::format(
            "No port has {}{}", table.subject(), name.empty() ? "" : did_you_mean(name, names));
    }

    void add_port(const HostPort& port, WantedByKey& wanted) {
        PlannedPort planned{port};
        planned.wanted = port.record.settings;
        planned.carries_session = session_.contains(port.identity.name);
        check_link(port, wanted);
        for (const Setting& setting : port_settings()) {
            const auto each = wanted.find(&setting);
            const auto now = state_value(setting, port.record);
            if (each == wanted.end() || now == each->second.value) {
                continue;
            }
            planned.lines.push_back(
                {.setting = &setting,
                 .wanted = each->second.value,
                 .before = now,
                 .refused = refusal_of_value(setting, each->second.value)});
            planned.places.push_back(each->second.place);
            setting.put_into(&planned.wanted, each->second.value);
        }
        if (planned.lines.empty()) {
            return;
        }
        PortDriver(port.identity.name).refuse(planned.lines, port.record, planned.wanted);
        take_refusals(planned);
        if (planned.carries_session) {
            plan_.warnings.push_back(fmt::format("{} carries your session", port.text()));
        }
        plan_.ports.push_back(std::move(planned));
    }

    // Speed and duplex need auto-negotiation off. A later table that turns it on wins over them.
    void check_link(const HostPort& port, WantedByKey& wanted) {
        const Setting& autoneg = port_setting("autoneg");
        const auto leader = wanted.find(&autoneg);
        const bool on =
            leader == wanted.end() ? port.record.settings.autoneg != 0 : leader->second.value != 0;
        if (!on) {
            return;
        }
        for (const char* const key : {"speed", "duplex"}) {
            const auto follower = wanted.find(&port_setting(key));
            if (follower == wanted.end()) {
                continue;
            }
            if (leader == wanted.end() || follower->second.place.is_behind(leader->second.place)) {
                file_.add_error(
                    follower->second.place,
                    fmt::format("{}: {} needs autoneg = false", port.identity.name, key));
            }
            wanted.erase(follower);
        }
    }

    void take_refusals(PlannedPort& planned) {
        for (std::size_t i = 0; i < planned.lines.size(); ++i) {
            ChangeLine& line = planned.lines[i];
            if (!line.refused && !line.before && line.setting->reads == 0) {
                line.refused =
                    Refusal{ExitCode::kFailed, fmt::format("{} cannot be read", line.setting->key)};
            }
            if (!line.refused) {
                continue;
            }
            const Refusal& refusal = *line.refused;
            if (refusal.code == ExitCode::kBusy || refusal.code == ExitCode::kNoPermission) {
                throw Failure(refusal.code, refusal.reason);
            }
            const std::string& name = planned.port.identity.name;
            const bool named = refusal.reason.find(name) != refusal.reason.npos;
            file_.add_error(
                planned.places[i],
                named ? refusal.reason : fmt::format("{}: {}", name, refusal.reason));
        }
    }

    StateFile& file_;
    const HostPorts& host_;
    const std::set<std::string> session_;
    PortIndex by_name_;
    PortIndex by_mac_;
    PortIndex by_location_;
    Plan plan_;
};

}  // namespace

std::size_t Plan::steps() const {
    std::size_t count = 0;
    for (const PlannedPort& port : ports) {
        count += port.lines.size();
    }
    return count;
}

Plan make_plan(StateFile& file, const HostPorts& host) { return Planner(file, host).plan(); }

}  // namespace kx::ctl
