// revert, confirm: take a change back, or keep it.
#include <fmt/core.h>

#include <algorithm>
#include <charconv>

#include "change/confirm_timer.hpp"
#include "change/put_back.hpp"
#include "change/record.hpp"
#include "change/revert.hpp"
#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"
#include "settings/configuration_lock.hpp"
#include "settings/open_change.hpp"

namespace kx::ctl::revert {
namespace {

// The number of a change; 0 when none is given.
unsigned number_of_change(const Arguments& arguments) {
    const std::string word = arguments.get("ID");
    if (word.empty() && !arguments.has("ID")) {
        return 0;
    }
    unsigned number = 0;
    const char* const end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, number);
    if (error != std::errc() || rest != end || number == 0) {
        refuse_usage(fmt::format("{} is no number of a change", word));
    }
    return number;
}

bool was_applied(const std::string& state) { return state == kApplied || state == kPartly; }

// The change with a number; without one, the last change that can be taken back.
const ChangeEntry& entry_to_revert(
    const std::vector<ChangeEntry>& entries, const std::vector<std::string>& states,
    unsigned number) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const ChangeEntry& entry = entries[i];
        const bool is_last = entry.is_open() ||
                             (was_applied(states[i]) && entry.record && entry.record->reverts == 0);
        if (number == 0 ? is_last : entry.number == number) {
            return entry;
        }
    }
    throw Failure(
        ExitCode::kNotFound, number == 0 ? std::string("There is no change to take back")
                                         : fmt::format("The history has no change {}", number));
}

void tell_json(const Reverted& reverted, bool changed, Output& output) {
    Json settings = Json::array();
    for (const RevertedStep& each : reverted.steps) {
        settings.push_back(
            {{"interface", each.interface},
             {"key", each.step.key},
             {"before", value_json(each.step, each.previous)},
             {"wanted", value_json(each.step, each.step.before)},
             {"now", value_json(each.step, each.step.now)}});
    }
    output.json(Json{
        {"number", reverted.number},
        {"command", reverted.command},
        {"changed", changed},
        {"settings", settings},
        {"files", reverted.files},
        {"failures", reverted.left}});
}

void tell_people(const Reverted& reverted, Output& output) {
    Table table({{"INTERFACE"}, {"SETTING"}, {"BEFORE", Align::kRight}, {"NOW", Align::kRight}});
    for (const RevertedStep& each : reverted.steps) {
        table.add_row(
            {each.interface, each.step.key, value_text(each.step, each.previous),
             value_text(each.step, each.step.now)});
    }
    output.text(fmt::format("Change {}: {}\n", reverted.number, reverted.command));
    if (!reverted.steps.empty()) {
        output.table(table);
    }
    for (const std::string& file : reverted.files) {
        output.text(fmt::format("{} is as before the change\n", file));
    }
    if (reverted.left.empty()) {
        output.text("The change is taken back.\n");
    }
}

ExitCode tell(const Reverted& reverted, Output& output) {
    const bool changed = !reverted.files.empty() ||
                         std::ranges::any_of(reverted.steps, [](const RevertedStep& each) {
                             return each.previous != each.step.now;
                         });
    if (output.wants_json()) {
        tell_json(reverted, changed, output);
    } else {
        tell_people(reverted, output);
    }
    std::ranges::for_each(reverted.left, complain);
    if (!reverted.closed) {
        complain(
            "the change is not finished: run \"kxctl revert\" again, with --force to end it as it "
            "is");
    }
    return reverted.left.empty() ? ExitCode::kDone : ExitCode::kPartly;
}

void need_privilege() {
    if (const auto missing = missing_privilege(Privilege::kNetworkAdmin, read_security_context())) {
        throw Failure(ExitCode::kNoPermission, *missing);
    }
}

