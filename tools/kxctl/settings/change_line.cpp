#include "settings/change_line.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <set>

namespace kx::ctl {
namespace {

struct ResultRow {
    const char* name;
    Style style;
};

constexpr ResultRow kResults[] = {
    {"applied", Style::kGood}, {"unchanged", Style::kPlain}, {"differs", Style::kBad},
    {"refused", Style::kBad},  {"skipped", Style::kPlain},
};

const ResultRow& row_of(Result result) { return kResults[static_cast<std::size_t>(result)]; }

std::optional<ExitCode> failure_code(const ChangeLine& line) {
    const Result result = line.result();
    return result == Result::kRefused   ? std::optional(line.refused->code)
           : result == Result::kDiffers ? std::optional(ExitCode::kVerification)
                                        : std::nullopt;
}

bool changed(const ChangeLine& line) {
    return line.result() == Result::kApplied ||
           (line.before && line.now && line.now != line.before);
}

bool holds(const ChangeLine& line) {
    const Result result = line.result();
    return result == Result::kApplied || result == Result::kUnchanged;
}

}  // namespace

const char* name_of(Result result) { return row_of(result).name; }

Style style_of(Result result) { return row_of(result).style; }

Result ChangeLine::result() const {
    if (refused) {
        return Result::kRefused;
    }
    if (!skipped.empty()) {
        return Result::kSkipped;
    }
    if (now && *now != wanted) {
        return Result::kDiffers;
    }
    return now && before == now ? Result::kUnchanged : Result::kApplied;
}

std::optional<Refusal> refusal_of_value(const Setting& setting, std::int64_t value) {
    const bool has_words = setting.words.zero != nullptr;
    if (setting.range.contains(value) && (!has_words || value == 0 || value == 1)) {
        return std::nullopt;
    }
    return Refusal{
        ExitCode::kFailed,
        fmt::format("{} cannot be {}: {}", setting.key, value, setting.description())};
}

void refuse_changes(std::span<ChangeLine> lines, const std::string& missing) {
    for (ChangeLine& line : lines) {
        if (!line.refused && line.skipped.empty() && line.before != line.wanted) {
            line.refused = Refusal{
                ExitCode::kNoPermission,
                fmt::format("{} cannot be changed: {}", line.setting->key, missing)};
        }
    }
}

void read_back(std::span<ChangeLine> lines, const void* record) {
    for (ChangeLine& line : lines) {
        const bool lacking = line.refused && !line.before;
        line.now = lacking ? std::nullopt : line.setting->known_value_in(record);
    }
}

bool has_changed(std::span<const ChangeLine> lines) { return std::ranges::any_of(lines, changed); }

std::vector<std::string> failures_of(std::span<const ChangeLine> lines) {
    std::vector<std::string> failures;
    for (const ChangeLine& line : lines) {
        const Result result = line.result();
        std::string text;
        if (result == Result::kRefused) {
            text = line.refused->reason;
        } else if (result == Result::kDiffers) {
            text = fmt::format(
                "{} reads back as {}, not {}", line.setting->key, line.setting->text_of(*line.now),
                line.setting->text_of(line.wanted));
        }
        if (!text.empty() && std::ranges::find(failures, text) == failures.end()) {
            failures.push_back(std::move(text));
        }
    }
    return failures;
}

ExitCode verdict_of(std::span<const ChangeLine> lines) {
    std::set<ExitCode> codes;
    for (const ChangeLine& line : lines) {
        if (const auto code = failure_code(line)) {
            codes.insert(*code);
        }
    }
    if (codes.empty()) {
        return ExitCode::kDone;
    }
    const bool one_reason = codes.size() == 1;
    if (one_reason && codes.contains(ExitCode::kVerification)) {
        return ExitCode::kVerification;
    }
    const bool changes = has_changed(lines);
    if (one_reason && codes.contains(ExitCode::kNoPermission) && !changes) {
        return ExitCode::kNoPermission;
    }
    if (changes || std::ranges::any_of(lines, holds)) {
        return ExitCode::kPartly;
    }
    if (one_reason) {
        return *codes.begin();
    }
    for (const ExitCode code : {ExitCode::kNoPermission, ExitCode::kBusy}) {
        if (codes.contains(code)) {
            return code;
        }
    }
    return ExitCode::kFailed;
}

}  // namespace kx::ctl
