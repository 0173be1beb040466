// Splitting texts of tools and descriptions into words.
#pragma once

#include <boost/tokenizer.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace kx::vm {

// The words between separators; separators and empty words are dropped.
[[nodiscard]] inline std::vector<std::string> tokens_of(
    std::string_view text, const char* separators) {
    using Separator = boost::char_separator<char>;
    const boost::tokenizer<Separator, std::string_view::const_iterator, std::string> tokens(
        text, Separator(separators));
    return {tokens.begin(), tokens.end()};
}

}  // namespace kx::vm
