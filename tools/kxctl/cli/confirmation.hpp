// Asking before an operation that cannot be undone.
#pragma once

#include <string>
#include <string_view>

namespace kx::ctl {

// Whether an answer means yes: "y" or "yes" in any case.
[[nodiscard]] bool is_yes(std::string_view answer);

class Confirmation {
public:
    // given: the user gave --yes. Otherwise kxctl must be able to ask: without a terminal on
    // standard input and standard error this throws Failure (wrong usage). Create it before
    // anything is changed.
    Confirmation(bool given, const std::string& command);

    // Ask, unless the confirmation was given. Throws Failure when the answer is not yes.
    void ask(const std::string& what) const;

private:
    bool given_;
};

}  // namespace kx::ctl
