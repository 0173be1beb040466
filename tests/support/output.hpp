// Capturing the output of calls.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace test {

// What a call prints on standard output.
template <class Call>
std::string printed(const Call& call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

// What a call prints on standard error.
template <class Call>
std::string told(const Call& call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

// A test of calls that print.
class OutputTest : public testing::Test {
protected:
    // The result of a call; what it printed is kept until the next one.
    template <class Call>
    auto run(const Call& call) {
        decltype(call()) result{};
        told_ = told([&] { printed_ = printed([&] { result = call(); }); });
        return result;
    }

    std::string printed_;  // on standard output
    std::string told_;     // on standard error
};

}  // namespace test
