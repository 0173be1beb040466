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

// Shows a text on standard error and returns the word that the user typed, without blanks. Without
// a terminal throws Failure (wrong usage), which names the options that replace the answer.
[[nodiscard]] std::string ask_word(
    const std::string& command, const std::string& options, const std::string& text);

}  // namespace kx::ctl
