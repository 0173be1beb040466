#include "vm/domain_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "support/handle.hpp"

namespace kx::vm {

namespace {

bool is_regular(const Descriptor& descriptor) {
    struct stat status {};
    return fstat(descriptor.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// The emptied kDomainFile, or nothing. Not blocking: a named pipe in its place is no reason to wait
// for a reader.
File open_domain_file() {
    constexpr mode_t kAgentsMask = 0666;
    Descriptor descriptor(
        open(kDomainFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kAgentsMask));
    if (!descriptor || !is_regular(descriptor) || ftruncate(descriptor.get(), 0) != 0) {
        return nullptr;
    }
    File file(fdopen(descriptor.get(), "w"));
    if (file) {
        static_cast<void>(descriptor.release());
    }
    return file;
}

}  // namespace

static_assert(kDeclaration.size() == 55, "line end included");

bool write_domain_file(const char* description) {
    File file = open_domain_file();
    if (!file) {
        return false;
    }
    const bool written = std::fputs(kDeclaration.data(), file.get()) != EOF &&
                         std::fputs(description, file.get()) != EOF;
    return std::fclose(file.release()) == 0 && written;
}

}  // namespace kx::vm
