// The version and description of a kernel module, read from its file without loading it and without
// a tool.
#include <fcntl.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

#include "modules/module_file.hpp"
#include "modules/module_search.hpp"
#include "support/handle.hpp"

namespace {

constexpr std::size_t kTextSize = 255;         // of the caller's buffers
constexpr std::size_t kDescriptionLimit = 63;  // the most that agents show

// Copies the text after the first "=" of a string, as far as the caller's buffer reaches, with a
// NUL only when it fits.
void copy_value(std::string_view text, std::size_t equals, char* out) {
    const std::string_view value = text.substr(equals + 1, kTextSize);
    std::memcpy(out, value.data(), value.size());
    if (value.size() < kTextSize) {
        out[value.size()] = '\0';
    }
}

// Later strings replace earlier ones. Only the beginnings of the keys are compared.
void read_strings(std::string_view section, char* version, char* description) {
    kx::modules::ModinfoStrings strings(section);
    while (const auto text = strings.next()) {
        const std::size_t equals = text->find('=');
        if (equals == text->npos) {
            continue;
        }
        if (text->starts_with("versi")) {
            copy_value(*text, equals, version);
        } else if (text->starts_with("descript")) {
            copy_value(*text, equals, description);
            description[kDescriptionLimit] = '\0';
        }
    }
}

}  // namespace

extern "C" {

uint8_t modfound;

uint32_t getModinfo(char* moduleName, char* versionOut, char* descriptionOut) try {
    if (moduleName == nullptr || versionOut == nullptr || descriptionOut == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    modfound = 1;
    kx::modules::MappedFile file = kx::modules::locate_module(moduleName);
    if (!file) {
        modfound = 0;
        file = kx::modules::locate_module(moduleName);
    }
    if (!file) {
        return KX_DRIVER_NOT_LOADED;
    }
    if (const auto section = kx::modules::modinfo_section(file.bytes())) {
        read_strings(*section, versionOut, descriptionOut);
    }
    modfound = 1;
    return KX_SUCCESS;
} catch (const std::bad_alloc&) {
    return KX_DRIVER_NOT_LOADED;
}

void* grab_file(const char* path, size_t* length) {
    if (path == nullptr || length == nullptr) {
        errno = EFAULT;
        return nullptr;
    }
    // Do not wait for the writer of a named pipe with the module's name.
    const kx::Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = ENODEV;
        return nullptr;
    }
    const auto size = static_cast<size_t>(status.st_size);
    void* const address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE, file.get(), 0);
    if (address == MAP_FAILED) {
        return nullptr;
    }
    *length = size;
    return address;
}

void release_file(void* address, size_t length) {
    if (address != nullptr) {
        munmap(address, length);
    }
}

}  // extern "C"
