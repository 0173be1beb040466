#include "change/rounded.hpp"

#include <fmt/core.h>
#include <linux/ethtool.h>

#include <algorithm>

#include "change/port_steps.hpp"
#include "change/record.hpp"
#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

bool has_candidate(const Plan& plan) {
    return std::ranges::any_of(plan.ports, [](const PlannedPort& port) {
        return std::ranges::any_of(port.lines, [](const ChangeLine& line) {
            return may_be_rounded(*line.setting) && !line.refused;
        });
    });
}

std::vector<ChangeEntry> readable_entries() {
    try {
        return change_entries();
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::kNoPermission) {
            return {};
        }
        throw;
    }
}

// Whether a change asked this port for this value, and got the one that it has now.
bool was_asked(const ChangeEntry& entry, const HostPort& port, const ChangeLine& line) {
    if (!entry.record || !entry.result || (entry.state != kApplied && entry.state != kPartly)) {
        return false;
    }
    const ChangeRecord& record = *entry.record;
    return std::ranges::any_of(record.steps, [&](const Step& step) {
        return step.key == line.setting->key && step.wanted == line.wanted && !step.refused &&
               step.now == *line.before && step.target < record.targets.size() &&
               record.targets[step.target] == step_target(port.identity);
    });
}

}  // namespace

bool may_be_rounded(const Setting& setting) {
    return setting.reads == ETHTOOL_GRINGPARAM || setting.reads == ETHTOOL_GCOALESCE;
}

std::vector<std::string> leave_out_rounded(Plan& plan) {
    std::vector<std::string> remarks;
    if (!has_candidate(plan)) {
        return remarks;
    }
    const std::vector<ChangeEntry> entries = readable_entries();
    for (PlannedPort& port : plan.ports) {
        for (std::size_t i = 0; i < port.lines.size();) {
            const ChangeLine& line = port.lines[i];
            const bool rounded = may_be_rounded(*line.setting) && line.before && !line.refused &&
                                 std::ranges::any_of(entries, [&](const ChangeEntry& entry) {
                                     return was_asked(entry, port.port, line);
                                 });
            if (!rounded) {
                ++i;
                continue;
            }
            remarks.push_back(fmt::format(
                "{}: {} stays {}: the driver rounded {}", port.port.identity.name,
                line.setting->key, *line.before, line.wanted));
            port.lines.erase(port.lines.begin() + static_cast<std::ptrdiff_t>(i));
            port.places.erase(port.places.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    std::erase_if(plan.ports, [](const PlannedPort& port) { return port.lines.empty(); });
    return remarks;
}

}  // namespace kx::ctl
