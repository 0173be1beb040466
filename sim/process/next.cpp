#include "process/next.hpp"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kxsim::process {

void complain(const char* text) {
    // Does not use write, which is a wrapper here.
    syscall(SYS_write, STDERR_FILENO, text, std::strlen(text));
}

void* find_next(const char* name) {
    const int reason = errno;
    void* const function = dlsym(RTLD_NEXT, name);
    if (function == nullptr) {
        complain("libkxsim: this C library has no ");
        complain(name);
        complain("\n");
        _exit(127);
    }
    errno = reason;
    return function;
}

}  // namespace kxsim::process
