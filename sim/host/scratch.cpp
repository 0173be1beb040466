#include "host/scratch.hpp"

#include "host/quiet.hpp"

namespace kxsim {
namespace {

constexpr char kPrefix[] = "kxsim";

}  // namespace

std::unique_ptr<kx::LockedDirectory> make_scratch() {
    const Quiet quiet;
    return make_scratch(std::filesystem::temp_directory_path());
}

std::unique_ptr<kx::LockedDirectory> make_scratch(const std::filesystem::path& parent) {
    const Quiet quiet;
    return std::make_unique<kx::LockedDirectory>(kPrefix, parent);
}

void remove_abandoned_scratch() {
    const Quiet quiet;
    kx::LockedDirectory::remove_abandoned(kPrefix, std::filesystem::temp_directory_path());
}

}  // namespace kxsim
