// Attaches a simulated host to this process and its children.
#include <dlfcn.h>
#include <kxsim/host.hpp>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "host/host_state.hpp"
#include "host/preload_path.hpp"
#include "host/quiet.hpp"

namespace kxsim {
namespace {

std::optional<std::string> environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

void set_environment(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
    } else {
        ::unsetenv(name.c_str());
    }
}

// The file of the library that answers kxsim_attach in this process.
std::string preload_library() {
    Dl_info object{};
    if (::dladdr(reinterpret_cast<void*>(kxsim_attach), &object) == 0) {
        throw std::runtime_error("libkxsim.so is not in this process");
    }
    return std::filesystem::canonical(object.dli_fname).string();
}

}  // namespace

Attached::Attached(const std::string& root) {
    const Quiet quiet;
    for (const char* name : {state::kRootVariable, "LD_PRELOAD"}) {
        environment_[name] = environment(name);
    }
    const auto library = std::make_shared<PreloadPath>(preload_library());
    std::string preload = library->text();
    if (const auto before = environment("LD_PRELOAD"); before && !before->empty()) {
        preload += ":" + *before;
    }
    if (const int error = kxsim_attach(root.c_str()); error != 0) {
        throw std::system_error(error, std::generic_category(), root);
    }
    set_environment(state::kRootVariable, root);
    set_environment("LD_PRELOAD", preload);
    library_ = library;
}

Attached::Attached(Attached&& other) noexcept
    : attached_(std::exchange(other.attached_, false)),
      library_(std::move(other.library_)),
      environment_(std::move(other.environment_)) {}

Attached::~Attached() {
    if (attached_) {
        kxsim_detach();
        restore_environment();
    }
}

void Attached::restore_environment() {
    for (const auto& [name, value] : environment_) {
        set_environment(name, value);
    }
}

Attached Host::attach() {
    if (kxsim_attach == nullptr) {
        throw std::runtime_error("link libkxsim.so first to put hosts under this process");
    }
    return Attached(state_->root);
}

}  // namespace kxsim
