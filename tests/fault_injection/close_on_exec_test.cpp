// Programs that the process starts do not inherit descriptors of the library: every descriptor has
// close-on-exec from the moment when it is opened. Every entry point is called on the lab host.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxlinhw/export.h>
#include <sys/socket.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "fault_injection/entry_points.hpp"

namespace {

std::set<std::string> calls;        // functions of the library that opened something
std::set<std::string> inheritable;  // what it opened without close-on-exec

// Other libraries that this process uses open files of their own.
bool is_the_library(const void* caller) {
    Dl_info info{};
    return dladdr(caller, &info) != 0 && info.dli_fname != nullptr &&
           std::strstr(info.dli_fname, "libkxlinhw.so") != nullptr;
}

void look_at(int descriptor, const char* call, const char* what, const void* caller) {
    if (descriptor < 0 || !is_the_library(caller)) {
        return;
    }
    calls.insert(call);
    if ((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) {
        inheritable.insert(std::string(call) + " " + what);
    }
}

template <class Function>
Function* next_function(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These replace functions of the simulated host.
extern "C" {

KX_EXPORT int open(const char* path, int flags, ...) {
    static const auto next = next_function<int(const char*, int, ...)>("open");
    std::va_list values;
    va_start(values, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(values, mode_t) : 0;
    va_end(values);
    const int descriptor = next(path, flags, mode);
    look_at(descriptor, "open", path, __builtin_return_address(0));
    return descriptor;
}

KX_EXPORT int socket(int domain, int type, int protocol) noexcept {
    static const auto next = next_function<int(int, int, int)>("socket");
    const int descriptor = next(domain, type, protocol);
    look_at(descriptor, "socket", "", __builtin_return_address(0));
    return descriptor;
}

KX_EXPORT FILE* fopen(const char* path, const char* mode) {
    static const auto next = next_function<FILE*(const char*, const char*)>("fopen");
    FILE* const file = next(path, mode);
    look_at(file == nullptr ? -1 : fileno(file), "fopen", path, __builtin_return_address(0));
    return file;
}

KX_EXPORT FILE* popen(const char* command, const char* mode) {
    static const auto next = next_function<FILE*(const char*, const char*)>("popen");
    FILE* const pipe = next(command, mode);
    look_at(pipe == nullptr ? -1 : fileno(pipe), "popen", command, __builtin_return_address(0));
    return pipe;
}

}  // extern "C"

namespace {

TEST(CloseOnExec, IsSetOnEverythingThatTheLibraryOpens) {
    test::Lab lab;
    const test::Silence silence;
    for (const test::EntryPoint& entry : test::entry_points()) {
        entry.call();
    }
    EXPECT_THAT(inheritable, testing::IsEmpty());
    EXPECT_THAT(calls, testing::IsSupersetOf({"open", "socket", "fopen", "popen"}));
}

}  // namespace
