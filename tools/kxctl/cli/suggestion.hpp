// Words that the user may have meant.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace kx::ctl {

// The candidate that is most like a word, whatever its case; empty when none is like it.
[[nodiscard]] std::string closest(std::string_view word, std::span<const std::string> candidates);

// "; did you mean card?", or an empty text.
[[nodiscard]] std::string did_you_mean(
    std::string_view word, std::span<const std::string> candidates);

}  // namespace kx::ctl
