// Owners of resources of C libraries: one template over a type and its free function, an alias for
// each resource, and classes for the two resources that are not pointers (descriptor, mapping).
#pragma once

#include <dirent.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "support/standard_streams.hpp"

namespace kx {

template <auto kFree>
struct FreeBy {
    template <class T>
    void operator()(T* object) const {
        static_cast<void>(kFree(object));
    }
};

template <class T, auto kFree>
using Handle = std::unique_ptr<T, FreeBy<kFree>>;

struct FreeMemory {
    void operator()(void* block) const { std::free(block); }
};

using File = Handle<std::FILE, &std::fclose>;
using Pipe = Handle<std::FILE, &pclose>;
using Directory = Handle<DIR, &closedir>;

// A block of the C allocator. A block that the agent will free is released from its owner.
template <class T>
using Block = std::unique_ptr<T, FreeMemory>;

// A zeroed record of the C allocator, or null.
template <class T>
[[nodiscard]] Block<T> allocate_record() {
    return Block<T>(static_cast<T*>(std::calloc(1, sizeof(T))));
}

// A descriptor that was just opened. It is never one of the standard streams: such a descriptor is
// replaced by one above them. Closing does not change errno, because callers report why the
// previous call failed.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int opened) : number_(above_standard_streams(opened)) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0) {
            const int reason = errno;
            close(number_);
            errno = reason;
        }
    }

    [[nodiscard]] int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

    // Release it to another owner.
    [[nodiscard]] int release() { return std::exchange(number_, -1); }

private:
    int number_ = -1;
};

// fopen, opendir and popen whose descriptor is above the standard streams. Null and errno on
// failure.
[[nodiscard]] File open_file(const char* path, const char* mode);
[[nodiscard]] Directory open_directory(const char* path);
[[nodiscard]] Pipe open_pipe(const char* command);

}  // namespace kx
