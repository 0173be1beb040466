#include "settings/change_report.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "failure/failure.hpp"
#include "library/recording.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"

namespace kx::ctl {
namespace {

Json json_of(std::optional<std::int64_t> value) { return value ? Json(*value) : Json(); }

std::string text_of(const Setting& setting, std::optional<std::int64_t> value) {
    return value ? setting.text_of(*value) : "";
}

// The library's messages end with the reason of the driver.
bool tells_busy(const std::string& message) { return message.ends_with(std::strerror(EBUSY)); }

}  // namespace

ChangeReport::ChangeReport(Json subject, std::span<const Change> changes, const void* before)
    : subject_(std::move(subject)) {
    for (const Change& change : changes) {
        lines_.push_back({change.setting, change.setting->value_in(before), change.value});
    }
}

ExitCode ChangeReport::tell_plan(Output& output) const {
    if (output.wants_json()) {
        Json answer = subject_;
        answer["dry_run"] = true;
        answer["settings"] = Json::array();
        for (const Line& line : lines_) {
            answer["settings"].push_back(
                {{"key", line.setting->key},
                 {"before", json_of(line.before)},
                 {"wanted", line.wanted}});
        }
        output.json(answer);
        return ExitCode::kDone;
    }
    Table table({{"SETTING"}, {"NOW", Align::kRight}, {"NEW", Align::kRight}});
    for (const Line& line : lines_) {
        table.add_row(
            {line.setting->key, text_of(*line.setting, line.before),
             line.setting->text_of(line.wanted)});
    }
    output.table(table);
    return ExitCode::kDone;
}

ExitCode ChangeReport::tell_result(
    Output& output, const void* after, std::vector<std::string> messages,
    Privilege privilege) const {
    Json settings = Json::array();
    Table table({{"SETTING"}, {"BEFORE", Align::kRight}, {"NOW", Align::kRight}});
    std::vector<std::string> untaken;
    std::size_t taken = 0;
    for (const Line& line : lines_) {
        const auto now = line.setting->value_in(after);
        const bool as_wanted = !now || *now == line.wanted;
        taken += as_wanted ? 1 : 0;
        if (!as_wanted) {
            untaken.push_back(fmt::format(
                "{} reads back as {}, not {}", line.setting->key, text_of(*line.setting, now),
                line.setting->text_of(line.wanted)));
        }
        settings.push_back(
            {{"key", line.setting->key},
             {"before", json_of(line.before)},
             {"wanted", line.wanted},
             {"now", json_of(now)}});
        table.add_row(
            {line.setting->key, text_of(*line.setting, line.before),
             Cell(text_of(*line.setting, now), as_wanted ? Style::kPlain : Style::kBad)});
    }
    const bool refused_by_library = !messages.empty();
    std::vector<std::string> failures = refused_by_library ? std::move(messages) : untaken;
    const bool nothing_taken = taken == 0 && !failures.empty();
    const bool busy = nothing_taken && std::ranges::any_of(failures, tells_busy);
    const auto known = nothing_taken && !busy
                           ? missing_privilege(privilege, read_security_context())
                           : std::nullopt;
    if (known) {
        failures.push_back(*known);
    }
    const bool recorded = take_unrecorded() == 0;
    if (!recorded) {
        failures.emplace_back("Not all of it could be recorded: a reboot undoes it");
    }
    if (output.wants_json()) {
        Json answer = subject_;
        answer["settings"] = settings;
        answer["failures"] = failures;
        output.json(answer);
    } else {
        output.table(table);
    }
    std::ranges::for_each(failures, complain);
    if (failures.empty()) {
        return ExitCode::kDone;
    }
    if (busy) {
        return ExitCode::kBusy;
    }
    if (known) {
        return ExitCode::kNoPermission;
    }
    if (!refused_by_library && !untaken.empty()) {
        return ExitCode::kVerification;
    }
    return taken > 0 ? ExitCode::kPartly : ExitCode::kFailed;
}

ExitCode ChangeReport::tell_without_privilege(
    Output& output, const void* record, const std::string& missing) const {
    for (const Line& line : lines_) {
        if (line.before != line.wanted) {
            throw Failure(
                ExitCode::kNoPermission,
                fmt::format("{} cannot be changed: {}", line.setting->key, missing));
        }
    }
    return tell_result(output, record, {}, Privilege::kOwnFiles);
}

}  // namespace kx::ctl
