// Capturing the output of calls.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace test {

// The output of a call on standard output.
template <class Call>
std::string printed(const Call& call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

// A test of calls that print.
class OutputTest : public testing::Test {
protected:
    // The result of a call; what it printed is kept until the next one.
    template <class Call>
    auto run(const Call& call) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const auto result = call();
        told_ = testing::internal::GetCapturedStderr();
        printed_ = testing::internal::GetCapturedStdout();
        return result;
    }

    std::string printed_;  // on standard output
    std::string told_;     // on standard error
};

}  // namespace test
