#include "process/libvirt.hpp"

#include <dlfcn.h>
#include <unistd.h>

namespace kxsim::process {

void* find_in_libvirt(const char* name) {
    void* function = dlsym(RTLD_NEXT, name);
    if (function == nullptr) {
        // When an agent loads the library with dlopen, libvirt is in a separate scope.
        if (void* const library = dlopen("libvirt.so.0", RTLD_LAZY | RTLD_NOLOAD)) {
            function = dlsym(library, name);
        }
    }
    if (function == nullptr) {
        complain("libkxsim: this process has no ");
        complain(name);
        complain("\n");
        _exit(127);
    }
    return function;
}

void free_of_process(void* block) {
    reinterpret_cast<void (*)(void*)>(dlsym(RTLD_DEFAULT, "free"))(block);
}

}  // namespace kxsim::process
