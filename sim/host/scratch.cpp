#include "host/scratch.hpp"

#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>

#include "host/quiet.hpp"

namespace kxsim {
namespace {

namespace fs = std::filesystem;

constexpr char kPrefix[] = "kxsim";
constexpr char kMemory[] = "/dev/shm";
constexpr std::uint64_t kEnough = std::uint64_t{64} << 20U;  // a host with many adapters

// Programs of the host are run from there.
bool serves(const char* directory) {
    struct statvfs status {};
    return ::access(directory, W_OK | X_OK) == 0 && ::statvfs(directory, &status) == 0 &&
           (status.f_flag & ST_NOEXEC) == 0 && status.f_bavail * status.f_frsize >= kEnough;
}

// A host is hundreds of small files, which take ten times longer on a disk.
fs::path parent_directory() {
    return std::getenv("TMPDIR") == nullptr && serves(kMemory) ? fs::path(kMemory)
                                                               : fs::temp_directory_path();
}

}  // namespace

std::unique_ptr<kx::LockedDirectory> make_scratch() {
    const Quiet quiet;
    return make_scratch(parent_directory());
}

std::unique_ptr<kx::LockedDirectory> make_scratch(const fs::path& parent) {
    const Quiet quiet;
    return std::make_unique<kx::LockedDirectory>(kPrefix, parent);
}

void remove_abandoned_scratch() {
    const Quiet quiet;
    for (const fs::path& parent : {parent_directory(), fs::temp_directory_path()}) {
        kx::LockedDirectory::remove_abandoned(kPrefix, parent);
    }
}

}  // namespace kxsim
