// Words as the argument vector of a program.
#pragma once

#include <string>
#include <vector>

namespace kx::ctl {

// Pointers to the words, which must outlive them, and the null that ends them.
[[nodiscard]] inline std::vector<char*> argument_vector(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace kx::ctl
