// The path of libkxsim.so for the dynamic loader.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "host/scratch.hpp"

namespace kxsim {

// The loader treats blanks and colons in LD_PRELOAD as separators, and replaces names that begin
// with "$". A library with one of these characters in its path gets a link in a private directory,
// which exists as long as this object.
class PreloadPath {
public:
    explicit PreloadPath(const std::filesystem::path& library);

    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::unique_ptr<kx::LockedDirectory> link_directory_;
    std::string text_;
};

}  // namespace kxsim
