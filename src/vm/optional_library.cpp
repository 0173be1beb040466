#include "vm/optional_library.hpp"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <new>
#include <string>

#include "machines/documents.hpp"
#include "support/handle.hpp"

namespace kx::vm {

namespace {

// Tells packagers and tools which libraries are loaded on demand: the ELF note ".note.dlopen" with
// a JSON text.
constexpr char kOptionalLibraries[] =
    R"([{"feature":"machines","description":"virtual machines through libvirt",)"
    R"("priority":"recommended","soname":["libvirt.so.0"]},)"
    R"({"feature":"machines","description":"descriptions of virtual machines",)"
    R"("priority":"recommended","soname":[")" KX_XERCES_SONAME R"("]}])";

struct DlopenNote {
    uint32_t owner_size;
    uint32_t text_size;
    uint32_t type;
    char owner[4];
    alignas(4) char text[sizeof kOptionalLibraries];
};

constexpr DlopenNote note_of(const char (&text)[sizeof kOptionalLibraries]) {
    DlopenNote note{4, sizeof kOptionalLibraries, 0x407C0C0A, {'F', 'D', 'O', 0}, {}};
    std::copy(std::begin(text), std::end(text), note.text);
    return note;
}

[[gnu::used, gnu::aligned(4), gnu::section(".note.dlopen")]] constexpr DlopenNote kDlopenNote =
    note_of(kOptionalLibraries);

// The directory of the file that contains this code, with a "/" at the end. The linker has known it
// since it loaded the file, so the working directory may have changed; links to the file are
// followed.
std::string own_directory() {
    Dl_info info;
    link_map* map = nullptr;
    std::array<char, PATH_MAX> origin;
    void* const here = reinterpret_cast<void*>(&own_directory);
    if (dladdr1(here, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0 ||
        dlinfo(map, RTLD_DI_ORIGIN, origin.data()) != 0) {
        return "";
    }
    const std::string loaded = info.dli_fname;
    const std::string path =
        std::string(origin.data()) + "/" + loaded.substr(loaded.rfind('/') + 1);
    const Block<char> real(realpath(path.c_str(), nullptr));
    const std::string file = real ? real.get() : path;
    return file.substr(0, file.rfind('/') + 1);
}

// Never closed: the agent keeps texts and handles of these libraries. Short memory is one more
// reason why it cannot be loaded.
void* optional_library() try {
    static void* library = nullptr;
    if (library == nullptr) {
        const std::string directory = own_directory();
        if (!directory.empty()) {
            library = dlopen((directory + KX_MACHINES_FILE).c_str(), RTLD_NOW | RTLD_LOCAL);
        }
    }
    return library;
} catch (const std::bad_alloc&) {
    return nullptr;
}

}  // namespace

const machines::Documents* documents() {
    static const machines::Documents* found = nullptr;
    if (found == nullptr) {
        using Entry = decltype(kx_machine_documents);
        auto* const entry =
            reinterpret_cast<Entry*>(find_in_optional_library(machines::kEntryName));
        found = entry == nullptr ? nullptr : entry();
    }
    return found;
}

void* find_in_optional_library(const char* name) {
    void* const library = optional_library();
    return library == nullptr ? nullptr : dlsym(library, name);
}

}  // namespace kx::vm
