// The measured cases: calls of the library, and the floor for the same answer.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace bench {

struct Case {
    std::string_view name;
    void (*library)();
    void (*floor)();  // null: no floor; the call is only counted
};

[[nodiscard]] std::span<const Case> cases();
[[nodiscard]] const Case* find_case(std::string_view name);

// The answer of the last call, with its pointers cleared: they mean nothing to an agent.
[[nodiscard]] std::string_view answer();

}  // namespace bench
