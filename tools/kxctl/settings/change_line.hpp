// One setting of a change: what was asked for, and the result. The exit code of a command
// that changes settings follows from its lines.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "failure/exit_code.hpp"
#include "output/table.hpp"
#include "settings/setting.hpp"

namespace kx::ctl {

// Why a setting is not applied.
struct Refusal {
    ExitCode code;
    std::string reason;
};

enum class Result : std::uint8_t { kApplied, kUnchanged, kDiffers, kRefused, kSkipped };

[[nodiscard]] const char* name_of(Result result);
[[nodiscard]] Style style_of(Result result);

struct ChangeLine {
    const Setting* setting;
    std::int64_t wanted;
    std::optional<std::int64_t> before = {};  // nothing when it is not known
    std::optional<std::int64_t> now = {};     // the same
    std::optional<Refusal> refused = {};
    std::string skipped = {};  // why it was not even tried; empty when it was

    [[nodiscard]] Result result() const;
};

// Why a value can never be set: it is out of the setting's range.
[[nodiscard]] std::optional<Refusal> refusal_of_value(const Setting& setting, std::int64_t value);

// Refuse what would change, for a process that lacks a privilege. missing: what it lacks.
void refuse_changes(std::span<ChangeLine> lines, const std::string& missing);

// The values that a record has now.
void read_back(std::span<ChangeLine> lines, const void* record);

// Whether something changed; what cannot be read back counts as changed when it was applied.
[[nodiscard]] bool has_changed(std::span<const ChangeLine> lines);

// What failed, one sentence for each reason.
[[nodiscard]] std::vector<std::string> failures_of(std::span<const ChangeLine> lines);

// kDone when each line was applied or was so already; kVerification when the others read back
// differently. When all lines failed, the reason that they share; otherwise kPartly. A privilege
// that prevents every change is the reason even beside lines that were so already.
[[nodiscard]] ExitCode verdict_of(std::span<const ChangeLine> lines);

}  // namespace kx::ctl
