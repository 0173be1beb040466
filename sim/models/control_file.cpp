#include "models/control_file.hpp"

#include <unistd.h>

#include "preload/next.hpp"
#include "preload/owned_paths.hpp"
#include "preload/target.hpp"

namespace kxsim::models {

using preload::next;

bool is_control_file(const preload::Host& host, int descriptor) {
    preload::PathText path;
    return preload::simulated_path(host, descriptor, path) &&
           (preload::is_in(path.view(), "/proc/sys") || preload::is_in(path.view(), "/sys/module"));
}

ssize_t write_control_file(int descriptor, const void* data, std::size_t size) {
    if (::ftruncate(descriptor, 0) != 0) {
        return -1;
    }
    const auto pwrite = next<"pwrite", decltype(::pwrite)>();
    const ssize_t written = pwrite(descriptor, data, size, 0);
    if (written > 0 && static_cast<const char*>(data)[written - 1] != '\n') {
        pwrite(descriptor, "\n", 1, written);
    }
    return written;
}

}  // namespace kxsim::models
