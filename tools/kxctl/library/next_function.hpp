// The definition of a function that this program defines too, in front of a library.
#pragma once

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace kx::ctl {

// Looked up at its first use; that may be before constructors run.
template <class Function>
class Next {
public:
    explicit constexpr Next(const char* name) noexcept : name_(name) {}

    [[nodiscard]] Function* get() {
        void* function = found_.load(std::memory_order_relaxed);
        if (function == nullptr) {
            const int reason = errno;
            function = dlsym(RTLD_NEXT, name_);
            errno = reason;
            if (function == nullptr) {
                std::abort();
            }
            found_.store(function, std::memory_order_relaxed);
        }
        return reinterpret_cast<Function*>(function);
    }

private:
    const char* name_;
    std::atomic<void*> found_ = nullptr;
};

}  // namespace kx::ctl
