// kxctl on a simulated host.
#pragma once

#include <gtest/gtest.h>

#include <kxsim/host.hpp>
#include <nlohmann/json.hpp>

#include "kxctl/process.hpp"

namespace test {

inline Result run_on(kxsim::Host& host, std::vector<std::string> words) {
    const auto attached = host.attach();
    return run(std::move(words));
}

// The JSON answer of a command that ends with that exit code.
inline nlohmann::json json_on(
    kxsim::Host& host, std::vector<std::string> words, int expected_exit = 0) {
    words.emplace_back("--json");
    const Result result = run_on(host, std::move(words));
    EXPECT_EQ(result.exit, expected_exit) << result.err;
    return nlohmann::json::parse(result.out);
}

}  // namespace test
