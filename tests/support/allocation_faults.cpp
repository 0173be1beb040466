// With a sanitizer, its allocator replaces libkxsim's wrappers, which then see no allocation.
// Definitions in the program replace both: these check the fault rules and then call the allocator
// of the process.
#include <dlfcn.h>
#include <kxlinhw/export.h>
#include <kxsim/preload.h>

#include <cerrno>
#include <cstddef>
#include <new>

namespace {

// Set before main runs: nothing here may allocate.
template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool fails(const char* call, const void* caller) {
    if (kxsim_allocation_fails(call, caller) == 0) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

// Like the C++ library: it calls malloc on behalf of its caller.
void* allocate_object(const char* name, std::size_t size) {
    static const void* const cxx_library = dlsym(RTLD_DEFAULT, "_ZSt15get_new_handlerv");
    if (fails("malloc", cxx_library)) {
        throw std::bad_alloc();
    }
    return next<void*(std::size_t)>(name)(size);
}

}  // namespace

void* operator new(std::size_t size) { return allocate_object("_Znwm", size); }

void* operator new[](std::size_t size) { return allocate_object("_Znam", size); }

extern "C" {

KX_EXPORT void* malloc(std::size_t size) noexcept {
    static auto* const function = next<void*(std::size_t)>("malloc");
    return fails("malloc", __builtin_return_address(0)) ? nullptr : function(size);
}

KX_EXPORT void* calloc(std::size_t count, std::size_t size) noexcept {
    static auto* const function = next<void*(std::size_t, std::size_t)>("calloc");
    return fails("calloc", __builtin_return_address(0)) ? nullptr : function(count, size);
}

KX_EXPORT void* realloc(void* block, std::size_t size) noexcept {
    static auto* const function = next<void*(void*, std::size_t)>("realloc");
    return fails("realloc", __builtin_return_address(0)) ? nullptr : function(block, size);
}

}  // extern "C"
