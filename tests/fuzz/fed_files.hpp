// Files of the host that a fuzz target fills: opening them gives what was fed last. Include it in
// one file of a program: it defines the C library's calls for the whole program.
#pragma once

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace fuzz {

template <class Call>
Call next_call(const char* name) {
    return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

class FedFiles {
public:
    static void feed(const std::string& path, std::span<const uint8_t> bytes) {
        auto found = descriptors().find(path);
        if (found == descriptors().end()) {
            found = descriptors().emplace(path, memfd_create("fed", MFD_CLOEXEC)).first;
        }
        static_cast<void>(ftruncate(found->second, 0));
        static_cast<void>(pwrite(found->second, bytes.data(), bytes.size(), 0));
    }

    // The path under which the real kernel knows a fed file; the path itself of any other.
    static std::string real(const char* path) {
        const auto found = descriptors().find(path);
        return found == descriptors().end() ? path
                                            : "/proc/self/fd/" + std::to_string(found->second);
    }

    // Listed in the place of another directory.
    static inline std::string directory_;
    static inline std::string listed_as_;

private:
    static std::map<std::string, int>& descriptors() {
        static std::map<std::string, int> table;
        return table;
    }
};

}  // namespace fuzz

extern "C" {

int open(const char* path, int flags, ...) {
    using Call = int (*)(const char*, int, ...);
    static const Call next = fuzz::next_call<Call>("open");
    std::va_list values;
    va_start(values, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(values, mode_t) : 0;
    va_end(values);
    return next(fuzz::FedFiles::real(path).c_str(), flags, mode);
}

int stat(const char* path, struct stat* status) {
    using Call = int (*)(const char*, struct stat*);
    static const Call next = fuzz::next_call<Call>("stat");
    return next(fuzz::FedFiles::real(path).c_str(), status);
}

DIR* opendir(const char* path) {
    using Call = DIR* (*)(const char*);
    static const Call next = fuzz::next_call<Call>("opendir");
    return next(path == fuzz::FedFiles::listed_as_ ? fuzz::FedFiles::directory_.c_str() : path);
}

}  // extern "C"
