// What a set command tells: each setting before and after, each message of the library on a line
// of its own.
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
    // subject: what is changed, the first members of the JSON answer. before: the record as read.
    // Changes must outlive the report.
    ChangeReport(Json subject, std::span<const Change> changes, const void* before);

    // Tell what would be changed.
    ExitCode tell_plan(Output& output) const;

    // Tell what was changed, as read back. messages: what the library said of settings that
    // failed; without one a value that differs from the one asked for was silently not taken.
    // privilege: what a change takes; when nothing was taken, its lack is told as the reason.
    ExitCode tell_result(
        Output& output, const void* after, std::vector<std::string> messages,
        Privilege privilege) const;

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
