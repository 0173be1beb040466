// The meaning of kxctl's exit codes: one table, also for the help.
#pragma once

#include <cstdint>
#include <span>

namespace kx::ctl {

enum class ExitCode : std::uint8_t {
    kDone = 0,
    kFailed = 1,
    kUsage = 2,
    kNotFound = 3,
    kPartly = 4,
    kBusy = 5,
    kVerification = 6,
    kNoPermission = 13,
    kNotSupported = 14,
};

struct ExitCodeRow {
    ExitCode code;
    const char* meaning;
};

// Every exit code, in ascending order.
[[nodiscard]] std::span<const ExitCodeRow> exit_codes();

// The exit code of a library status. A command may use another code, for example when only some of
// its settings were applied.
[[nodiscard]] ExitCode exit_code_of_status(std::uint32_t status);

}  // namespace kx::ctl
