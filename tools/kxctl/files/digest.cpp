#include "files/digest.hpp"

#include <dlfcn.h>
#include <sha256.h>

#include <array>

#include "failure/failure.hpp"

namespace kx::ctl {
namespace {

using DigestFunction = decltype(SHA256Data);

// Few commands need it, so that linking it would only slow down the start of the others.
DigestFunction* load_digest() {
    void* const library = dlopen("libmd.so.0", RTLD_NOW | RTLD_LOCAL);
    return library == nullptr ? nullptr
                              : reinterpret_cast<DigestFunction*>(dlsym(library, "SHA256Data"));
}

}  // namespace

std::string sha256(std::span<const std::uint8_t> bytes) {
    static DigestFunction* const function = load_digest();
    std::array<char, SHA256_DIGEST_STRING_LENGTH> text{};
    if (function == nullptr || function(bytes.data(), bytes.size(), text.data()) == nullptr) {
        throw Failure(ExitCode::kFailed, "SHA-256 needs libmd.so.0 (package libmd0)");
    }
    return text.data();
}

}  // namespace kx::ctl
