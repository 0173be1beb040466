// What a command could not read. Its answer has the rest, with null for what is missing.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "failure/exit_code.hpp"
#include "output/json.hpp"

namespace kx::ctl {

class Incomplete {
public:
    // The same reason counts once.
    void add(const std::string& reason);
    void add(const std::vector<std::string>& reasons);

    [[nodiscard]] bool empty() const { return reasons_.empty(); }
    [[nodiscard]] const std::vector<std::string>& reasons() const { return reasons_; }

    // Add the reasons to a JSON answer; a complete answer is not changed.
    void put_into(Json& answer) const;

    // Print each reason that was not printed before as a line on standard error. The next answer
    // of the command may be complete.
    void complain_once();

    // The exit code of a command that ends with `code` otherwise: kPartly when something is
    // missing from what is done.
    [[nodiscard]] ExitCode code(ExitCode code) const;

private:
    std::vector<std::string> reasons_;
    std::size_t told_ = 0;  // reasons of earlier answers
};

}  // namespace kx::ctl
