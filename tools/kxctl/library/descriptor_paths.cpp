#include "library/descriptor_paths.hpp"

#include <array>
#include <cstddef>
#include <cstdio>

namespace kx::ctl::descriptor_paths {
namespace {

constexpr std::size_t kMostPaths = 64;
constinit std::array<std::array<char, 256>, kMostPaths> paths{};

bool has_place(int descriptor) {
    return descriptor >= 0 && static_cast<std::size_t>(descriptor) < kMostPaths;
}

}  // namespace

void remember(int descriptor, const char* path) noexcept {
    if (has_place(descriptor)) {
        auto& place = paths[static_cast<std::size_t>(descriptor)];
        std::snprintf(place.data(), place.size(), "%s", path);
    }
}

void forget(int descriptor) noexcept {
    if (has_place(descriptor)) {
        paths[static_cast<std::size_t>(descriptor)][0] = '\0';
    }
}

const char* path_of(int descriptor) noexcept {
    return has_place(descriptor) ? paths[static_cast<std::size_t>(descriptor)].data() : "";
}

}  // namespace kx::ctl::descriptor_paths
