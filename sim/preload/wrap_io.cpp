// Calls on open objects: descriptors, streams, mappings.
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "models/device_memory.hpp"
#include "models/modelled_file.hpp"
#include "preload/flushed_files.hpp"
#include "preload/interception.hpp"
#include "preload/target.hpp"
#include "process/attached.hpp"
#include "process/next.hpp"

namespace {

using namespace kxsim::preload;  // NOLINT: the wrappers are this namespace's face
using kxsim::models::FileAccess;
using kxsim::models::ModelledFile;
using kxsim::state::Call;

template <FunctionName kName, class Function, class... Rest>
auto on_descriptor(Call call, int descriptor, Rest... rest) {
    using Result = std::invoke_result_t<Function*, int, Rest...>;
    if (const int error = intercept_descriptor(call, descriptor); error != 0) {
        return refuse<Result>(error);
    }
    return next<kName, Function>()(descriptor, rest...);
}

// Reads and writes of a file with a model call the model; transfer is its function for this
// direction, go that of the C library, with the allowed number of bytes.
template <class Bytes, class Transfer, class Go>
ssize_t transfer_bytes(
    Call call, int descriptor, Bytes* bytes, std::size_t size, std::optional<off_t> offset,
    Transfer ModelledFile::*transfer, Go go) {
    if (const int error = intercept_transfer(call, descriptor, size); error != 0) {
        if (size != 0) {
            static_cast<void>(go(size));
        }
        return refuse<ssize_t>(error);
    }
    Host* const on = host();
    PathText path;
    if (on != nullptr && simulated_path(*on, descriptor, path)) {
        const ModelledFile* const model = kxsim::models::find_model(path.view());
        if (model != nullptr && model->*transfer != nullptr) {
            return (model->*transfer)(
                FileAccess{*on, descriptor, path.view(), offset}, bytes, size);
        }
    }
    return go(size);
}

ssize_t read_bytes(int descriptor, void* buffer, size_t size) {
    return transfer_bytes(
        Call::kRead, descriptor, buffer, size, std::nullopt, &ModelledFile::read,
        [=](std::size_t most) {
            return next<"read", decltype(::read)>()(descriptor, buffer, most);
        });
}

ssize_t read_bytes_at(int descriptor, void* buffer, size_t size, off_t offset) {
    return transfer_bytes(
        Call::kRead, descriptor, buffer, size, offset, &ModelledFile::read, [=](std::size_t most) {
            return next<"pread", decltype(::pread)>()(descriptor, buffer, most, offset);
        });
}

ssize_t write_bytes(int descriptor, const void* data, size_t size) {
    return transfer_bytes(
        Call::kWrite, descriptor, data, size, std::nullopt, &ModelledFile::write,
        [=](std::size_t most) {
            return next<"write", decltype(::write)>()(descriptor, data, most);
        });
}

ssize_t write_bytes_at(int descriptor, const void* data, size_t size, off_t offset) {
    return transfer_bytes(
        Call::kWrite, descriptor, data, size, offset, &ModelledFile::write, [=](std::size_t most) {
            return next<"pwrite", decltype(::pwrite)>()(descriptor, data, most, offset);
        });
}

// Offsets have 64 bits in both variants.
static_assert(sizeof(off_t) == sizeof(off64_t));

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

ssize_t read(int descriptor, void* buffer, size_t size) {
    return read_bytes(descriptor, buffer, size);
}
ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t) {
    return read_bytes(descriptor, buffer, size);
}
ssize_t pread(int descriptor, void* buffer, size_t size, off_t offset) {
    return read_bytes_at(descriptor, buffer, size, offset);
}
ssize_t pread64(int descriptor, void* buffer, size_t size, off64_t offset) {
    return read_bytes_at(descriptor, buffer, size, offset);
}
ssize_t __pread_chk(int descriptor, void* buffer, size_t size, off_t offset, size_t) {
    return read_bytes_at(descriptor, buffer, size, offset);
}
ssize_t __pread64_chk(int descriptor, void* buffer, size_t size, off64_t offset, size_t) {
    return read_bytes_at(descriptor, buffer, size, offset);
}

ssize_t write(int descriptor, const void* data, size_t size) {
    return write_bytes(descriptor, data, size);
}
ssize_t pwrite(int descriptor, const void* data, size_t size, off_t offset) {
    return write_bytes_at(descriptor, data, size, offset);
}
ssize_t pwrite64(int descriptor, const void* data, size_t size, off64_t offset) {
    return write_bytes_at(descriptor, data, size, offset);
}

int fsync(int descriptor) {
    return flushed(descriptor, on_descriptor<"fsync", decltype(::fsync)>(Call::kFsync, descriptor));
}
int fdatasync(int descriptor) {
    return flushed(
        descriptor, on_descriptor<"fdatasync", decltype(::fdatasync)>(Call::kFsync, descriptor));
}

int fchmod(int descriptor, mode_t mode) noexcept {
    return on_descriptor<"fchmod", decltype(::fchmod)>(Call::kChmod, descriptor, mode);
}
int fchown(int descriptor, uid_t owner, gid_t group) noexcept {
    return on_descriptor<"fchown", decltype(::fchown)>(Call::kChown, descriptor, owner, group);
}
int ftruncate(int descriptor, off_t length) noexcept {
    return on_descriptor<"ftruncate", decltype(::ftruncate)>(Call::kTruncate, descriptor, length);
}
int ftruncate64(int descriptor, off64_t length) noexcept {
    return on_descriptor<"ftruncate64", decltype(::ftruncate64)>(
        Call::kTruncate, descriptor, length);
}

void* mmap(
    void* place, size_t size, int protection, int flags, int descriptor, off_t offset) noexcept {
    if (descriptor >= 0) {  // anonymous memory does not belong to a host
        if (const int error = intercept_descriptor(Call::kMmap, descriptor); error != 0) {
            errno = error;
            return MAP_FAILED;
        }
        Host* const on = host();
        PathText path;
        if (on != nullptr && simulated_path(*on, descriptor, path) &&
            kxsim::models::is_device_memory(path.view())) {
            return kxsim::models::map_device_memory(size, protection, offset);
        }
    }
    return next<"mmap", decltype(::mmap)>()(place, size, protection, flags, descriptor, offset);
}
void* mmap64(
    void* place, size_t size, int protection, int flags, int descriptor, off64_t offset) noexcept {
    return mmap(place, size, protection, flags, descriptor, offset);
}

// The last bytes of a stream did not reach the disk: they are lost, and the caller gets an error.
int fflush(FILE* stream) {
    if (stream != nullptr) {
        if (const int error = intercept_descriptor(Call::kFflush, ::fileno(stream)); error != 0) {
            __fpurge(stream);
            return refuse<int>(error);
        }
    }
    return next<"fflush", decltype(::fflush)>()(stream);
}
int fclose(FILE* stream) {
    const int error = intercept_descriptor(Call::kFclose, ::fileno(stream));
    if (error == 0) {
        return next<"fclose", decltype(::fclose)>()(stream);
    }
    __fpurge(stream);
    next<"fclose", decltype(::fclose)>()(stream);
    return refuse<int>(error);
}

#pragma GCC visibility pop

}  // extern "C"
