// The path by which the loader puts libkxsim.so into programs.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "host/scratch.hpp"

namespace kxsim {

// The loader takes blanks and colons in LD_PRELOAD for ends of words, and a "$" for a name to
// replace. A library with one of them in its path is reached by a link in a private directory,
// which lives as long as this.
class PreloadPath {
public:
    explicit PreloadPath(const std::filesystem::path& library);

    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::unique_ptr<kx::LockedDirectory> link_directory_;
    std::string text_;
};

}  // namespace kxsim
