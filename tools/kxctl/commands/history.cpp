// history: the changes of this host, and one of them in full.
#include <fmt/core.h>

#include <charconv>

#include "change/put_back.hpp"
#include "change/record.hpp"
#include "change/revert.hpp"
#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "library/record_text.hpp"
#include "output/incomplete.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::history {
namespace {

std::vector<Column> columns() {
    return {{"NUMBER", Align::kRight}, {"STARTED"}, {"USER"}, {"STATE"}, {"COMMAND"}};
}

Json settings_json(const ChangeRecord& record) {
    Json settings = Json::array();
    for (const Step& step : record.steps) {
        if (step.is_wanted() || step.has_changed()) {
            settings.push_back(
                {{"interface", record.targets[step.target].interface},
                 {"mac", record.targets[step.target].mac},
                 {"location", record.targets[step.target].location},
                 {"key", step.key},
                 {"before", value_json(step, step.before)},
                 {"wanted", value_json(step, step.wanted)},
                 {"now", value_json(step, step.now)},
                 {"failure", step.refused ? Json(step.refused->reason) : Json()}});
        }
    }
    return settings;
}

Json files_json(const ChangeEntry& entry) {
    Json files = Json::array();
    const auto& before = entry.record->files;
    for (std::size_t i = 0; entry.result && i < before.size(); ++i) {
        if (i < entry.result->files.size() && entry.result->files[i] != before[i]) {
            files.push_back(before[i].path);
        }
    }
    return files;
}

Json json_of_entry(const ChangeEntry& entry, const std::string& state) {
    Json json{
        {"number", entry.number == 0 ? Json() : Json(entry.number)},
        {"state", state},
        {"directory", entry.directory}};
    if (!entry.record) {
        json["damage"] = entry.damage;
        return json;
    }
    const ChangeRecord& record = *entry.record;
    json["command"] = record.command;
    json["started"] = record.started;
    json["finished"] = entry.result ? Json(entry.result->finished) : Json();
    json["user"] = record.user;
    json["user_id"] = record.user_id;
    json["kxctl_version"] = record.kxctl_version;
    json["library_version"] = record.library_version;
    json["reverts"] = record.reverts == 0 ? Json() : Json(record.reverts);
    json["remark"] = entry.result ? text_or_null(entry.result->remark) : Json();
    json["settings"] = settings_json(record);
    json["files"] = files_json(entry);
    return json;
}

void print_entry(const ChangeEntry& entry, const std::string& state, Output& output) {
    Table facts({{""}, {""}});
    facts.add_row({"Change", fmt::format("{}", entry.number)});
    facts.add_row({"Command", entry.record->command});
    facts.add_row({"Started", entry.record->started});
    facts.add_row({"User", entry.record->user});
    facts.add_row({"State", state});
    if (entry.result && !entry.result->remark.empty()) {
        facts.add_row({"Remark", entry.result->remark});
    }
    output.table(facts);
    Table table(
        {{"INTERFACE"},
         {"SETTING"},
         {"BEFORE", Align::kRight},
         {"WANTED", Align::kRight},
         {"AFTER", Align::kRight},
         {"FAILURE"}});
    for (const Step& step : entry.record->steps) {
        if (step.is_wanted() || step.has_changed()) {
            table.add_row(
                {entry.record->targets[step.target].interface, step.key,
                 value_text(step, step.before),
                 step.is_wanted() ? value_text(step, step.wanted) : "", value_text(step, step.now),
                 step.refused ? step.refused->reason : ""});
        }
    }
    output.text("\n");
    output.table(table);
}

ExitCode show_one(
    const std::vector<ChangeEntry>& entries, const std::vector<std::string>& states,
    const std::string& word, Output& output) {
    unsigned number = 0;
    const char* const end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, number);
    if (error != std::errc() || rest != end || number == 0) {
        refuse_usage(fmt::format("{} is no number of a change", word));
    }
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].number != number) {
            continue;
        }
        if (!entries[i].record) {
            throw Failure(
                ExitCode::kFailed,
                fmt::format("{} is damaged: {}", entries[i].directory, entries[i].damage));
        }
        if (output.wants_json()) {
            output.json(Json{{"changes", Json::array({json_of_entry(entries[i], states[i])})}});
        } else {
            print_entry(entries[i], states[i], output);
        }
        return ExitCode::kDone;
    }
    throw Failure(ExitCode::kNotFound, fmt::format("The history has no change {}", number));
}

ExitCode run(const Arguments& arguments, Output& output) {
    List changes(arguments, output, columns());
    const std::vector<ChangeEntry> entries = change_entries();
    const std::vector<std::string> states = states_of(entries);
    if (arguments.has("ID")) {
        return show_one(entries, states, arguments.get("ID"), output);
    }
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const ChangeEntry& entry = entries[i];
        const Cell state(states[i], entry.is_open() ? Style::kBad : Style::kPlain);
        if (!entry.record) {
            output.incomplete().add(
                fmt::format("{} is damaged: {}", entry.directory, entry.damage));
        }
        const ChangeRecord none;
        const ChangeRecord& record = entry.record ? *entry.record : none;
        changes.add(
            {entry.number == 0 ? "" : fmt::format("{}", entry.number), record.started, record.user,
             state, record.command},
            json_of_entry(entry, states[i]));
    }
    if (output.wants_json()) {
        output.json(Json{{"changes", changes.json()}});
    } else {
        changes.print(output, "No change was made yet");
    }
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "history",
            .verb = "",
            .help = "Show the changes of port settings",
            .about =
                "Lists the changes that kxctl made: number, time, user, state and command. The "
                "state is applied, partly (some settings failed, the others stayed), reverted "
                "(all is as before), unconfirmed or unfinished. With ID it shows each setting "
                "before and after that change. The journal keeps the last 100 changes.",
            .arguments = {{.name = "ID", .help = "Number of a change", .count = Count::kOptional}},
            .examples = {"kxctl history", "kxctl history 17 --json"},
            .run = run,
            .columns = columns,
        },
    };
}

const TablePart kRows(1390, rows);

}  // namespace
}  // namespace kx::ctl::history
