// Running kxctl on simulated hosts.
#pragma once

#include <gtest/gtest.h>

#include <kxsim/host.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "kxctl/process.hpp"

namespace test {

inline Result run_on(kxsim::Host& host, std::vector<std::string> words) {
    const auto attached = host.attach();
    return run(std::move(words));
}

// The JSON value that a command prints; it must succeed and print nothing else.
inline nlohmann::json json_on(kxsim::Host& host, std::vector<std::string> words) {
    words.emplace_back("--json");
    const Result result = run_on(host, std::move(words));
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return nlohmann::json::parse(result.out);
}

}  // namespace test
