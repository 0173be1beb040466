#include "change/record.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <span>
#include <stdexcept>

#include "failure/failure.hpp"
#include "files/whole_file.hpp"
#include "library/caller.hpp"
#include "library/library_version.hpp"
#include "output/printable.hpp"
#include "settings/open_change.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl {
namespace {

constexpr int kFormat = 1;
constexpr char kRecordName[] = "record.json";
constexpr std::size_t kMostRecordedBytes = std::size_t{1} << 28U;
constexpr std::size_t kKeptChanges = 100;

std::string text_of(const Json& json) {
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::span<const std::uint8_t> span_of(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

Json json_in(const std::string& path) {
    const std::vector<std::uint8_t> bytes = read_whole_file(path, kMostRecordedBytes);
    Json json = Json::parse(bytes);
    if (json.at("format") != kFormat) {
        throw std::runtime_error("it has a format that this kxctl does not know");
    }
    return json;
}

Json files_json(const std::vector<SavedFile>& files) {
    Json all = Json::array();
    for (const SavedFile& file : files) {
        all.push_back(saved_file_json(file));
    }
    return all;
}

std::vector<SavedFile> files_of(const Json& json) {
    std::vector<SavedFile> files;
    for (const Json& each : json) {
        files.push_back(saved_file_of(each));
    }
    return files;
}

Json record_json(const ChangeRecord& record) {
    Json targets = Json::array();
    for (const StepTarget& target : record.targets) {
        targets.push_back(
            {{"interface", target.interface}, {"mac", target.mac}, {"location", target.location}});
    }
    Json steps = Json::array();
    for (const Step& step : record.steps) {
        steps.push_back(
            {{"kind", "port"},
             {"target", step.target},
             {"key", step.key},
             {"before", step.before},
             {"wanted", step.wanted}});
    }
    return {
        {"format", kFormat},
        {"number", record.number},
        {"command", printable(record.command)},
        {"started", record.started},
        {"user", printable(record.user)},
        {"user_id", record.user_id},
        {"boot_id", record.boot_id},
        {"kxctl_version", record.kxctl_version},
        {"library_version", record.library_version},
        {"confirm_within_seconds", record.confirm_within},
        {"reverts", record.reverts},
        {"targets", targets},
        {"steps", steps},
        {"files", files_json(record.files)},
    };
}

// A number that the setting can have, or null.
Json value_of(const Json& json, const Setting& setting) {
    const bool is_number = json.is_number_unsigned() ? json.get<std::uint64_t>() <= INT64_MAX
                                                     : json.is_number_integer();
    if (!json.is_null() && !(is_number && setting.holds(json.get<std::int64_t>()))) {
        throw std::runtime_error(fmt::format("a value of {} is wrong", setting.key));
    }
    return json;
}

const Setting& setting_of_key(const std::string& key) {
    const auto found = std::ranges::find(port_settings(), std::string_view(key), &Setting::key);
    if (found == port_settings().end()) {
        throw std::runtime_error("it has a setting that this kxctl does not know");
    }
    return *found;
}

Step step_of(const Json& json, std::size_t targets) {
    if (json.at("kind") != "port") {
        throw std::runtime_error("it has a kind of step that this kxctl does not know");
    }
    const Setting& setting = setting_of_key(json.at("key").get<std::string>());
    Step step{
        .target = json.at("target").get<std::size_t>(),
        .key = setting.key,
        .before = value_of(json.at("before"), setting),
        .wanted = value_of(json.at("wanted"), setting)};
    if (step.target >= targets) {
        throw std::runtime_error("a step has no target");
    }
    return step;
}

ChangeRecord record_of(const Json& json) {
    ChangeRecord record{
        .number = json.at("number").get<unsigned>(),
        .command = json.at("command").get<std::string>(),
        .started = json.at("started").get<std::string>(),
        .user = json.at("user").get<std::string>(),
        .user_id = json.at("user_id").get<unsigned>(),
        .boot_id = json.at("boot_id").get<std::string>(),
        .kxctl_version = json.at("kxctl_version").get<std::string>(),
        .library_version = json.at("library_version").get<std::string>(),
        .confirm_within = json.at("confirm_within_seconds").get<double>(),
        .reverts = json.at("reverts").get<unsigned>(),
        .files = files_of(json.at("files"))};
    for (const Json& each : json.at("targets")) {
        record.targets.push_back(
            {each.at("interface").get<std::string>(), each.at("mac").get<std::string>(),
             each.at("location").get<std::string>()});
    }
    for (const Json& each : json.at("steps")) {
        record.steps.push_back(step_of(each, record.targets.size()));
    }
    return record;
}

// Reads the result, and the values and refusals of the steps.
ChangeResult result_of(const Json& json, std::vector<Step>& steps) {
    const Json& results = json.at("steps");
    if (!results.is_array() || results.size() != steps.size()) {
        throw std::runtime_error("the result has other steps");
    }
    for (std::size_t i = 0; i < steps.size(); ++i) {
        steps[i].now = value_of(results[i].at("now"), setting_of_key(steps[i].key));
        const Json& failure = results[i].at("failure");
        if (!failure.is_null()) {
            steps[i].refused = Refusal{ExitCode::kFailed, failure.get<std::string>()};
        }
    }
    return {
        json.at("finished").get<std::string>(), json.at("remark").get<std::string>(),
        files_of(json.at("files"))};
}

ChangeEntry entry_in(const std::string& directory, unsigned number, const std::string& state) {
    ChangeEntry entry{number, state, directory, {}, {}, {}};
    const std::string result_path = directory + "/" + kChangeResult;
    try {
        ChangeRecord record = record_of(json_in(directory + "/" + kRecordName));
        if (access(result_path.c_str(), F_OK) == 0) {
            entry.result = result_of(json_in(result_path), record.steps);
        }
        entry.number = record.number;
        entry.record = std::move(record);
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::kNoPermission) {
            throw;
        }
        entry.damage = failure.what();
    } catch (const std::exception& mistake) {
        entry.damage = printable(mistake.what());
    }
    return entry;
}

}  // namespace

std::optional<ChangeEntry> open_entry() {
    const Journal journal = change_journal();
    if (!journal.has_open()) {
        return std::nullopt;
    }
    ChangeEntry entry = entry_in(journal.open_directory(), 0, kUnfinishedChange);
    if (entry.result && entry.record->confirm_within > 0) {
        entry.state = kWaiting;
    }
    return entry;
}

std::vector<ChangeEntry> change_entries() {
    std::vector<ChangeEntry> entries;
    if (const auto open = open_entry()) {
        entries.push_back(*open);
    }
    for (const DoneChange& done : change_journal().done()) {
        entries.push_back(entry_in(done.directory, done.number, done.outcome));
    }
    return entries;
}

void open_record(const Journal& journal, ChangeRecord& record) {
    record.number = journal.next_number();
    record.command = command_line();
    record.started = time_text();
    record.user = user_name();
    record.user_id = getuid();
    record.boot_id = boot_id();
    record.kxctl_version = KXCTL_VERSION;
    record.library_version = query_version().text();
    const std::string text = text_of(record_json(record));
    const JournalFile files[] = {{kRecordName, span_of(text)}};
    journal.open(files);
}

void write_result(
    const Journal& journal, const std::vector<Step>& steps, const ChangeResult& result) {
    Json all = Json::array();
    for (const Step& step : steps) {
        all.push_back(
            {{"now", step.now},
             {"failure", step.refused ? Json(printable(step.refused->reason)) : Json()}});
    }
    const std::string text = text_of(
        {{"format", kFormat},
         {"finished", result.finished},
         {"remark", printable(result.remark)},
         {"steps", all},
         {"files", files_json(result.files)}});
    const std::string path = journal.open_directory() + "/" + kChangeResult;
    unlink(path.c_str());  // of the change, when this is the result of its revert
    write_new_file(path, span_of(text));
}

void close_record(const Journal& journal, unsigned number, std::string_view outcome) {
    journal.close(number, outcome, kKeptChanges);
}

}  // namespace kx::ctl
