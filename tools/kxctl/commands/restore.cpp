// restore: apply the saved settings of the host's ports again, for example after a reboot.
#include <fmt/core.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>

#include "change/revert.hpp"
#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "files/working_directory.hpp"
#include "flash/unfinished.hpp"
#include "library/recording.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"
#include "settings/change_line.hpp"
#include "settings/configuration_lock.hpp"
#include "settings/interface_records.hpp"
#include "settings/port_driver.hpp"
#include "settings/port_settings.hpp"
#include "settings/saved_settings.hpp"

namespace kx::ctl::restore {
namespace {

// One saved setting; its number counts the file's lines from 1.
struct SavedLine : ChangeLine {
    std::string interface;
    std::int64_t value;  // as saved
    std::size_t number;
};

bool has_interface(const std::string& name) {
    std::error_code error;
    return std::filesystem::exists("/sys/class/net/" + name, error);
}

// Files contain all values as signed 32-bit numbers.
std::int64_t value_of_saved(const Setting& setting, std::int64_t saved) {
    const bool wraps =
        setting.form == Form::kUnsigned && setting.width == 4 && saved < 0 && saved >= INT32_MIN;
    return wraps ? static_cast<std::uint32_t>(saved) : saved;
}

class Restorer {
public:
    std::vector<SavedLine> lines;
    std::vector<DamagedLine> damaged;
    std::vector<std::string> other_ports;  // interfaces that are not the ports that were saved

    Restorer(
        const SavedSettings& saved, const InterfaceRecords& records,
        const std::optional<std::string>& missing, bool force)
        : damaged(saved.damaged), records_(records), missing_(missing), force_(force) {
        for (const SavedInterface& interface : saved.interfaces) {
            restore(interface);
        }
        std::ranges::stable_sort(damaged, {}, &DamagedLine::line);
    }

private:
    void restore(const SavedInterface& interface) {
        std::vector<ChangeLine> changes;
        for (const auto& [key, value] : interface.values) {
            if (const Setting* const setting = setting_of(key, value)) {
                changes.push_back(
                    {.setting = setting, .wanted = value_of_saved(*setting, value.value)});
            }
        }
        std::ranges::sort(changes, {}, &ChangeLine::setting);  // from the order of keys to that of
                                                               // the table
        std::string remark;
        if (!has_interface(interface.name)) {
            remark = "no such interface";
        } else if (!force_) {
            remark = other_port(interface.name);
        }
        if (remark.empty()) {
            apply(interface.name, changes);
        }
        for (ChangeLine& change : changes) {
            if (!remark.empty()) {
                change.skipped = remark;
            }
            const SavedValue& saved = interface.values.at(change.setting->saved_as);
            lines.push_back({{change}, interface.name, saved.value, saved.line});
        }
    }

    // The setting of a saved value; null for a damaged line, which no setting accepts.
    const Setting* setting_of(const std::string& key, const SavedValue& saved) {
        const Setting* const setting = saved_port_setting(key);
        if (setting == nullptr) {
            damaged.push_back({saved.line, fmt::format("unknown setting {}", key)});
        } else if (!setting->holds(value_of_saved(*setting, saved.value))) {
            damaged.push_back({saved.line, fmt::format("{} cannot be {}", key, saved.value)});
            return nullptr;
        }
        return setting;
    }

    // Why an interface is not the port whose settings were saved; empty when it is, or when nothing
    // was recorded about it.
    std::string other_port(const std::string& name) {
        const auto record = records_.by_name.find(name);
        const auto now = identify(name);
        if (record == records_.by_name.end() || !now || record->second.mac == now->mac) {
            return "";
        }
        other_ports.push_back(name);
        return fmt::format(
            "saved for {} at {}; {} is {} at {} now", record->second.mac, record->second.location,
            name, now->mac, now->location);
    }

    void apply(const std::string& name, std::span<ChangeLine> changes) {
        const PortDriver driver(name);
        const PortInfo port = driver.read();
        PortSettings wanted = port.settings;
        for (ChangeLine& change : changes) {
            change.before = change.setting->known_value_in(&port.settings);
            change.refused = refusal_of_value(*change.setting, change.wanted);
            if (!change.refused) {
                change.setting->put_into(&wanted, change.wanted);
            }
        }
        skip_followers(changes, wanted);
        driver.refuse(changes, port, wanted);
        if (missing_) {
            refuse_changes(changes, *missing_);
            read_back(changes, &port.settings);
            return;
        }
        {
            const RecordingPause pause;  // the file already contains the settings
            driver.apply(changes, wanted);
        }
        const PortInfo after = driver.read();
        read_back(changes, &after.settings);
    }

