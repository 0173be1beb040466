#include "failure/exit_code.hpp"

#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/status.h>

namespace kx::ctl {
namespace {

constexpr ExitCodeRow kExitCodes[] = {
    {ExitCode::kDone, "done"},
    {ExitCode::kFailed, "failed"},
    {ExitCode::kUsage, "wrong usage"},
    {ExitCode::kNotFound, "no such card, port, driver or other object"},
    {ExitCode::kPartly, "partly done, or something differs from what was asked for"},
    {ExitCode::kBusy, "the card or its configuration is busy"},
    {ExitCode::kVerification, "what was written does not read back"},
    {ExitCode::kNoPermission, "no permission"},
    {ExitCode::kNotSupported, "not supported by the card or its driver"},
};

struct StatusRow {
    std::uint32_t status;
    ExitCode code;
};

// Statuses that are not in the table are failures.
constexpr StatusRow kStatuses[] = {
    {KX_SUCCESS, ExitCode::kDone},
    {KX_NO_CARDS, ExitCode::kNotFound},
    {KX_NO_ADAPTERS, ExitCode::kNotFound},
    {KX_INVALID_SET_VALUE, ExitCode::kUsage},
    {KX_DRIVER_NOT_LOADED, ExitCode::kNotFound},
    {KX_RESOURCE_UNAVAILABLE, ExitCode::kNotFound},
    {KX_INVALID_PORT, ExitCode::kNotFound},
    {KX_NO_SUCH_DEVICE, ExitCode::kNotFound},
    {KX_ZFAB3_NOT_LOADED, ExitCode::kNotFound},
    {KX_Q3_TOM_NOT_LOADED, ExitCode::kNotFound},
    {KX_NO_SUCH_STAT, ExitCode::kNotFound},
    {KX_NIC_ONLY, ExitCode::kNotSupported},
    {KX_NO_PORT, ExitCode::kNotFound},
    {KX_UNSUPPORTED_DRIVER, ExitCode::kNotSupported},
    {KX_INVALID_PARAMETER, ExitCode::kNotSupported},  // the driver lacks the parameter
};

}  // namespace

std::span<const ExitCodeRow> exit_codes() { return kExitCodes; }

ExitCode exit_code_of_status(std::uint32_t status) {
    for (const StatusRow& row : kStatuses) {
        if (row.status == status) {
            return row.code;
        }
    }
    return ExitCode::kFailed;
}

}  // namespace kx::ctl
