#include "change/put_back.hpp"

#include <fmt/core.h>
#include <kxlinhw/settings.h>

#include <algorithm>

#include "change/port_steps.hpp"
#include "failure/failure.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl {
namespace {

bool is_beside(const Step& step, Beside beside) {
    return beside == Beside::kAll || (beside == Beside::kChanged && step.has_changed());
}

// Auto-negotiation says whether speed and duplex counted.
bool is_concerned(const Step& step, Beside beside) {
    return step.is_wanted() || port_setting(step.key).change_bit == KX_PORT_LINK ||
           is_beside(step, beside);
}

std::string left_text(const StepTarget& target, const Step& step) {
    return fmt::format(
        "{}: {} is {}, it was {}{}", target.interface, step.key, value_text(step, step.now),
        value_text(step, step.before), step.refused ? " (" + step.refused->reason + ")" : "");
}

void put_port_back(
    const StepTarget& target, std::span<Step* const> steps, std::vector<std::string>& left) {
    const PortSteps port(target);
    port.check();
    port.put_back(steps);
    for (const Step* const step : steps) {
        const bool unknown = step->is_wanted() && step->before.is_null() && is_lasting(*step);
        if (unknown || (can_put_back(*step, steps) && step->now != step->before)) {
            left.push_back(left_text(target, *step));
        }
    }
}

void put_saved_file_back(const SavedFile& file, std::vector<std::string>& left) {
    try {
        if (copy_file(file.path) != file) {
            put_file_back(file);
        }
    } catch (const Failure& failure) {
        left.push_back(fmt::format("{} is not as before: {}", file.path, failure.what()));
    }
}

}  // namespace

std::string value_text(const Step& step, const Json& value) {
    return value.is_null() ? "not known"
                           : port_setting(step.key).text_of(value.get<std::int64_t>());
}

Json value_json(const Step& step, const Json& value) {
    return value.is_null() ? Json() : port_setting(step.key).json_of(value.get<std::int64_t>());
}

std::vector<Step*> concerned_steps(ChangeRecord& record, std::size_t target, Beside beside) {
    std::vector<Step*> steps;
    for (Step& step : record.steps) {
        if (step.target == target && is_concerned(step, beside)) {
            steps.push_back(&step);
        }
    }
    return steps;
}

std::vector<std::string> put_back(ChangeRecord& record, Beside beside) {
    std::vector<std::string> left;
    for (std::size_t target = record.targets.size(); target-- > 0;) {
        try {
            put_port_back(record.targets[target], concerned_steps(record, target, beside), left);
        } catch (const Failure& failure) {
            left.emplace_back(failure.what());
        }
    }
    for (const SavedFile& file : record.files) {
        put_saved_file_back(file, left);
    }
    return left;
}

}  // namespace kx::ctl