    // Speed and duplex are applied with auto-negotiation, under whose change bit they were saved,
    // and only when it is off.
    static void skip_followers(std::span<ChangeLine> changes, const PortSettings& wanted) {
        for (ChangeLine& change : changes) {
            const Setting& leader = leader_of(*change.setting);
            const bool has_leader = std::ranges::any_of(
                changes, [&](const ChangeLine& other) { return other.setting == &leader; });
            if (!has_leader) {
                change.skipped = fmt::format("saved without {}", leader.saved_as);
            } else if (change.setting != &leader && wanted.autoneg == 1) {
                change.skipped = "auto-negotiation is on";
            }
        }
    }

    const InterfaceRecords& records_;
    const std::optional<std::string>& missing_;
    bool force_;
};

// The default file is missing when nothing was ever saved; a file that the user names must exist.
std::string read_file(const std::string& path, bool named) {
    std::ifstream file(user_path(path), std::ios::binary);
    if (!file) {
        const int reason = errno;
        if (reason == ENOENT && !named) {
            return "";
        }
        if (reason == EACCES || reason == EPERM) {
            throw refused_file(path, reason);
        }
        throw Failure(
            reason == ENOENT ? ExitCode::kNotFound : ExitCode::kFailed,
            fmt::format("{}: {}", path, std::strerror(reason)));
    }
    try {
        file.exceptions(std::ios::badbit);
        return {std::istreambuf_iterator<char>(file), {}};
    } catch (const std::ios::failure&) {
        throw Failure(ExitCode::kFailed, fmt::format("{} cannot be read", path));
    }
}

std::size_t count(const std::vector<SavedLine>& lines, Result result) {
    return static_cast<std::size_t>(std::ranges::count_if(
        lines, [result](const SavedLine& line) { return line.result() == result; }));
}

std::string reason_of(const SavedLine& line) {
    switch (line.result()) {
        case Result::kSkipped:
            return line.skipped;
        case Result::kRefused:
            return line.refused->reason;
        case Result::kDiffers:
            return fmt::format("reads back as {}", line.setting->text_of(*line.now));
        default:
            return "";
    }
}

std::vector<ChangeLine> changes_of(const Restorer& restorer) {
    return {restorer.lines.begin(), restorer.lines.end()};
}

Json json_of_revert(const std::optional<Reverted>& reverted) {
    return reverted ? Json{{"number", reverted->number},
                           {"command", reverted->command},
                           {"failures", reverted->left}}
                    : Json();
}

void tell_revert(const std::optional<Reverted>& reverted) {
    if (!reverted) {
        return;
    }
    std::ranges::for_each(reverted->left, complain);
    complain(fmt::format(
        "change {} ({}) was not finished or not confirmed and is {}", reverted->number,
        reverted->command, reverted->left.empty() ? "taken back" : "not taken back completely"));
}

void tell_json(
    Output& output, const std::string& path, const Restorer& restorer,
    const std::optional<Reverted>& reverted, const UnfinishedChanges& unfinished) {
    Json settings = Json::array();
    for (const SavedLine& line : restorer.lines) {
        const std::string reason = reason_of(line);
        settings.push_back(
            {{"interface", line.interface},
             {"key", line.setting->key},
             {"value", line.value},
             {"before", line.setting->json_of(line.before)},
             {"now", line.setting->json_of(line.now)},
             {"line", line.number},
             {"result", name_of(line.result())},
             {"reason", reason.empty() ? Json() : Json(reason)}});
    }
    Json damaged = Json::array();
    for (const DamagedLine& line : restorer.damaged) {
        damaged.push_back({{"line", line.line}, {"reason", line.reason}});
    }
    output.json(Json{
        {"file", path},
        {"changed", has_changed(changes_of(restorer))},
        {"settings", settings},
        {"damaged", damaged},
        {"reverted_change", json_of_revert(reverted)},
        {"unfinished_flash_changes", unfinished.json()}});
}

void tell_people(Output& output, const Restorer& restorer) {
    if (restorer.lines.empty() && restorer.damaged.empty()) {
        output.text("No port setting is saved.\n");
        return;
    }
    Table table({{"INTERFACE"}, {"SETTING"}, {"VALUE", Align::kRight}, {"RESULT"}, {"REASON"}});
    for (const SavedLine& line : restorer.lines) {
        const Result result = line.result();
        table.add_row(
            {line.interface, line.setting->key, fmt::format("{}", line.value),
             Cell(name_of(result), style_of(result)), reason_of(line)});
    }
    output.table(table);
    const auto counted = [&](Result result) { return count(restorer.lines, result); };
    output.text(fmt::format(
        "{} applied, {} unchanged, {} differ, {} skipped, {} refused, {} damaged\n",
        counted(Result::kApplied), counted(Result::kUnchanged), counted(Result::kDiffers),
        counted(Result::kSkipped), counted(Result::kRefused), restorer.damaged.size()));
}

// When all settings fail for one reason of the host, such as a missing privilege, it is one
// failure.
ExitCode verdict(const Restorer& restorer, const std::optional<std::string>& missing) {
    const std::vector<ChangeLine> changes = changes_of(restorer);
    const ExitCode code = verdict_of(changes);
    if (code == ExitCode::kNoPermission && missing) {
        complain(*missing);
    }
    const bool whole = restorer.damaged.empty() && restorer.other_ports.empty();
    if (code == ExitCode::kDone) {
        return whole ? ExitCode::kDone : ExitCode::kPartly;
    }
    return code == ExitCode::kFailed || code == ExitCode::kVerification ? ExitCode::kPartly : code;
}

ExitCode run(const Arguments& arguments, Output& output) {
    const std::string path = arguments.get("FILE", KX_PORT_PARAMETER_FILE);
    const ConfigurationLock lock(ConfigurationLock::Purpose::kRead, lock_timeout_option(arguments));
    const auto missing = missing_privilege(Privilege::kNetworkAdmin, read_security_context());
    // Before the saved settings are read: the change may have written some of them.
    const std::optional<Reverted> reverted = missing ? std::nullopt : revert_at_start();
    const InterfaceRecords records = read_interface_records();
    const Restorer restorer(
        parse_saved_settings(read_file(path, arguments.has("FILE"))), records, missing,
        arguments.has("--force"));
    const UnfinishedChanges unfinished;
    if (output.wants_json()) {
        tell_json(output, path, restorer, reverted, unfinished);
    } else {
        tell_people(output, restorer);
    }
    for (const DamagedLine& line : restorer.damaged) {
        complain(fmt::format("{}:{}: {}", path, line.line, line.reason));
    }
    for (const DamagedLine& line : records.damaged) {
        complain(fmt::format("{}:{}: {}", kInterfaceRecordFile, line.line, line.reason));
    }
    tell_revert(reverted);
    for (const std::string& line : unfinished.lines()) {
        complain(line);
    }
    const ExitCode code = verdict(restorer, missing);
    const bool whole =
        records.damaged.empty() && (!reverted || reverted->left.empty()) && unfinished.none();
    return code == ExitCode::kDone && !whole ? ExitCode::kPartly : code;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "restore",
            .verb = "",
            .help = "Apply the saved port settings again",
            .about = "First takes back a change that was not finished, or not confirmed before the "
                     "machine started (see \"kxctl revert\"). Then reads " KX_PORT_PARAMETER_FILE
                     " and reports for each saved setting whether it was applied, was so already "
                     "(unchanged), reads back differently (differs), was refused, or was skipped: "
                     "its interface is missing, or is another port than the one whose settings "
                     "\"kxctl port set\" saved. The number of each damaged line follows, and each "
                     "change of a flash that is not finished (exit status 4). The service "
                     "kxlinhw-restore runs it at start-up.",
            .arguments = with_lock_options(
                {{.name = "FILE", .help = "Read this file instead", .count = Count::kOptional},
                 {.name = "--force",
                  .help = "Also apply settings that were saved for another port"}}),
            .examples = {"kxctl restore", "kxctl restore --json"},
            .run = run,
        },
    };
}

const TablePart kRows(1400, rows);

}  // namespace
}  // namespace kx::ctl::restore
