// What a command could not read. Its answer has the rest, with null for what is missing.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "failure/exit_code.hpp"
#include "output/json.hpp"

namespace kx::ctl {

class Incomplete {
public:
    void add(std::string reason) { reasons_.push_back(std::move(reason)); }

    // Add the reasons to a JSON answer; a complete answer is not changed.
    void put_into(Json& answer) const;

    // Print each reason as a line on standard error. Returns the exit code of the command: kPartly,
    // or kDone when nothing is missing.
    [[nodiscard]] ExitCode report() const;

private:
    std::vector<std::string> reasons_;
};

}  // namespace kx::ctl
