#include "preload/flushed_files.hpp"

#include <sys/stat.h>

#include <atomic>
#include <cstdint>

#include "preload/interception.hpp"

namespace kxsim::preload {
namespace {

using state::FlushedFile;

// The place of a file in the table; null when the table is full.
FlushedFile* place_of(state::Session& session, std::uint64_t inode) {
    for (FlushedFile& file : session.flushed) {
        std::uint64_t found = 0;
        if (file.inode.compare_exchange_strong(found, inode)) {
            file.size = INT64_MAX;
            return &file;
        }
        if (found == inode) {
            return &file;
        }
    }
    return nullptr;
}

// Note the size of a file of the host: what a flush wrote, or the smaller one of an opening.
void note_size(int descriptor, bool by_flush) {
    Host* const on = host();
    if (on == nullptr || on->session->flushes_watched == 0) {
        return;
    }
    const KeepErrno keep;
    struct stat status {};
    if (next<"fstat", decltype(::fstat)>()(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_dev != on->device) {
        return;
    }
    FlushedFile* const file = place_of(*on->session, status.st_ino);
    if (file != nullptr && (by_flush || status.st_size < file->size)) {
        file->size = status.st_size;
    }
}

}  // namespace

int opened(int descriptor) {
    if (descriptor >= 0) {
        note_size(descriptor, false);
    }
    return descriptor;
}

int flushed(int descriptor, int result) {
    if (result == 0) {
        note_size(descriptor, true);
    }
    return result;
}

}  // namespace kxsim::preload
