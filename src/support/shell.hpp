// Words of shell commands. A name that comes from outside must stay one word and run nothing.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace kx {

// Characters that mean nothing to a shell, whatever stands beside them.
[[nodiscard]] constexpr bool is_ordinary_in_shell(char c) {
    constexpr std::string_view kMarks = "_.+:@%,/-";
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kMarks.find(c) != kMarks.npos;
}

// The text as one word of a shell command: bare when it holds only ordinary characters (whatever
// its length), otherwise in single quotes. An empty text becomes ''.
[[nodiscard]] inline std::string shell_word(std::string_view text) {
    if (!text.empty() && std::all_of(text.begin(), text.end(), is_ordinary_in_shell)) {
        return std::string(text);
    }
    std::string word = "'";
    for (const char c : text) {
        if (c == '\'') {
            word += "'\\''";  // a quoted text cannot hold its quote: close, escape it, open again
        } else {
            word += c;
        }
    }
    word += '\'';
    return word;
}

}  // namespace kx
