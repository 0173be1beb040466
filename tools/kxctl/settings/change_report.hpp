// The report of a set command: each setting before and after, and one line for each message of the
// library.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "failure/exit_code.hpp"
#include "failure/permission.hpp"
#include "output/json.hpp"
#include "settings/setting.hpp"

namespace kx::ctl {

class Output;

class ChangeReport {
public:
    // subject: the changed object, as the first members of the JSON answer. before: the record as
    // read. Changes must outlive the report.
    ChangeReport(Json subject, std::span<const Change> changes, const void* before);

    // Report what would be changed.
    ExitCode tell_plan(Output& output) const;

    // Report what was changed, as read back. messages: the library's messages about failed
    // settings; when there is none and a value differs from the requested one, the driver ignored
    // it silently. privilege: what a change needs; when no setting was applied and the privilege is
    // missing, it is reported as the reason.
    ExitCode tell_result(
        Output& output, const void* after, std::vector<std::string> messages,
        Privilege privilege) const;

    // For a process that lacks the privilege for changes. Where the record has all the values
    // already, report that as a result; otherwise throw Failure (kNoPermission). missing: what it
    // lacks.
    ExitCode tell_without_privilege(
        Output& output, const void* record, const std::string& missing) const;

private:
    struct Line {
        const Setting* setting;
        std::optional<std::int64_t> before;
        std::int64_t wanted;
    };

    Json subject_;
    std::vector<Line> lines_;
};

}  // namespace kx::ctl
