// The report of a set command: each setting before and after, and one line for each failure.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "failure/exit_code.hpp"
#include "output/json.hpp"
#include "settings/change_line.hpp"

namespace kx::ctl {

class Output;

class ChangeReport {
public:
    // subject: the changed object, as the first members of the JSON answer. before: the record as
    // read. Values out of their range are refused. The settings must outlive the report.
    ChangeReport(Json subject, std::span<const Change> changes, const void* before);

    // To refuse what the driver lacks, and to apply the rest.
    [[nodiscard]] std::span<ChangeLine> lines() { return lines_; }

    // The changes that are not refused.
    [[nodiscard]] std::vector<Change> accepted() const;

    // Refuse the settings that messages of the library name ("Set mss for 03:00.4 failed: ..."). A
    // message that names none belongs to all.
    void take_messages(const std::vector<std::string>& messages);

    // What belongs to the applied settings could not be saved; the reason.
    void add_unsaved(const std::string& reason) { unsaved_.push_back(reason); }

    // Report what would be changed, with the exit code that the change would have.
    ExitCode tell_plan(Output& output) const;

    // Report what was changed. after: the record as read again.
    ExitCode tell_result(Output& output, const void* after);

private:
    [[nodiscard]] Json answer(const char* last_value) const;

    Json subject_;
    std::vector<ChangeLine> lines_;
    std::vector<std::string> unsaved_;
};

}  // namespace kx::ctl