// For the timer of a change: by then it may be confirmed, or taken back.
ExitCode run_unconfirmed(const Arguments& arguments, Output& output) {
    const unsigned number = number_of_change(arguments);
    const ConfigurationLock lock(
        ConfigurationLock::Purpose::kWrite, lock_timeout_option(arguments));
    const auto entry = open_entry();
    if (number == 0 || !entry || entry->number != number) {
        throw Failure(ExitCode::kNotFound, fmt::format("Change {} does not wait", number));
    }
    return tell(revert_open(*entry, false, "not confirmed in time"), output);
}

ExitCode run(const Arguments& arguments, Output& output) {
    if (arguments.has("--unconfirmed")) {
        return run_unconfirmed(arguments, output);
    }
    const unsigned number = number_of_change(arguments);
    const bool force = arguments.has("--force");
    const LockTimeout timeout = lock_timeout_option(arguments);
    need_privilege();
    const ConfigurationLock lock(ConfigurationLock::Purpose::kWrite, timeout);
    const std::vector<ChangeEntry> entries = change_entries();
    const std::vector<std::string> states = states_of(entries);
    const ChangeEntry& entry = entry_to_revert(entries, states, number);
    if (entry.is_open()) {
        return tell(revert_open(entry, force, "taken back by \"kxctl revert\""), output);
    }
    refuse_open_change();
    const std::string& state = states[static_cast<std::size_t>(&entry - entries.data())];
    if (state == kReverted && entry.record) {
        return tell({.number = entry.number, .command = entry.record->command}, output);
    }
    return tell(revert_done(entry, force), output);
}

ExitCode confirm(const Arguments& arguments, Output& output) {
    const unsigned number = number_of_change(arguments);
    const LockTimeout timeout = lock_timeout_option(arguments);
    need_privilege();
    const ConfigurationLock lock(ConfigurationLock::Purpose::kWrite, timeout);
    Journal journal = change_journal();
    const auto entry = open_entry();
    if (!entry || !entry->result || (number != 0 && number != entry->number)) {
        throw Failure(
            ExitCode::kNotFound, number == 0 ? std::string("No change waits to be confirmed")
                                             : fmt::format("Change {} does not wait", number));
    }
    journal.lock();
    const bool whole = std::ranges::none_of(
        entry->record->steps, [](const Step& step) { return step.refused.has_value(); });
    close_record(journal, entry->number, whole ? kApplied : kPartly);
    stop_confirm_timer(entry->number);
    if (output.wants_json()) {
        output.json(Json{
            {"number", entry->number}, {"command", entry->record->command}, {"changed", true}});
    } else {
        output.text(fmt::format("Change {} stays: {}\n", entry->number, entry->record->command));
    }
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    const Argument change{
        .name = "ID",
        .help = "Number of the change, as \"history\" shows it",
        .count = Count::kOptional};
    return {
        {
            .noun = "revert",
            .verb = "",
            .help = "Take a change of port settings back",
            .about =
                "Gives the settings the values that they had before the change, with those that "
                "the driver changed beside them, reads them back, and puts the files of saved "
                "settings back byte for byte. Without ID it takes back the change that is not "
                "finished, or else the last one. When something was changed since, nothing is "
                "done (exit status 5). What cannot be put back has its own line (exit status 4).",
            .arguments = with_lock_options(
                {change,
                 {.name = "--unconfirmed",
                  .help = "Only a change ID that still waits to be confirmed, or is not finished "
                          "(what the timer of --confirm-within runs)"},
                 {.name = "--force",
                  .help = "Also put back what was changed since, and end an unfinished change of "
                          "which something cannot be put back"}}),
            .examples = {"kxctl revert", "kxctl revert 17 --json"},
            .run = run,
        },
        {
            .noun = "confirm",
            .verb = "",
            .help = "Keep a change that waits to be confirmed",
            .about = "Keeps the settings that \"kxctl port set --confirm-within TIME\" would "
                     "otherwise take back at the end of the time, or at the next start of the "
                     "machine.",
            .arguments = with_lock_options({change}),
            .examples = {"kxctl confirm", "kxctl confirm 17 --json"},
            .run = confirm,
        },
    };
}

const TablePart kRows(1380, rows);

}  // namespace
}  // namespace kx::ctl::revert
