#include "files/end_of_links.hpp"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <string_view>

#include "files/whole_file.hpp"

namespace kx::ctl {

std::string end_of_links(const std::string& path) {
    constexpr int kMostLinks = 40;  // as many as the kernel follows
    std::array<char, PATH_MAX> text;
    std::filesystem::path place = path;
    for (int links = 0; links <= kMostLinks; ++links) {
        const ssize_t length = readlink(place.c_str(), text.data(), text.size());
        if (length < 0) {
            return place;
        }
        place = place.parent_path() / std::string_view(text.data(), static_cast<size_t>(length));
    }
    throw file_failure(path, ELOOP);
}

}  // namespace kx::ctl
