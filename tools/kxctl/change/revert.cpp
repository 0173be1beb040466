#include "change/revert.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

#include "change/port_steps.hpp"
#include "change/put_back.hpp"
#include "failure/failure.hpp"
#include "files/signals_held.hpp"
#include "library/caller.hpp"
#include "settings/open_change.hpp"

namespace kx::ctl {
namespace {

// Reads what the settings are now. A port that is gone leaves null.
void read_values(ChangeRecord& record) {
    for (std::size_t target = 0; target < record.targets.size(); ++target) {
        try {
            PortSteps(record.targets[target])
                .read_back(concerned_steps(record, target, Beside::kAll));
        } catch (const Failure&) {
            for (Step* const step : concerned_steps(record, target, Beside::kAll)) {
                step->now = nullptr;
            }
        }
    }
}

std::vector<SavedFile> files_now(const ChangeRecord& record) {
    std::vector<SavedFile> files;
    for (const SavedFile& file : record.files) {
        files.push_back(copy_file(file.path));
    }
    return files;
}

// What the revert did. previous: the steps as they were when it began.
Reverted report_of(
    const ChangeRecord& record, const std::vector<Step>& previous,
    const std::vector<SavedFile>& files, std::vector<std::string> left) {
    Reverted reverted{.number = record.number, .command = record.command, .left = std::move(left)};
    for (std::size_t i = 0; i < record.steps.size(); ++i) {
        const Step& step = record.steps[i];
        if (step.is_wanted() || step.now != previous[i].now) {
            reverted.steps.push_back(
                {record.targets[step.target].interface, step, previous[i].now});
        }
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (files[i] != record.files[i]) {
            reverted.files.push_back(files[i].path);
        }
    }
    return reverted;
}

// What differs from the values before the change and from those that it left.
std::vector<std::string> conflicts_of(
    ChangeRecord& now, const ChangeRecord& done, const ChangeResult& result) {
    std::vector<std::string> conflicts;
    for (std::size_t target = 0; target < now.targets.size(); ++target) {
        const std::vector<Step*> steps = concerned_steps(now, target, Beside::kAll);
        for (const Step* const step : steps) {
            const Step& then = done.steps[static_cast<std::size_t>(step - now.steps.data())];
            const bool concerned = then.is_wanted() || then.has_changed();
            const bool known =
                step->now == then.before || step->now == then.now || step->now == then.wanted;
            if (concerned && can_put_back(*step, steps) && !known) {
                conflicts.push_back(fmt::format(
                    "{}: {} is {}; the change left {}, before it was {}",
                    now.targets[target].interface, step->key, value_text(*step, step->now),
                    value_text(*step, then.now), value_text(*step, then.before)));
            }
        }
    }
    for (std::size_t i = 0; i < done.files.size(); ++i) {
        const SavedFile present = copy_file(done.files[i].path);
        const bool known =
            present == done.files[i] || (i < result.files.size() && present == result.files[i]);
        if (!known) {
            conflicts.push_back(present.path + " was changed since");
        }
    }
    return conflicts;
}

// The record of the change that takes another one back. now: the other one with present values.
ChangeRecord inverse_of(const ChangeRecord& done, ChangeRecord& now) {
    ChangeRecord inverse{.reverts = done.number, .targets = done.targets, .steps = now.steps};
    for (std::size_t target = 0; target < done.targets.size(); ++target) {
        const std::vector<Step*> steps = concerned_steps(now, target, Beside::kAll);
        for (const Step* const step : steps) {
            const auto place = static_cast<std::size_t>(step - now.steps.data());
            const Step& then = done.steps[place];
            const bool asked = then.is_wanted() || then.has_changed();
            Step& each = inverse.steps[place];
            each.wanted = asked && can_put_back(*step, steps) ? then.before : Json();
            each.before = step->now;
            each.refused.reset();
        }
    }
    inverse.files = files_now(done);
    return inverse;
}

}  // namespace

Reverted revert_open(const ChangeEntry& entry, bool force, const std::string& remark) {
    if (!entry.record) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format(
                "The journal of the unfinished change is damaged ({}); nothing was changed. Look "
                "at {} and at the ports, and move that directory away",
                entry.damage, entry.directory));
    }
    Journal journal = change_journal();
    journal.lock();
    const SignalsHeld held;
    ChangeRecord record = *entry.record;
    const Beside beside = record.boot_id != boot_id() ? Beside::kNone
                          : entry.result              ? Beside::kChanged
                                                      : Beside::kAll;
    ChangeRecord before = record;
    read_values(before);
    const std::vector<SavedFile> files = files_now(record);
    std::vector<std::string> left = put_back(record, beside);
    const bool whole = left.empty();
    Reverted reverted = report_of(record, before.steps, files, std::move(left));
    reverted.closed = whole || force;
    if (reverted.closed) {
        write_result(journal, record.steps, {time_text(), remark, files_now(record)});
        close_record(journal, record.number, whole ? kReverted : kPartly);
    }
    return reverted;
}

Reverted revert_done(const ChangeEntry& entry, bool force) {
    if (!entry.record || !entry.result) {
        throw Failure(
            ExitCode::kFailed, fmt::format(
                                   "{} is damaged ({}); nothing was changed", entry.directory,
                                   entry.record ? "its result is missing" : entry.damage));
    }
    Journal journal = change_journal();
    journal.lock();
    refuse_open_change();
    const SignalsHeld held;
    ChangeRecord done = *entry.record;
    ChangeRecord now = done;
    read_values(now);
    const std::vector<std::string> conflicts = conflicts_of(now, done, *entry.result);
    if (!conflicts.empty() && !force) {
        throw Failure(
            ExitCode::kBusy,
            fmt::format(
                "{}; nothing was changed (--force puts back what was before change {} all the "
                "same)",
                fmt::join(conflicts, "; "), entry.number));
    }
    ChangeRecord inverse = inverse_of(done, now);
    open_record(journal, inverse);
    const std::vector<SavedFile> files = inverse.files;
    const std::vector<Step> then = done.steps;
    std::vector<std::string> left = put_back(done, Beside::kChanged);
    read_values(done);
    for (std::size_t i = 0; i < done.steps.size(); ++i) {
        inverse.steps[i].now = done.steps[i].now;
        inverse.steps[i].refused = done.steps[i].refused;
    }
    write_result(journal, inverse.steps, {time_text(), "", files_now(done)});
    close_record(journal, inverse.number, left.empty() ? kApplied : kPartly);
    return report_of(done, now.steps, files, std::move(left));
}

std::optional<Reverted> revert_at_start() {
    const auto entry = open_entry();
    if (!entry) {
        return std::nullopt;
    }
    const bool waits = entry->state == kWaiting && entry->record->boot_id == boot_id();
    if (waits) {
        refuse_open_change();
    }
    return revert_open(
        *entry, false,
        entry->state == kWaiting ? "not confirmed before the machine started again"
                                 : "not finished before the machine started again");
}

std::vector<std::string> states_of(const std::vector<ChangeEntry>& entries) {
    std::set<unsigned> undone;
    std::vector<std::string> states;
    for (const ChangeEntry& entry : entries) {
        const bool is_undone = undone.contains(entry.number);
        states.push_back(is_undone ? kReverted : entry.state);
        if (!is_undone && entry.record && entry.record->reverts != 0 && entry.state == kApplied) {
            undone.insert(entry.record->reverts);
        }
    }
    return states;
}

}  // namespace kx::ctl
