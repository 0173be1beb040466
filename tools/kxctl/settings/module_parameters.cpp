#include "settings/module_parameters.hpp"

#include <fmt/core.h>
#include <sys/stat.h>

#include <cerrno>

namespace kx::ctl {
namespace {

constexpr mode_t kWritable = S_IWUSR | S_IWGRP | S_IWOTH;

}  // namespace

void refuse_missing_parameters(std::span<ChangeLine> lines, const std::string& module) {
    for (ChangeLine& line : lines) {
        const char* const key = line.setting->key;
        const std::string path = fmt::format("/sys/module/{}/parameters/{}", module, key);
        struct stat file {};
        const int reason = stat(path.c_str(), &file) == 0 ? 0 : errno;
        if (reason == ENOENT) {
            line.before.reset();
            line.refused = Refusal{
                ExitCode::kNotSupported, fmt::format("{} has no parameter {}", module, key)};
        } else if (
            reason == 0 && (file.st_mode & kWritable) == 0 && line.before != line.wanted &&
            !line.refused) {
            line.refused = Refusal{
                ExitCode::kNotSupported,
                fmt::format("{} takes {} only while it is loaded", module, key)};
        }
    }
}

}  // namespace kx::ctl
