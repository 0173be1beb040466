// Every function, in a process with closed standard streams: no file, socket, directory or device
// that the library or libpci opens gets their descriptors, because the next message would be
// written into it.
#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>
#include <string>

#include "fault_injection/entry_points.hpp"
#include "support/closed_streams.hpp"

extern "C" {
#include <pci/pci.h>
}

namespace {

bool watching = false;
std::string seen;  // calls on a descriptor that is a standard stream's

void look_at(const char* call, int descriptor) {
    if (watching && descriptor >= 0 && descriptor < test::kStreams) {
        seen += std::string(" ") + call + " on " + std::to_string(descriptor);
    }
}

template <class Function>
Function* next_of(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// All calls that use a descriptor; they are passed on to the simulated host.
extern "C" {

KX_EXPORT ssize_t read(int descriptor, void* buffer, size_t size) {
    look_at("read", descriptor);
    return next_of<decltype(read)>("read")(descriptor, buffer, size);
}

KX_EXPORT ssize_t pread(int descriptor, void* buffer, size_t size, off_t offset) {
    look_at("pread", descriptor);
    return next_of<decltype(pread)>("pread")(descriptor, buffer, size, offset);
}

KX_EXPORT ssize_t write(int descriptor, const void* data, size_t size) {
    look_at("write", descriptor);
    return next_of<decltype(write)>("write")(descriptor, data, size);
}

KX_EXPORT ssize_t pwrite(int descriptor, const void* data, size_t size, off_t offset) {
    look_at("pwrite", descriptor);
    return next_of<decltype(pwrite)>("pwrite")(descriptor, data, size, offset);
}

KX_EXPORT int ioctl(int descriptor, unsigned long request, ...) noexcept {
    std::va_list rest;
    va_start(rest, request);
    void* const data = va_arg(rest, void*);
    va_end(rest);
    look_at("ioctl", descriptor);
    return next_of<int(int, unsigned long, void*)>("ioctl")(descriptor, request, data);
}

KX_EXPORT void* mmap(
    void* place, size_t size, int protection, int flags, int descriptor, off_t offset) noexcept {
    look_at("mmap", descriptor);
    return next_of<decltype(mmap)>("mmap")(place, size, protection, flags, descriptor, offset);
}

KX_EXPORT dirent* readdir(DIR* directory) {
    look_at("readdir", dirfd(directory));
    return next_of<decltype(readdir)>("readdir")(directory);
}

}  // extern "C"

namespace {

// What a function does with these streams closed.
std::string seen_without_streams(const test::EntryPoint& entry, unsigned closed) {
    const test::Silence silence;
    return test::without_streams(closed, [&entry] {
        watching = true;
        entry.call();
        watching = false;
        return seen;
    });
}

TEST(ClosedStreams, AreNoFilesOfTheLibrary) {
    const test::Lab lab;
    for (const test::EntryPoint& entry : test::entry_points()) {
        for (const unsigned closed : test::kClosedStreams) {
            EXPECT_EQ(seen_without_streams(entry, closed), "")
                << entry.name << ", " << test::streams_text(closed);
        }
    }
}

TEST(OpenFiles, OfLibpciAreNotHandedToProgramsThatAreStarted) {
    test::Lab lab;
    uint32_t dword = 0;
    for (uint8_t adapter = 0; adapter < g_adapter_count; ++adapter) {
        pci_config_read(adapter, 0, &dword);
        ASSERT_GT(pci_access_p->fd, STDERR_FILENO);
        EXPECT_EQ(fcntl(pci_access_p->fd, F_GETFD), FD_CLOEXEC) << "reading";
        pci_config_write(adapter, 0x3C, 0x24);
        EXPECT_EQ(fcntl(pci_access_p->fd, F_GETFD), FD_CLOEXEC) << "writing";
    }
}

}  // namespace
