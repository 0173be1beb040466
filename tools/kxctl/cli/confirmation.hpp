// Asking before something that cannot be taken back.
#pragma once

#include <string>
#include <string_view>

namespace kx::ctl {

// Whether an answer means yes: "y" or "yes" in any case.
[[nodiscard]] bool is_yes(std::string_view answer);

class Confirmation {
public:
    // given: the user has said --yes. Otherwise somebody must be there to ask: without a terminal
    // on standard input and standard error this throws Failure (wrong usage). To be made before
    // anything is touched.
    Confirmation(bool given, const std::string& command);

    // Ask, unless it was given. Throws Failure when the answer is not yes.
    void ask(const std::string& what) const;

private:
    bool given_;
};

}  // namespace kx::ctl
