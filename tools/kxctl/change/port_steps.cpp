#include "change/port_steps.hpp"

#include <fmt/core.h>
#include <kxlinhw/settings.h>

#include <algorithm>
#include <utility>

#include "failure/failure.hpp"
#include "library/recording.hpp"
#include "settings/interface_records.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl {
namespace {

// A driver that clears one setting with another, and needs them in that order again.
constexpr int kMostPasses = 4;

const Setting& setting_of_step(const Step& step) { return port_setting(step.key); }

Json json_or_null(std::optional<std::int64_t> value) { return value ? Json(*value) : Json(); }

StepTarget found_again(StepTarget target) {
    const auto now = host_interface(target.interface);
    if (now && step_target(*now) == target) {
        return target;
    }
    for (const HostInterface& each : host_interfaces()) {
        StepTarget other = step_target(each);
        if (other.mac == target.mac && other.location == target.location &&
            !is_stacked(each.name)) {
            return other;
        }
    }
    throw Failure(
        ExitCode::kBusy,
        fmt::format(
            "{} ({}, MAC {}) is not there now", target.interface, target.location, target.mac));
}

// The steps that still differ from what was before.
std::vector<Step*> not_back(std::span<Step* const> steps) {
    std::vector<Step*> open;
    std::ranges::copy_if(steps, std::back_inserter(open), [&](const Step* step) {
        return can_put_back(*step, steps) && step->now != step->before;
    });
    return open;
}

std::vector<std::vector<Step*>> groups_of(std::span<Step* const> steps) {
    std::vector<std::vector<Step*>> groups;
    for (Step* const step : steps) {
        const auto same = std::ranges::find_if(groups, [&](const std::vector<Step*>& group) {
            return PortSteps::are_together(*group.front(), *step);
        });
        if (same == groups.end()) {
            groups.push_back({step});
        } else {
            same->push_back(step);
        }
    }
    return groups;
}

}  // namespace

StepTarget step_target(const HostInterface& interface) {
    return {
        interface.name, interface.mac,
        interface.location ? interface.location->full_text() : std::string()};
}

std::vector<Step> port_steps(
    std::size_t target, std::span<const ChangeLine> lines, const PortSettings& before) {
    std::vector<Step> wanted;
    std::vector<Step> others;
    for (const Setting& setting : port_settings()) {
        Step step{
            .target = target,
            .key = setting.key,
            .before = json_or_null(setting.known_value_in(&before))};
        const auto line = std::ranges::find(lines, &setting, &ChangeLine::setting);
        const bool asked = line != lines.end() && !line->refused && line->skipped.empty();
        if (asked) {
            step.wanted = line->wanted;
            wanted.push_back(step);
        } else if (!step.before.is_null()) {
            others.push_back(step);
        }
    }
    wanted.insert(wanted.end(), others.begin(), others.end());
    return wanted;
}

void take_refusals(std::span<ChangeLine> lines, std::span<const Step> steps, std::size_t target) {
    for (ChangeLine& line : lines) {
        const auto step = std::ranges::find_if(steps, [&](const Step& each) {
            return each.target == target && each.is_wanted() && each.key == line.setting->key;
        });
        if (!line.refused && step != steps.end()) {
            line.refused = step->refused;
        }
    }
}

PortSteps::PortSteps(StepTarget target)
    : target_(found_again(std::move(target))), driver_(target_.interface) {}

void PortSteps::check() const {
    const auto now = host_interface(target_.interface);
    if (!now || step_target(*now) != target_) {
        throw Failure(
            ExitCode::kBusy,
            fmt::format(
                "The interface was {} ({}, MAC {}) and is {} now", target_.interface,
                target_.location, target_.mac, now ? described(*now) : "not there"));
    }
}

bool PortSteps::are_together(const Step& one, const Step& other) {
    return set_together(setting_of_step(one), setting_of_step(other));
}

void PortSteps::set(std::span<Step* const> group, Json Step::*value) const {
    const PortInfo port = driver_.read();
    PortSettings wanted = port.settings;
    std::vector<ChangeLine> lines;
    for (Step* const step : group) {
        const Setting& setting = setting_of_step(*step);
        const auto number = (step->*value).get<std::int64_t>();
        setting.put_into(&wanted, number);
        lines.push_back({.setting = &setting, .wanted = number});
    }
    driver_.apply(lines, wanted);
    for (std::size_t i = 0; i < group.size(); ++i) {
        group[i]->refused = lines[i].refused;
    }
}

void PortSteps::apply(std::span<Step* const> group) const {
    check();
    set(group, &Step::wanted);
}

void PortSteps::read_back(std::span<Step* const> steps) const {
    const PortInfo port = driver_.read();
    for (Step* const step : steps) {
        step->now = json_or_null(setting_of_step(*step).known_value_in(&port.settings));
    }
}

void PortSteps::put_back(std::span<Step* const> steps) const {
    const RecordingPause pause;
    read_back(steps);
    std::vector<Step*> open = not_back(steps);
    for (int pass = 0; pass < kMostPasses && !open.empty(); ++pass) {
        std::vector<std::vector<Step*>> groups = groups_of(open);
        std::ranges::reverse(groups);
        for (const std::vector<Step*>& group : groups) {
            check();
            set(group, &Step::before);
        }
        read_back(steps);
        open = not_back(steps);
    }
}

void PortSteps::record_saved(std::span<Step* const> steps) const {
    const bool saved = std::ranges::any_of(steps, [](const Step* step) {
        return step->is_wanted() && !step->refused && *setting_of_step(*step).saved_as != '\0';
    });
    if (saved) {
        record_interface(target_.interface);
    }
}

bool can_put_back(const Step& step, std::span<Step* const> steps) {
    const Setting& setting = setting_of_step(step);
    if (step.before.is_null()) {
        return false;
    }
    const Setting& leader = leader_of(setting);
    if (&leader == &setting) {
        return true;
    }
    const auto autoneg =
        std::ranges::find_if(steps, [&](const Step* each) { return each->key == leader.key; });
    return autoneg != steps.end() && (*autoneg)->before == 0;
}

bool is_lasting(const Step& step) { return setting_of_step(step).form != Form::kAction; }

bool differs(const Step& step, bool exact) {
    if (!step.is_wanted() || step.now.is_null() || step.now == step.wanted) {
        return false;
    }
    const bool rounded = setting_of_step(step).words.zero == nullptr && step.now != step.before;
    return exact || !rounded;
}

}  // namespace kx::ctl
