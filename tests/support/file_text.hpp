// The content of a file.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace test {

// Empty when it cannot be read.
inline std::string file_text(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace test
