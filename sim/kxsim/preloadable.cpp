#include "kxsim/preloadable.hpp"

#include <elf.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <vector>

namespace kxsim {
namespace {

namespace fs = std::filesystem;

constexpr int kMostInterpreters =
    5;  // of scripts that are interpreted by scripts; the kernel's limit

using ElfHeader = ElfW(Ehdr);
using ProgramHeader = ElfW(Phdr);

bool is_program(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

std::optional<fs::path> find_program(const std::string& command) {
    if (command.find('/') != command.npos) {
        return is_program(command) ? std::optional<fs::path>(command) : std::nullopt;
    }
    const char* const given = std::getenv("PATH");
    std::string_view places = given == nullptr ? "/bin:/usr/bin" : given;
    for (bool more = true; more;) {
        const std::size_t end = places.find(':');
        const fs::path path = fs::path(places.substr(0, end)) / command;
        if (is_program(path)) {
            return path;
        }
        more = end != places.npos;
        places.remove_prefix(more ? end + 1 : 0);
    }
    return std::nullopt;
}

template <class Record>
bool read_at(std::ifstream& file, std::uint64_t offset, Record& record) {
    return static_cast<bool>(file.seekg(static_cast<std::streamoff>(offset))
                                 .read(reinterpret_cast<char*>(&record), sizeof record));
}

// The dynamic loader of a program; empty for a statically linked program.
std::string loader_of(std::ifstream& file, const ElfHeader& header) {
    for (unsigned k = 0; k < header.e_phnum; ++k) {
        ProgramHeader part{};
        if (!read_at(file, header.e_phoff + k * sizeof part, part)) {
            return {};
        }
        char path[PATH_MAX] = {};
        if (part.p_type == PT_INTERP && part.p_filesz < sizeof path &&
            file.seekg(static_cast<std::streamoff>(part.p_offset))
                .read(path, static_cast<std::streamsize>(part.p_filesz))) {
            return path;
        }
    }
    return {};
}

bool is_elf(const ElfHeader& header) { return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0; }

bool is_of_own_kind(const ElfHeader& header) {
    ElfHeader own{};
    std::ifstream file("/proc/self/exe", std::ios::binary);
    return read_at(file, 0, own) && header.e_ident[EI_CLASS] == own.e_ident[EI_CLASS] &&
           header.e_machine == own.e_machine && header.e_phentsize == sizeof(ProgramHeader);
}

std::string own_loader() {
    ElfHeader header{};
    std::ifstream file("/proc/self/exe", std::ios::binary);
    return read_at(file, 0, header) ? loader_of(file, header) : std::string();
}

std::string why_not(std::ifstream& file, const ElfHeader& header) {
    if (!is_of_own_kind(header)) {
        return "it is built for another processor than kxsim";
    }
    const std::string loader = loader_of(file, header);
    if (loader.empty()) {
        return "it is linked statically";
    }
    std::error_code error;
    return fs::equivalent(loader, own_loader(), error)
               ? ""
               : "its dynamic loader " + loader + " is not the one of kxsim";
}

// The program of a script's first line, such as "#!/bin/sh -e".
std::string interpreter_of(std::ifstream& file) {
    std::string line;
    file.clear();
    file.seekg(2);
    std::getline(file, line);
    const std::size_t begin = line.find_first_not_of(" \t");
    return begin == line.npos ? "" : line.substr(begin, line.find_first_of(" \t", begin) - begin);
}

// For a file with capabilities the loader ignores LD_PRELOAD; set-user-id bits have no effect here.
bool gains_capabilities(const fs::path& path) {
    return ::geteuid() != 0 && ::getxattr(path.c_str(), "security.capability", nullptr, 0) > 0;
}

std::string why_not(const fs::path& path, int interpreters_left) {
    if (gains_capabilities(path)) {
        return "it gains capabilities when it starts";
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return "it cannot be read";
    }
    ElfHeader header{};
    if (read_at(file, 0, header) && is_elf(header)) {
        return why_not(file, header);
    }
    file.clear();
    char start[2] = {};
    file.seekg(0);
    if (!file.read(start, sizeof start) || std::memcmp(start, "#!", sizeof start) != 0 ||
        interpreters_left == 0) {
        return "";
    }
    const std::string interpreter = interpreter_of(file);
    const std::string reason =
        is_program(interpreter) ? why_not(fs::path(interpreter), interpreters_left - 1) : "";
    return reason.empty() ? "" : "of " + interpreter + ": " + reason;
}

}  // namespace

std::string why_not_preloadable(const std::string& command) {
    const std::optional<fs::path> program = find_program(command);
    return program ? why_not(*program, kMostInterpreters) : "";
}

}  // namespace kxsim
