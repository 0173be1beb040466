#include "files/working_directory.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "failure/failure.hpp"
#include "files/descriptor.hpp"

namespace kx::ctl {
namespace {

constexpr char kSafeDirectory[] = "/";

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};

// The prefix of relative paths; empty while the user's directory is the working directory.
std::string& front_of_paths() {
    static std::string front;
    return front;
}

// The name of the user's directory; when it no longer has a name, or the name may not be read, a
// descriptor that stays open.
std::string name_of_directory() {
    const std::unique_ptr<char, FreeText> name(getcwd(nullptr, 0));
    if (name && name.get()[0] == '/') {
        return name.get();
    }
    static const Descriptor directory(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return fmt::format("/proc/self/fd/{}", directory.get());
}

}  // namespace

void leave_working_directory() {
    const std::string name = name_of_directory();
    if (chdir(kSafeDirectory) != 0) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format("Cannot work in {}: {}", kSafeDirectory, std::strerror(errno)));
    }
    front_of_paths() = name + "/";
}

std::string user_path(const std::string& path) {
    return path.empty() || path[0] == '/' ? path : front_of_paths() + path;
}

}  // namespace kx::ctl
