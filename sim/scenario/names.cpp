#include "scenario/names.hpp"

#include <cstring>

#include "state/requests.hpp"

namespace kxsim {
namespace {

constexpr int kLastError = 133;

}  // namespace

std::optional<int> error_number(const std::string& name) {
    for (int error = 1; error <= kLastError; ++error) {
        const char* const known = ::strerrorname_np(error);
        if (known != nullptr && name == known) {
            return error;
        }
    }
    return std::nullopt;
}

std::optional<std::uint32_t> request_number(const std::string& name) {
    for (const state::Request& request : state::kRequests) {
        if (name == request.name) {
            return request.number;
        }
    }
    return std::nullopt;
}

}  // namespace kxsim
