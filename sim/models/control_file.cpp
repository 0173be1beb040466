#include <unistd.h>

#include "models/modelled_file.hpp"
#include "process/next.hpp"
#include "process/owned_paths.hpp"

namespace kxsim::models {

bool is_control_file(std::string_view path) {
    return process::is_in(path, "/proc/sys") || process::is_in(path, "/sys/module");
}

ssize_t write_control_file(const FileAccess& access, const void* data, std::size_t size) {
    if (process::next<"ftruncate", decltype(::ftruncate)>()(access.descriptor, 0) != 0) {
        return -1;
    }
    const auto pwrite = process::next<"pwrite", decltype(::pwrite)>();
    const ssize_t written = pwrite(access.descriptor, data, size, 0);
    if (written > 0 && static_cast<const char*>(data)[written - 1] != '\n') {
        pwrite(access.descriptor, "\n", 1, written);
    }
    return written;
}

}  // namespace kxsim::models
