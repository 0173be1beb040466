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
#include <map>

#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "files/working_directory.hpp"
#include "library/call.hpp"
#include "library/recording.hpp"
#include "output/output.hpp"
#include "output/standard_streams.hpp"
#include "output/table.hpp"
#include "settings/configuration_lock.hpp"
#include "settings/port_settings.hpp"
#include "settings/saved_settings.hpp"

namespace kx::ctl::restore {
namespace {

enum class Result : std::uint8_t { kApplied, kSkipped, kRefused };

struct Outcome {
    Result result;
    std::string reason;  // empty when applied
};

// One saved setting; its number counts the file's lines from 1.
struct Line {
    std::string interface;
    std::string key;
    std::int64_t value;
    std::size_t number;
    Outcome outcome;
};

const char* name_of(Result result) {
    switch (result) {
        case Result::kApplied:
            return "applied";
        case Result::kSkipped:
            return "skipped";
        case Result::kRefused:
            break;
    }
    return "refused";
}

Style style_of(Result result) {
    return result == Result::kApplied   ? Style::kGood
           : result == Result::kRefused ? Style::kBad
                                        : Style::kPlain;
}

bool has_interface(const std::string& name) {
    std::error_code error;
    return std::filesystem::exists("/sys/class/net/" + name, error);
}

// The library's reason why a setter refused. setMTU gives none.
std::string reason_of(int status) {
    const std::vector<std::string> messages = split_detail(GetErrStr(KX_SET_FAILED));
    if (!messages.empty()) {
        return messages.front();
    }
    const char* const text = GetErrStr(status);
    return text != nullptr ? text : GetErrStr(KX_UNKNOWN_ERROR);
}

class Restorer {
public:
    std::vector<Line> lines;
    std::vector<DamagedLine> damaged;

    explicit Restorer(const SavedSettings& saved) : damaged(saved.damaged) {
        for (const SavedInterface& interface : saved.interfaces) {
            restore(interface);
        }
        std::ranges::stable_sort(damaged, {}, &DamagedLine::line);
    }

private:
    void restore(const SavedInterface& interface) {
        PortSettings settings{};
        std::vector<const Setting*> saved;
        for (const auto& [key, value] : interface.values) {
            if (const Setting* const setting = take(key, value, settings)) {
                saved.push_back(setting);
            }
        }
        std::ranges::sort(saved);  // converts the order of keys into that of the table
        const bool present = has_interface(interface.name);
        std::map<const Setting*, Outcome> outcomes;
        for (const Setting* setting : saved) {
            const Outcome outcome = present ? apply(*setting, interface.name, settings, outcomes)
                                            : Outcome{Result::kSkipped, "no such interface"};
            outcomes[setting] = outcome;
            const SavedValue& value = interface.values.at(setting->saved_as);
            lines.push_back({interface.name, setting->key, value.value, value.line, outcome});
        }
    }

    // Store a saved value in the settings; null for a damaged line, which no setting accepts.
    const Setting* take(const std::string& key, const SavedValue& saved, PortSettings& settings) {
        const Setting* const setting = saved_port_setting(key);
        if (setting == nullptr) {
            damaged.push_back({saved.line, fmt::format("unknown setting {}", key)});
            return nullptr;
        }
        // Files contain all values as signed 32-bit numbers.
        const std::int64_t value = setting->form == Form::kUnsigned && setting->width == 4 &&
                                           saved.value < 0 && saved.value >= INT32_MIN
                                       ? static_cast<std::uint32_t>(saved.value)
                                       : saved.value;
        if (!setting->holds(value)) {
            damaged.push_back({saved.line, fmt::format("{} cannot be {}", key, saved.value)});
            return nullptr;
        }
        setting->put_into(&settings, value);
        return setting;
    }

