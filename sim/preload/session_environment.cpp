#include "preload/session_environment.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "process/environment.hpp"

namespace kxsim::preload {
namespace {

using process::value_in;

constexpr char kLibraryVariable[] = "LD_PRELOAD";
constexpr std::size_t kMorePointers = 3;  // two entries and the end
constexpr char kSeparators[] = " :";      // of the paths in LD_PRELOAD
constexpr char kNotInPaths[] = " :\t$";   // what the loader does not take as a part of a path

// As the loader found it.
const char* library_path() {
    Dl_info object{};
    return dladdr(reinterpret_cast<void*>(has_session), &object) == 0 ? "" : object.dli_fname;
}

std::string_view file_name(std::string_view path) {
    std::size_t begin = path.size();
    while (begin > 0 && path[begin - 1] != '/') {
        --begin;
    }
    path.remove_prefix(begin);
    return path;
}

const char* text_of(const char* value) { return value == nullptr ? "" : value; }

bool holds_library(const char* paths) {
    const std::string_view library = file_name(library_path());
    while (*paths != '\0') {
        const std::size_t length = std::strcspn(paths, kSeparators);
        if (length > 0 && file_name({paths, length}) == library) {
            return true;
        }
        paths += length + std::strspn(paths + length, kSeparators);
    }
    return false;
}

bool sets(const char* entry, const char* name) {
    char* const one[] = {const_cast<char*>(entry), nullptr};
    return value_in(one, name) != nullptr;
}

std::size_t entries_in(char* const* environment) {
    std::size_t count = 0;
    while (environment != nullptr && environment[count] != nullptr) {
        ++count;
    }
    return count;
}

// Texts one behind the other.
class Writer {
public:
    explicit Writer(char* to) : to_(to) {}

    char* entry(std::string_view name, std::string_view value, std::string_view rest = {}) {
        char* const begin = to_;
        for (const std::string_view part :
             {name, std::string_view("="), value, std::string_view(rest.empty() ? "" : ":"), rest,
              std::string_view("\0", 1)}) {
            std::memcpy(to_, part.data(), part.size());
            to_ += part.size();
        }
        return begin;
    }

private:
    char* to_;
};

}  // namespace

bool has_session(char* const* environment) {
    return *text_of(value_in(environment, state::kRootVariable)) != '\0' &&
           holds_library(text_of(value_in(environment, kLibraryVariable)));
}

bool can_name_library() {
    const char* const path = library_path();
    return *path == '/' && path[std::strcspn(path, kNotInPaths)] == '\0';
}

std::size_t size_with_session(char* const* environment) {
    const std::size_t pointers = entries_in(environment) + kMorePointers;
    const std::size_t values = PATH_MAX + std::strlen(library_path()) +
                               std::strlen(text_of(value_in(environment, state::kRootVariable))) +
                               std::strlen(text_of(value_in(environment, kLibraryVariable)));
    constexpr std::size_t kSigns = 5;  // "=" and the end of both, ":"
    return pointers * sizeof(char*) + sizeof state::kRootVariable + sizeof kLibraryVariable +
           values + kSigns;
}

char** add_session(const process::Host& host, char* const* environment, void* room) {
    auto** const whole = static_cast<char**>(room);
    const std::size_t count = entries_in(environment);
    Writer writer(reinterpret_cast<char*>(whole + count + kMorePointers));
    const std::string_view other_session = text_of(value_in(environment, state::kRootVariable));
    char** next = whole;
    *next++ = writer.entry(
        state::kRootVariable,
        other_session.empty() ? std::string_view(host.tree, host.root_length) : other_session);
    *next++ = writer.entry(
        kLibraryVariable, library_path(), text_of(value_in(environment, kLibraryVariable)));
    for (std::size_t k = 0; k < count; ++k) {
        if (!sets(environment[k], state::kRootVariable) &&
            !sets(environment[k], kLibraryVariable)) {
            *next++ = environment[k];
        }
    }
    *next = nullptr;
    return whole;
}

void complete_environment() {
    with_session(environ, [](char* const* whole) {
        if (whole != environ) {
            ::setenv(state::kRootVariable, value_in(whole, state::kRootVariable), 1);
            ::setenv(kLibraryVariable, value_in(whole, kLibraryVariable), 1);
        }
    });
}

}  // namespace kxsim::preload
