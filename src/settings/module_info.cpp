// Finding a kernel module's file for the running kernel and reading its version and description,
// without loading it and without any tool.
#include <dirent.h>
#include <fcntl.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/status.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "settings/module_file.hpp"
#include "support/handle.hpp"
#include "support/small_file.hpp"

namespace {

constexpr char kModuleTree[] = "/lib/modules";
constexpr char kUpdates[] = "updates";
constexpr std::size_t kTextSize = 255;         // of the caller's buffers
constexpr std::size_t kDescriptionLimit = 63;  // agents show no more

class MappedFile {
public:
    MappedFile() = default;
    explicit MappedFile(const char* path) : address_(grab_file(path, &length_)) {}
    MappedFile(MappedFile&& other) noexcept
        : length_(other.length_), address_(std::exchange(other.address_, nullptr)) {}
    MappedFile& operator=(MappedFile&& other) noexcept {
        std::swap(address_, other.address_);
        std::swap(length_, other.length_);
        return *this;
    }
    ~MappedFile() {
        if (address_ != nullptr) {
            release_file(address_, length_);
        }
    }

    explicit operator bool() const { return address_ != nullptr; }
    [[nodiscard]] std::span<const std::byte> bytes() const {
        return {static_cast<const std::byte*>(address_), length_};
    }

private:
    std::size_t length_ = 0;
    void* address_ = nullptr;
};

bool same_module_name(std::string_view name, std::string_view module) {
    const auto fold = [](char c) { return c == '-' ? '_' : c; };
    return std::equal(
        name.begin(), name.end(), module.begin(), module.end(),
        [fold](char a, char b) { return fold(a) == fold(b); });
}

bool is_module_file(std::string_view file, std::string_view module) {
    if (file.size() <= module.size() || !same_module_name(file.substr(0, module.size()), module)) {
        return false;
    }
    const std::string_view ending = file.substr(module.size());
    return ending == ".ko" || ending == ".ko.gz";
}

// Links to directories are not entered.
bool is_directory(const dirent& entry, const std::string& path) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Depth first, in the order of the directory's entries. A match ends the search of its directory
// whether or not it can be mapped; one that cannot lets the parent go on. `path` comes back as it
// was given.
MappedFile search(std::string& path, std::string_view module) {
    const kx::Directory directory(opendir(path.c_str()));
    if (!directory) {
        return {};
    }
    const std::size_t length = path.size();
    MappedFile found;
    while (const dirent* entry = readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        path.append("/").append(name);
        const bool match = is_module_file(name, module);
        if (match) {
            found = MappedFile(path.c_str());
        } else if (name != "." && name != ".." && is_directory(*entry, path)) {
            found = search(path, module);
        }
        path.resize(length);
        if (match || found) {
            break;
        }
    }
    return found;
}

// The module name is tried as a path first; only a missing file goes on to the module tree.
MappedFile locate(const char* module) {
    if (MappedFile file(module); file || errno != ENOENT) {
        return file;
    }
    utsname kernel{};
    if (uname(&kernel) != 0) {
        return {};
    }
    std::string directory = std::string(kModuleTree) + "/" + kernel.release;
    if (modfound == 1) {
        directory.append("/").append(kUpdates);
        if (!kx::path_exists(directory.c_str())) {
            return {};
        }
    }
    return search(directory, module);
}

// The text behind the first "=" of a string, bounded by the caller's buffer; it carries its NUL
// only where that fits.
void copy_value(std::string_view text, std::size_t equals, char* out) {
    const std::string_view value = text.substr(equals + 1, kTextSize);
    std::memcpy(out, value.data(), value.size());
    if (value.size() < kTextSize) {
        out[value.size()] = '\0';
    }
}

// Later strings win over earlier ones. Only these beginnings of the keys are compared.
void read_strings(std::string_view section, char* version, char* description) {
    kx::settings::ModinfoStrings strings(section);
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
    MappedFile file = locate(moduleName);
    if (!file) {
        modfound = 0;
        file = locate(moduleName);
    }
    if (!file) {
        return KX_DRIVER_NOT_LOADED;
    }
    if (const auto section = kx::settings::modinfo_section(file.bytes())) {
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
    const kx::Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
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
