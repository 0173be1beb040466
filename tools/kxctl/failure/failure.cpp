#include "failure/failure.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/status.h>

#include <cstdlib>

namespace kx::ctl {
namespace {

// Texts for statuses without a text in the library, or with an unclear one.
std::string text_of_status(std::uint32_t status) {
    switch (status) {
        case KX_SET_FAILED:
            return "The settings could not be applied";
        case KX_OUTPUT_ALLOC_FAILED:
            return "No memory for the output of the management tool";
        case KX_OUTPUT_REALLOC_FAILED:
            return "No memory for more output of the management tool";
        case KX_NO_ADAPTERS:
            return "No adapter found";
        default:
            break;
    }
    const char* const text = GetErrStr(static_cast<std::int32_t>(status));
    return text == nullptr ? fmt::format("The library returned status {}", status) : text;
}

bool is_about_missing_adapters(std::uint32_t status) {
    return status == KX_NO_CARDS || status == KX_NO_ADAPTERS || status == KX_DRIVER_NOT_LOADED;
}

// The list that may show something when another one is empty.
const char* other_list(std::uint32_t status) {
    switch (status) {
        case KX_NO_CARDS:
        case KX_DRIVER_NOT_LOADED:
            return "; \"kxctl adapter list\" also shows adapters without a driver";
        case KX_NO_ADAPTERS:
            return "; \"kxctl card list\" shows the cards that a driver serves";
        default:
            return "";
    }
}

}  // namespace

Failure Failure::of_status(std::uint32_t status) {
    Failure failure(exit_code_of_status(status), text_of_status(status));
    failure.status_ = status;
    if (status == KX_SET_FAILED) {
        failure.detail_ = split_detail(GetErrStr(KX_SET_FAILED));
    }
    return failure;
}

std::string Failure::line() const {
    std::string line = what();
    if (!detail_.empty()) {
        line += fmt::format(": {}", fmt::join(detail_, "; "));
    }
    line += other_list(status_.value_or(KX_SUCCESS));
    return is_about_missing_adapters(status_.value_or(KX_SUCCESS)) ? with_simulation_offer(line)
                                                                   : line;
}

std::string with_simulation_offer(const std::string& text) {
    const bool is_simulated = std::getenv("KXSIM_ROOT") != nullptr;
    return text + (is_simulated ? "" : " (--sim runs the command on a simulated host)");
}

void refuse_usage(const std::string& text) {
    throw Failure(ExitCode::kUsage, text + " (see --help)");
}

void check(std::uint32_t status) {
    if (status != KX_SUCCESS) {
        throw Failure::of_status(status);
    }
}

std::vector<std::string> split_detail(std::string_view text) {
    std::vector<std::string> messages;
    while (!text.empty()) {
        const std::size_t end = text.find(';');
        std::string_view message = text.substr(0, end);
        text = end == text.npos ? std::string_view() : text.substr(end + 1);
        const std::size_t first = message.find_first_not_of(' ');
        if (first != message.npos) {
            messages.emplace_back(message.substr(first, message.find_last_not_of(' ') + 1 - first));
        }
    }
    return messages;
}

}  // namespace kx::ctl
