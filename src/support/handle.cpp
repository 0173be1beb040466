#include "support/handle.hpp"

#include <fcntl.h>

namespace kx {
namespace {

// Moves an open file to a descriptor above the standard streams; reopen makes an object from the
// descriptor.
template <class Object, class Reopen>
Object above_streams(Object object, int descriptor, Reopen reopen) {
    if (descriptor >= kStandardStreams) {
        return object;
    }
    Descriptor above(fcntl(descriptor, F_DUPFD_CLOEXEC, kStandardStreams));
    Object same(above ? reopen(above.get()) : nullptr);
    if (same) {
        static_cast<void>(above.release());
    }
    return same;
}

}  // namespace

File open_file(const char* path, const char* mode) {
    File file(std::fopen(path, mode));
    if (!file) {
        return nullptr;
    }
    const int descriptor = fileno(file.get());
    return above_streams(
        std::move(file), descriptor, [mode](int above) { return fdopen(above, mode); });
}

Directory open_directory(const char* path) {
    Directory directory(opendir(path));
    if (!directory) {
        return nullptr;
    }
    const int descriptor = dirfd(directory.get());
    return above_streams(std::move(directory), descriptor, [](int above) {
        lseek(above, 0, SEEK_SET);  // data may already have been read into the buffer
        return fdopendir(above);
    });
}

Pipe open_pipe(const char* command) {
    const StandardStreamGuard streams;
    return Pipe(streams ? popen(command, "re") : nullptr);
}

}  // namespace kx
