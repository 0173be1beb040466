// The exception for a failed system call.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace kxsim {

[[noreturn]] inline void fail_with_errno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace kxsim
