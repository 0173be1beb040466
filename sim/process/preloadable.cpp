#include "process/preloadable.hpp"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "process/environment.hpp"
#include "process/next.hpp"
#include "process/path_text.hpp"

namespace kxsim::process {
namespace {

// Scripts that are interpreted by scripts, and the first line of a script: the kernel's limits.
constexpr int kMostInterpreters = 5;
constexpr std::size_t kLineSize = 256;

constexpr std::size_t kLoaderSize = 256;  // of the path of a dynamic loader

using ElfHeader = ElfW(Ehdr);
using ProgramHeader = ElfW(Phdr);

class File {
public:
    explicit File(const char* path)
        : descriptor_(next<"open", decltype(::open)>()(path, O_RDONLY | O_CLOEXEC)) {}
    ~File() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }

    // The number of bytes that could be read.
    std::size_t read_at(std::uint64_t offset, void* bytes, std::size_t size) const {
        const ssize_t got = next<"pread", decltype(::pread)>()(
            descriptor_, bytes, size, static_cast<off_t>(offset));
        return got < 0 ? 0 : static_cast<std::size_t>(got);
    }

    template <class Record>
    bool read_at(std::uint64_t offset, Record& record) const {
        return read_at(offset, &record, sizeof record) == sizeof record;
    }

private:
    int descriptor_;
};

bool look_at(const char* path, struct stat& status) {
    return next<"stat", decltype(::stat)>()(path, &status) == 0;
}

bool is_program(const char* path) {
    struct stat status {};
    return look_at(path, status) && S_ISREG(status.st_mode) &&
           next<"access", decltype(::access)>()(path, X_OK) == 0;
}

bool same_file(const char* left, const char* right) {
    struct stat one {};
    struct stat other {};
    return look_at(left, one) && look_at(right, other) && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

// False when there is none.
bool find_program(std::string_view command, PathText& path) {
    const char* const given = value_in(environ, "PATH");
    std::string_view places = given == nullptr ? "/bin:/usr/bin" : given;
    for (bool more = true; more;) {
        std::size_t end = 0;
        while (end < places.size() && places[end] != ':') {
            ++end;
        }
        path.clear();
        path.append({places.data(), end});
        path.append(end == 0 ? "" : "/");
        path.append(command);
        if (!path.too_long() && is_program(path.c_str())) {
            return true;
        }
        more = end < places.size();
        places.remove_prefix(more ? end + 1 : end);
    }
    return false;
}

// The header of the file that holds this code.
const ElfHeader& own_header() {
    Dl_info object{};
    dladdr(reinterpret_cast<void*>(would_leave_host), &object);
    return *static_cast<const ElfHeader*>(object.dli_fbase);
}

// A loader that was started as a program is that program.
const char* own_loader() {
    Dl_info object{};
    void* const base = reinterpret_cast<void*>(getauxval(AT_BASE));
    return base != nullptr && dladdr(base, &object) != 0 ? object.dli_fname : "/proc/self/exe";
}

// The dynamic loader of a program; false for a program that is linked statically.
bool read_loader(const File& file, const ElfHeader& header, char (&loader)[kLoaderSize]) {
    ProgramHeader part{};
    for (unsigned k = 0; k < header.e_phnum; ++k) {
        if (file.read_at(header.e_phoff + k * sizeof part, part) && part.p_type == PT_INTERP &&
            part.p_filesz < sizeof loader) {
            loader[file.read_at(part.p_offset, loader, part.p_filesz)] = '\0';
            return true;
        }
    }
    return false;
}

// Null for a program that loads the library.
const char* why_not(const char* path, const File& file, const ElfHeader& header) {
    const ElfHeader& own = own_header();
    if (header.e_ident[EI_CLASS] != own.e_ident[EI_CLASS] || header.e_machine != own.e_machine ||
        header.e_phentsize != sizeof(ProgramHeader)) {
        return "it is built for another processor than kxsim";
    }
    char loader[kLoaderSize];
    if (!read_loader(file, header, loader)) {
        return same_file(path, own_loader()) ? nullptr : "it is linked statically";
    }
    return same_file(loader, own_loader()) ? nullptr : "its dynamic loader is not the one of kxsim";
}

// The program of a script's first line, such as "#!/bin/sh -e"; empty when there is none.
std::string_view interpreter_in(std::string_view line) {
    const auto is_blank = [](char c) { return c == ' ' || c == '\t'; };
    std::size_t begin = 2;
    while (begin < line.size() && is_blank(line[begin])) {
        ++begin;
    }
    std::size_t end = begin;
    while (end < line.size() && !is_blank(line[end]) && line[end] != '\n') {
        ++end;
    }
    return begin < line.size() ? std::string_view(line.data() + begin, end - begin)
                               : std::string_view();
}

// With rights that its caller does not have, the loader ignores LD_PRELOAD.
bool gains_rights(const char* path) {
    struct stat status {};
    if (::geteuid() != 0 &&
        next<"getxattr", decltype(::getxattr)>()(path, "security.capability", nullptr, 0) > 0) {
        return true;
    }
    return ::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 0 && look_at(path, status) &&
           (((status.st_mode & S_ISUID) != 0 && status.st_uid != ::geteuid()) ||
            ((status.st_mode & S_ISGID) != 0 && status.st_gid != ::getegid()));
}

// Null for a program that loads the library. Otherwise `program`, at first the command, is the file
// with that reason: the command or the interpreter of a script.
const char* why_not(PathText& program) {
    for (int left = kMostInterpreters; left >= 0 && is_program(program.c_str()); --left) {
        if (gains_rights(program.c_str())) {
            return "it gains rights when it starts";
        }
        const File file(program.c_str());
        if (!file) {
            return "it cannot be read";
        }
        ElfHeader header{};
        if (file.read_at(0, header) && std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0) {
            return why_not(program.c_str(), file, header);
        }
        char line[kLineSize];
        const std::size_t length = file.read_at(0, line, sizeof line);
        if (length < 2 || line[0] != '#' || line[1] != '!') {
            return nullptr;
        }
        program.clear();
        program.append(interpreter_in({line, length}));
    }
    return nullptr;
}

}  // namespace

bool would_leave_host(const char* command, Search search) {
    const int error = errno;
    PathText program;
    if (search == Search::kNone || std::strchr(command, '/') != nullptr ||
        !find_program(command, program)) {
        program.clear();
        program.append(command);
    }
    const char* const reason = why_not(program);
    if (reason != nullptr) {
        for (const char* part :
             {"kxsim: ", command, " would run on the real machine, not on the simulated host (",
              program.c_str(), ": ", reason, ")\n"}) {
            complain(part);
        }
    }
    errno = error;
    return reason != nullptr;
}

}  // namespace kxsim::process
