// Kernel module files: the whole input is the file.
#include <kxlinhw/kxlinhw.h>

#include <cerrno>

#include "fuzz/input.hpp"

namespace {

std::span<const uint8_t> file;

}  // namespace

extern "C" {

void* grab_file(const char*, size_t* length) {
    if (file.empty()) {
        errno = EINVAL;  // as mapping an empty file
        return nullptr;
    }
    *length = file.size();
    void* const copy = std::malloc(file.size());
    std::memcpy(copy, file.data(), file.size());
    return copy;
}

void release_file(void* address, size_t) { std::free(address); }

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    file = {data, size};
    constexpr std::size_t kTextSize = 255;
    std::vector<char> version(kTextSize);
    std::vector<char> description(kTextSize);
    char name[] = "zfab4";
    const uint32_t status = getModinfo(name, version.data(), description.data());
    fuzz::require(status == KX_SUCCESS || size == 0, "any file that can be mapped is a module");
    fuzz::require(std::strlen(description.data()) <= 63, "descriptions end after 63 characters");
    return 0;
}

}  // extern "C"
