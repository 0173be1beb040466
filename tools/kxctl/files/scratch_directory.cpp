#include "files/scratch_directory.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

std::filesystem::path new_directory() {
    std::error_code error;
    const std::filesystem::path parent = std::filesystem::temp_directory_path(error);
    std::string path = ((error ? "/tmp" : parent) / "kxctl-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr || chdir(path.c_str()) != 0) {
        throw Failure(
            ExitCode::kFailed,
            fmt::format("Cannot work in a directory of its own: {}", std::strerror(errno)));
    }
    return path;
}

}  // namespace

ScratchDirectory::ScratchDirectory() : before_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    path_ = new_directory();
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    static_cast<void>(before_ && fchdir(before_.get()) == 0);
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace kx::ctl
