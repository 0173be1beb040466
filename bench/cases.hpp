// What is measured: calls of the library, and the floor for the same answer.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace bench {

struct Case {
    std::string_view name;
    void (*library)();
    void (*floor)();  // null: there is none; the call is counted and explained
};

[[nodiscard]] std::span<const Case> cases();
[[nodiscard]] const Case* find_case(std::string_view name);

// The answer of the last call; pointers in it, which mean nothing to an agent, are cleared.
[[nodiscard]] std::string_view answer();

}  // namespace bench
