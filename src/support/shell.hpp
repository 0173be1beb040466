// Words of shell commands. A name from outside must stay one word, and must not run anything.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace kx {

// Characters without a special meaning in a shell, wherever they are.
[[nodiscard]] constexpr bool is_ordinary_in_shell(char c) {
    constexpr std::string_view kMarks = "_.+:@%,/-";
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kMarks.find(c) != kMarks.npos;
}

// The text as one word of a shell command: unchanged when it contains only ordinary characters (of
// any length), otherwise in single quotes. An empty text becomes ''.
[[nodiscard]] inline std::string shell_word(std::string_view text) {
    if (!text.empty() && std::all_of(text.begin(), text.end(), is_ordinary_in_shell)) {
        return std::string(text);
    }
    std::string word = "'";
    for (const char c : text) {
        if (c == '\'') {
            word += "'\\''";  // a quoted text cannot contain its quote: close, escape the quote,
                              // open again
        } else {
            word += c;
        }
    }
    word += '\'';
    return word;
}

}  // namespace kx
