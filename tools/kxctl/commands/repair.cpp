// repair: restore a configuration file whose rewrite was interrupted.
//
// A rewrite of FILE writes FILE.tmp, flushes it, renames FILE to FILE.bk and FILE.tmp to FILE, and
// removes FILE.bk. The existing names show where it stopped.
#include <fmt/core.h>
#include <kxlinhw/settings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "commands/commands.hpp"
#include "failure/failure.hpp"
#include "failure/permission.hpp"
#include "files/directory_lock.hpp"
#include "files/end_of_links.hpp"
#include "output/output.hpp"
#include "output/table.hpp"
#include "settings/configuration_lock.hpp"

namespace kx::ctl::repair {
namespace {

constexpr const char* kFiles[] = {KX_PORT_PARAMETER_FILE, KX_SYSCTL_FILE};

struct Names {
    explicit Names(const std::string& path)
        : file(path), fresh(path + ".tmp"), backup(path + ".bk") {}
    std::string file;
    std::string fresh;
    std::string backup;
};

Failure failure_of_file(const std::string& what, int reason) {
    if (reason == EACCES || reason == EPERM) {
        return refused_file(what, reason);
    }
    return {ExitCode::kFailed, fmt::format("{}: {}", what, std::strerror(reason))};
}

// A name that cannot be looked up may exist, so any further step would be a guess.
bool exists(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) {
        return true;
    }
    const int reason = errno;
    if (reason != ENOENT && reason != ENOTDIR) {
        throw failure_of_file(path + " cannot be looked up", reason);
    }
    return false;
}

void rename_or_fail(const std::string& from, const std::string& to) {
    if (std::rename(from.c_str(), to.c_str()) != 0) {
        const int reason = errno;
        throw failure_of_file(fmt::format("{} cannot be renamed to {}", from, to), reason);
    }
}

enum class State : std::uint8_t { kWhole, kNeverMade, kFinished, kTakenBack, kUnclear };

struct Finding {
    std::string file;
    State state;
    std::string text;
};

const char* name_of(State state) {
    switch (state) {
        case State::kWhole:
            return "whole";
        case State::kNeverMade:
            return "absent";
        case State::kFinished:
        case State::kTakenBack:
            return "repaired";
        case State::kUnclear:
            break;
    }
    return "unclear";
}

// When the file exists, the other files are not yet or no longer needed.
std::string leftovers_of(const Names& names) {
    std::string text;
    for (const std::string& name : {names.fresh, names.backup}) {
        if (exists(name)) {
            text += text.empty() ? name : " and " + name;
        }
    }
    return text.empty() ? "" : text + " left behind; the next rewrite replaces them";
}

Finding repair(const std::string& path) {
    const Names names(end_of_links(path));
    // Between its two renames, a running rewrite looks like an interrupted one.
    const DirectoryLock lock(names.file);
    if (exists(names.file)) {
        return {path, State::kWhole, leftovers_of(names)};
    }
    if (!exists(names.backup)) {
        if (exists(names.fresh)) {
            return {path, State::kUnclear, names.fresh + " may be incomplete and is left alone"};
        }
        return {path, State::kNeverMade, ""};
    }
    // The old text was renamed away, so the new one had been flushed.
    if (exists(names.fresh)) {
        rename_or_fail(names.fresh, names.file);
        lock.flush();
        unlink(names.backup.c_str());
        return {path, State::kFinished, "the interrupted rewrite is finished"};
    }
    rename_or_fail(names.backup, names.file);
    lock.flush();
    return {path, State::kTakenBack, "the text before the interrupted rewrite is back"};
}

ExitCode run(const Arguments& arguments, Output& output) {
    const ConfigurationLock lock(ConfigurationLock::Purpose::kRead, lock_timeout_option(arguments));
    Json files = Json::array();
    Table table({{"FILE"}, {"STATE"}, {"REMARK"}});
    ExitCode code = ExitCode::kDone;
    bool changed = false;
    for (const char* path : kFiles) {
        const Finding finding = repair(path);
        changed |= finding.state == State::kFinished || finding.state == State::kTakenBack;
        if (finding.state == State::kUnclear) {
            code = ExitCode::kPartly;
        }
        files.push_back(
            {{"file", finding.file},
             {"state", name_of(finding.state)},
             {"remark", finding.text.empty() ? Json() : Json(finding.text)}});
        table.add_row(
            {finding.file,
             Cell(name_of(finding.state), code == ExitCode::kDone ? Style::kPlain : Style::kBad),
             finding.text});
    }
    if (output.wants_json()) {
        output.json(Json{{"changed", changed}, {"files", files}});
    } else {
        output.table(table);
    }
    return code;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "repair",
            .verb = "",
            .help = "Restore a half-rewritten configuration file",
            .about = "Checks " KX_PORT_PARAMETER_FILE " and " KX_SYSCTL_FILE
                     ". After a power cut between the two renames of a rewrite, the file exists "
                     "only under other names; this command restores its name. The service "
                     "kxlinhw-repair runs it early at start-up.",
            .arguments = with_lock_options({}),
            .examples = {"kxctl repair", "kxctl repair --json"},
            .run = run,
        },
    };
}

const TablePart kRows(1500, rows);

}  // namespace
}  // namespace kx::ctl::repair
