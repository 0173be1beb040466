// Running the tools whose output tests compare with.
#pragma once

#include <array>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace test {

struct ShellResult {
    int status;  // as pclose gives it; 0 on success
    std::string output;
};

inline ShellResult shell(const std::string& command) {
    std::FILE* const pipe = popen(command.c_str(), "re");
    if (pipe == nullptr) {
        return {-1, ""};
    }
    std::string output;
    std::array<char, 4096> chunk;
    while (const std::size_t got = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
        output.append(chunk.data(), got);
    }
    return {pclose(pipe), output};
}

// One word of a shell's command.
inline std::string shell_word(const std::string& word) {
    std::string text = "'";
    for (const char c : word) {
        c == '\'' ? text += "'\\''" : text += c;
    }
    return text + "'";
}

inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace test
