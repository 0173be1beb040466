// Calls on what is already open: descriptors, streams, mappings.
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "models/control_file.hpp"
#include "preload/account.hpp"
#include "preload/attached.hpp"
#include "preload/next.hpp"

namespace {

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face
using kxsim::state::Call;

template <FunctionName kName, class Function, class... Rest>
auto on_descriptor(Call call, int descriptor, Rest... rest) {
    using Result = std::invoke_result_t<Function*, int, Rest...>;
    if (const int error = account_descriptor(call, descriptor); error != 0) {
        return refuse<Result>(error);
    }
    return next<kName, Function>()(descriptor, rest...);
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

ssize_t read(int descriptor, void* buffer, size_t size) {
    return on_descriptor<"read", decltype(::read)>(Call::kRead, descriptor, buffer, size);
}
ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t) {
    return read(descriptor, buffer, size);
}
ssize_t pread(int descriptor, void* buffer, size_t size, off_t offset) {
    return on_descriptor<"pread", decltype(::pread)>(Call::kRead, descriptor, buffer, size, offset);
}
ssize_t pread64(int descriptor, void* buffer, size_t size, off64_t offset) {
    return on_descriptor<"pread64", decltype(::pread64)>(
        Call::kRead, descriptor, buffer, size, offset);
}
ssize_t __pread_chk(int descriptor, void* buffer, size_t size, off_t offset, size_t) {
    return pread(descriptor, buffer, size, offset);
}
ssize_t __pread64_chk(int descriptor, void* buffer, size_t size, off64_t offset, size_t) {
    return pread64(descriptor, buffer, size, offset);
}

ssize_t write(int descriptor, const void* data, size_t size) {
    if (const int error = account_descriptor(Call::kWrite, descriptor); error != 0) {
        return refuse<ssize_t>(error);
    }
    const Host* const on = host();
    if (on != nullptr && kxsim::models::is_control_file(*on, descriptor)) {
        return kxsim::models::write_control_file(descriptor, data, size);
    }
    return next<"write", decltype(::write)>()(descriptor, data, size);
}
ssize_t pwrite(int descriptor, const void* data, size_t size, off_t offset) {
    return on_descriptor<"pwrite", decltype(::pwrite)>(
        Call::kWrite, descriptor, data, size, offset);
}
ssize_t pwrite64(int descriptor, const void* data, size_t size, off64_t offset) {
    return on_descriptor<"pwrite64", decltype(::pwrite64)>(
        Call::kWrite, descriptor, data, size, offset);
}

int fsync(int descriptor) {
    return on_descriptor<"fsync", decltype(::fsync)>(Call::kFsync, descriptor);
}
int fdatasync(int descriptor) {
    return on_descriptor<"fdatasync", decltype(::fdatasync)>(Call::kFsync, descriptor);
}

void* mmap(
    void* place, size_t size, int protection, int flags, int descriptor, off_t offset) noexcept {
    if (descriptor >= 0) {
        if (const int error = account_descriptor(Call::kMmap, descriptor); error != 0) {
            errno = error;
            return MAP_FAILED;
        }
    }
    return next<"mmap", decltype(::mmap)>()(place, size, protection, flags, descriptor, offset);
}
void* mmap64(
    void* place, size_t size, int protection, int flags, int descriptor, off64_t offset) noexcept {
    return mmap(place, size, protection, flags, descriptor, offset);
}

// A stream whose last bytes did not reach the disk: they are lost, and the caller is told.
int fflush(FILE* stream) {
    if (stream != nullptr) {
        if (const int error = account_descriptor(Call::kFflush, ::fileno(stream)); error != 0) {
            __fpurge(stream);
            return refuse<int>(error);
        }
    }
    return next<"fflush", decltype(::fflush)>()(stream);
}
int fclose(FILE* stream) {
    const int error = account_descriptor(Call::kFclose, ::fileno(stream));
    if (error == 0) {
        return next<"fclose", decltype(::fclose)>()(stream);
    }
    __fpurge(stream);
    next<"fclose", decltype(::fclose)>()(stream);
    return refuse<int>(error);
}

#pragma GCC visibility pop

}  // extern "C"
