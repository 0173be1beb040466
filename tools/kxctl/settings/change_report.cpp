#include "settings/change_report.hpp"

#include <algorithm>

#include "library/card_ports.hpp"
#include "library/recording.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"

namespace kx::ctl {
namespace {

std::string text_of(const Setting& setting, std::optional<std::int64_t> value) {
    return value ? setting.text_of(*value) : "";
}

bool names(const std::string& message, const Setting& setting) {
    return (message + " ").find(std::string(" ") + setting.key + " ") != message.npos;
}

}  // namespace

ChangeReport::ChangeReport(Json subject, std::span<const Change> changes, const void* before)
    : subject_(std::move(subject)) {
    for (const Change& change : changes) {
        lines_.push_back(
            {.setting = change.setting,
             .wanted = change.value,
             .before = change.setting->known_value_in(before),
             .refused = refusal_of_value(*change.setting, change.value)});
    }
}

std::vector<Change> ChangeReport::accepted() const {
    std::vector<Change> changes;
    for (const ChangeLine& line : lines_) {
        if (!line.refused) {
            changes.push_back({line.setting, line.wanted});
        }
    }
    return changes;
}

void ChangeReport::take_messages(const std::vector<std::string>& messages) {
    for (const std::string& message : messages) {
        const bool of_all = std::ranges::none_of(
            lines_, [&](const ChangeLine& line) { return names(message, *line.setting); });
        for (ChangeLine& line : lines_) {
            if (!line.refused && (of_all || names(message, *line.setting))) {
                line.refused = Refusal{ExitCode::kFailed, message};
            }
        }
    }
}

Json ChangeReport::answer(const char* last_value) const {
    Json all = subject_;
    all["settings"] = Json::array();
    for (const ChangeLine& line : lines_) {
        Json each = {
            {"key", line.setting->key},
            {"before", line.setting->json_of(line.before)},
            {"wanted", line.setting->json_of(line.wanted)}};
        if (*last_value != '\0') {
            each[last_value] = line.setting->json_of(line.now);
        }
        each["result"] = name_of(line.result());
        all["settings"].push_back(each);
    }
    all["failures"] = failures_of(lines_);
    return all;
}

ExitCode ChangeReport::tell_plan(Output& output) const {
    ChangeReport planned = *this;
    for (ChangeLine& line : planned.lines_) {
        line.now = line.refused               ? line.before
                   : line.setting->is_shown() ? std::optional(line.wanted)
                                              : std::nullopt;
    }
    if (output.wants_json()) {
        Json all = planned.answer("");
        all["dry_run"] = true;
        all["changed"] = false;
        output.json(all);
    } else {
        output.text(subject_text(subject_));
        Table table({{"SETTING"}, {"NOW", Align::kRight}, {"NEW", Align::kRight}});
        for (const ChangeLine& line : lines_) {
            table.add_row(
                {line.setting->key, text_of(*line.setting, line.before),
                 Cell(
                     line.setting->text_of(line.wanted),
                     line.refused ? Style::kBad : Style::kPlain)});
        }
        output.table(table);
    }
    std::ranges::for_each(failures_of(lines_), complain);
    return verdict_of(planned.lines_);
}

ExitCode ChangeReport::tell_result(Output& output, const void* after) {
    read_back(lines_, after);
    std::vector<std::string> failures = failures_of(lines_);
    ExitCode code = verdict_of(lines_);
    if (take_unrecorded() != 0) {
        failures.emplace_back("Not all of it could be recorded: a reboot undoes it");
    }
    failures.insert(failures.end(), unsaved_.begin(), unsaved_.end());
    if (code == ExitCode::kDone && !failures.empty()) {
        code = ExitCode::kPartly;
    }
    if (output.wants_json()) {
        Json all = answer("now");
        all["failures"] = failures;
        all["changed"] = has_changed(lines_);
        output.json(all);
    } else {
        output.text(subject_text(subject_));
        Table table({{"SETTING"}, {"BEFORE", Align::kRight}, {"NOW", Align::kRight}, {"RESULT"}});
        for (const ChangeLine& line : lines_) {
            table.add_row(
                {line.setting->key, text_of(*line.setting, line.before),
                 text_of(*line.setting, line.now),
                 Cell(name_of(line.result()), style_of(line.result()))});
        }
        output.table(table);
    }
    std::ranges::for_each(failures, complain);
    return code;
}

}  // namespace kx::ctl