    // Settings with one change bit were saved together, and are applied with the first of them.
    static Outcome apply(
        const Setting& setting, const std::string& interface, PortSettings& settings,
        const std::map<const Setting*, Outcome>& outcomes) {
        const Setting& leader = leader_of(setting);
        if (&leader != &setting) {
            const auto found = outcomes.find(&leader);
            return found != outcomes.end()
                       ? found->second
                       : Outcome{
                             Result::kSkipped, fmt::format("saved without {}", leader.saved_as)};
        }
        std::memset(errStr, 0, KX_DETAIL_SIZE);
        const int status = call_library([&] {
            const RecordingPause pause;  // the file already contains the setting
            return setting.setter(
                interface.c_str(), &settings, static_cast<std::uint32_t>(setting.change_bit));
        });
        return status == 0 ? Outcome{Result::kApplied, ""}
                           : Outcome{Result::kRefused, reason_of(status)};
    }
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

std::size_t count(const std::vector<Line>& lines, Result result) {
    return static_cast<std::size_t>(std::ranges::count_if(
        lines, [result](const Line& line) { return line.outcome.result == result; }));
}

void tell_json(Output& output, const std::string& path, const Restorer& restorer) {
    Json settings = Json::array();
    for (const Line& line : restorer.lines) {
        settings.push_back(
            {{"interface", line.interface},
             {"key", line.key},
             {"value", line.value},
             {"line", line.number},
             {"result", name_of(line.outcome.result)},
             {"reason", line.outcome.reason.empty() ? Json() : Json(line.outcome.reason)}});
    }
    Json damaged = Json::array();
    for (const DamagedLine& line : restorer.damaged) {
        damaged.push_back({{"line", line.line}, {"reason", line.reason}});
    }
    output.json(Json{{"file", path}, {"settings", settings}, {"damaged", damaged}});
}

void tell_people(Output& output, const Restorer& restorer) {
    if (restorer.lines.empty() && restorer.damaged.empty()) {
        output.text("No port setting is saved.\n");
        return;
    }
    Table table({{"INTERFACE"}, {"SETTING"}, {"VALUE", Align::kRight}, {"RESULT"}, {"REASON"}});
    for (const Line& line : restorer.lines) {
        const Result result = line.outcome.result;
        table.add_row(
            {line.interface, line.key, fmt::format("{}", line.value),
             Cell(name_of(result), style_of(result)), line.outcome.reason});
    }
    output.table(table);
    output.text(fmt::format(
        "{} applied, {} skipped, {} refused, {} damaged\n", count(restorer.lines, Result::kApplied),
        count(restorer.lines, Result::kSkipped), count(restorer.lines, Result::kRefused),
        restorer.damaged.size()));
}

// When all settings fail because the process lacks the privilege, it is one failure.
ExitCode verdict(const Restorer& restorer) {
    const std::size_t refused = count(restorer.lines, Result::kRefused);
    if (restorer.damaged.empty() && refused == 0) {
        return ExitCode::kDone;
    }
    const auto known = missing_privilege(Privilege::kNetworkAdmin, read_security_context());
    if (refused > 0 && count(restorer.lines, Result::kApplied) == 0 && known) {
        complain(*known);
        return ExitCode::kNoPermission;
    }
    return ExitCode::kPartly;
}

ExitCode run(const Arguments& arguments, Output& output) {
    const std::string path = arguments.get("FILE", KX_PORT_PARAMETER_FILE);
    const ConfigurationLock lock(ConfigurationLock::Purpose::kRead, lock_timeout_option(arguments));
    const Restorer restorer(parse_saved_settings(read_file(path, arguments.has("FILE"))));
    if (output.wants_json()) {
        tell_json(output, path, restorer);
    } else {
        tell_people(output, restorer);
    }
    for (const DamagedLine& line : restorer.damaged) {
        complain(fmt::format("{}:{}: {}", path, line.line, line.reason));
    }
    return verdict(restorer);
}

std::vector<Command> rows() {
    return {
        {
            .noun = "restore",
            .verb = "",
            .help = "Apply the saved port settings again",
            .about = "Reads " KX_PORT_PARAMETER_FILE
                     " and reports for each saved setting whether it was applied, skipped "
                     "because its interface is missing, or refused; and the number of each "
                     "damaged line. The service kxlinhw-restore runs it at start-up.",
            .arguments = with_lock_options(
                {{.name = "FILE", .help = "Read this file instead", .count = Count::kOptional}}),
            .examples = {"kxctl restore", "kxctl restore --json"},
            .run = run,
        },
    };
}

const TablePart kRows(1400, rows);

}  // namespace
}  // namespace kx::ctl::restore
