#include "process/attached.hpp"

#include <fcntl.h>
#include <kxsim/preload.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <span>

#include "process/environment.hpp"
#include "process/next.hpp"

namespace kxsim::process {
namespace {

enum class Phase { kUnknown, kSearching, kReal, kSimulated };

constinit Host the_host{};
constinit std::atomic<Phase> phase = Phase::kUnknown;

bool join(char (&path)[PATH_MAX], const char* directory, const char* file) {
    const int length = std::snprintf(path, sizeof path, "%s%s", directory, file);
    return length > 0 && static_cast<std::size_t>(length) < sizeof path;
}

template <class Record>
int map_file(const char* root, const char* file, Record*& record) {
    char path[PATH_MAX];
    if (!join(path, root, file)) {
        return ENAMETOOLONG;
    }
    const int descriptor = next<"open", decltype(::open)>()(path, O_RDWR | O_CLOEXEC);
    if (descriptor < 0) {
        return errno;
    }
    void* const address = next<"mmap", decltype(::mmap)>()(
        nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    const int reason = errno;
    ::close(descriptor);
    if (address == MAP_FAILED) {
        return reason;
    }
    record = static_cast<Record*>(address);
    return 0;
}

template <class Record>
void unmap(Record*& record) {
    if (record != nullptr) {
        ::munmap(record, sizeof(Record));
        record = nullptr;
    }
}

void unmap(std::span<Mapping> mappings) {
    for (Mapping& mapping : mappings) {
        if (mapping.address != nullptr) {
            ::munmap(mapping.address, mapping.size);
            mapping = {};
        }
    }
}

void drop_host() {
    unmap(the_host.session);
    unmap(the_host.network);
    unmap(the_host.adapters);
    unmap(the_host.order);
    unmap(the_host.flash);
    unmap(the_host.eeprom);
}

int map_host(const char* root) {
    if (!join(the_host.tree, root, state::kTreeDirectory)) {
        return ENAMETOOLONG;
    }
    the_host.root_length = std::strlen(root);
    the_host.tree_length = std::strlen(the_host.tree);
    struct stat status {};
    if (next<"lstat", decltype(::lstat)>()(the_host.tree, &status) != 0) {
        return errno;
    }
    the_host.device = status.st_dev;
    int error = map_file(root, state::kSessionFile, the_host.session);
    if (error == 0) {
        error = map_file(root, state::kNetworkFile, the_host.network);
    }
    if (error == 0) {
        error = map_file(root, state::kAdaptersFile, the_host.adapters);
    }
    if (error == 0) {
        error = map_file(root, state::kOrderFile, the_host.order);
    }
    if (error != 0) {
        drop_host();
    }
    return error;
}

// When a session is named but cannot be mapped, the process must not continue on the real machine,
// because it would change the real adapters.
void find_host() {
    const KeepErrno keep;
    if (environ == nullptr) {
        phase = Phase::kUnknown;  // the C library is not initialised yet
        return;
    }
    const char* const root = value_in(environ, state::kRootVariable);
    if (root == nullptr || *root == '\0') {
        phase = Phase::kReal;
        return;
    }
    if (map_host(root) != 0) {
        complain("libkxsim: KXSIM_ROOT names no session\n");
        _exit(127);
    }
    phase = Phase::kSimulated;
}

// Before the program can clear its environment.
__attribute__((constructor)) void find_host_early() { static_cast<void>(host()); }

}  // namespace

Host* host() {
    if (Pause::active()) {
        return nullptr;
    }
    Phase now = phase.load(std::memory_order_acquire);
    if (now == Phase::kUnknown &&
        phase.compare_exchange_strong(now, Phase::kSearching, std::memory_order_acq_rel)) {
        find_host();
        now = phase;
    }
    return now == Phase::kSimulated ? &the_host : nullptr;
}

}  // namespace kxsim::process

using namespace kxsim::process;  // NOLINT: the functions are this namespace's face

extern "C" {

#pragma GCC visibility push(default)

int kxsim_attach(const char* root) {
    kxsim_detach();
    const int error = map_host(root);
    phase = error == 0 ? Phase::kSimulated : Phase::kReal;
    return error;
}

void kxsim_detach(void) {
    phase = Phase::kReal;
    drop_host();
}

void kxsim_pause(void) { Pause::begin(); }

void kxsim_resume(void) { Pause::end(); }

#pragma GCC visibility pop

}  // extern "C"
